"""The Mixture estimator: fits finite mixture models with the vesk program
and gives the results back as pandas objects."""

import os
import shutil
import tempfile
import warnings

import numpy as np
import pandas as pd

from . import _data, _sweep, _tables
from .programs import find_programs
from .result import read_result

_ENDINGS = ("log", "cluster", "memp", "param", "eval", "rank")


class FitFailed(RuntimeError):
    """Every K of a sweep failed (or was interrupted before finishing)."""


def remedy(message):
    """What to do about a failed K, from the program's message."""
    m = message.lower()
    if "invert covariances" in m or "singular" in m:
        return ("a class collapsed onto a few cases (its covariance is singular): fit with "
                "priors (priors='autoclass'), or give every continuous column its own "
                "one-dimensional Gaussian, a diagonal variance (independent=True)")
    if "not a number" in m:
        return ("probabilities underflowed: use log_scale=True with priors "
                "(priors='autoclass')")
    return "see the program's message; priors (priors='autoclass') often help"


class Mixture:
    """Finite mixture model fitted by EM with the vesk program.

    n_classes: an int or an iterable of class counts (each K is its own
    vesk process); restarts, seed: random restarts and the seed of each K;
    priors: "autoclass" (-A), None for maximum likelihood, or a dict of
    smoothing options {"c": 1, "w": 1, "T": "auto"}; score: None (the
    program's choice), "bic" or "cs"; daem: False, True (the program's
    schedule) or (initial inverse temperature, rate); split_merge: the
    number of split-and-merge operations per K (None: plain EM); log_scale:
    -J; the defaults (10 restarts, split-and-merge 5, no annealing) are the
    settings that reached the best-known optimum in the measurements the
    README reports;
    epsilon, max_iter: convergence; answer, id: column names; roles:
    {column: role} with role continuous, discrete, id, answer, ignored or
    count; independent: one Gaussian per continuous column; rank: cases
    listed per class in ranking_; n_jobs: K run at once (default: cores);
    threads: threads per process; unseen: "error" or "missing" for
    discrete values never seen in fitting; progress: a bar per K;
    options: more vesk words, passed as they are."""

    def __init__(self, n_classes=range(2, 7), restarts=10, seed=1, priors="autoclass",
                 score=None, daem=False, split_merge=5, log_scale=False, epsilon=None,
                 max_iter=None, answer=None, id=None, roles=None, independent=False, rank=10,
                 n_jobs=None, threads=None, unseen="error", progress=True, options=()):
        self.n_classes = n_classes
        self.restarts = restarts
        self.seed = seed
        self.priors = priors
        self.score = score
        self.daem = daem
        self.split_merge = split_merge
        self.log_scale = log_scale
        self.epsilon = epsilon
        self.max_iter = max_iter
        self.answer = answer
        self.id = id
        self.roles = roles
        self.independent = independent
        self.rank = rank
        self.n_jobs = n_jobs
        self.threads = threads
        self.unseen = unseen
        self.progress = progress
        self.options = options

    # scikit-learn's parameter protocol (sklearn.base.clone uses it).
    def get_params(self, deep=True):
        return {name: getattr(self, name) for name in self._param_names()}

    def set_params(self, **params):
        for name, value in params.items():
            if name not in self._param_names():
                raise ValueError("invalid parameter %r for Mixture" % name)
            setattr(self, name, value)
        return self

    @staticmethod
    def _param_names():
        code = Mixture.__init__.__code__
        return list(code.co_varnames[1:code.co_argcount])

    def __repr__(self):
        return "Mixture(%s)" % ", ".join("%s=%r" % kv for kv in self.get_params().items())

    def _ks(self):
        ks = [self.n_classes] if np.isscalar(self.n_classes) else list(self.n_classes)
        if not ks or any(int(k) != k or k < 2 for k in ks):
            raise ValueError("n_classes must be integers of at least 2, got %r"
                             % (self.n_classes,))
        return sorted(set(int(k) for k in ks))

    def _fit_words(self):
        w = ["-n", str(self.restarts), "-r", str(self.seed), "-D"]
        if self.priors == "autoclass":
            w.append("-A")
        elif isinstance(self.priors, dict):
            for opt, value in self.priors.items():
                w += ["-" + opt if len(opt) == 1 else "--" + opt, str(value)]
        elif self.priors is not None:
            raise ValueError("priors: 'autoclass', None or a dict of smoothing options")
        if self.score:
            w += ["-g", self.score]
        if self.daem:
            w.append("-b")
            if self.daem is not True:
                w += ["-B", "%s:%s" % tuple(self.daem)]
        if self.split_merge:
            w += ["-o", str(self.split_merge)]
        if self.log_scale:
            w.append("-J")
        if self.epsilon is not None:
            w += ["-e", repr(float(self.epsilon))]
        if self.max_iter is not None:
            w += ["-m", str(self.max_iter)]
        if self.rank:
            w += ["-z", str(self.rank)]
        return w + [str(o) for o in self.options]

    def fit(self, X, y=None):
        """Fits every K of n_classes and keeps the best by the program's
        rule. y is ignored (the answer column is named by `answer`)."""
        df = _data.as_frame(X)
        vesk, prep, where = find_programs()
        self.programs_ = {"vesk": vesk, "vesk-prep": prep, "found in": where}
        folder = tempfile.mkdtemp(prefix="vesk_fit_")
        try:
            self._fit_in(folder, df, vesk, prep)
        finally:
            shutil.rmtree(folder, ignore_errors=True)
        return self

    def _fit_in(self, folder, df, vesk, prep):
        words, self.columns_, self._columns_text = _data.prepare(
            prep, folder, df, self.answer, self.id, self.roles, self.independent)
        self._words = words
        ks = self._ks()
        runs = [_sweep.KRun(k, folder, words + ["-k", str(k), "-s", "k%d" % k]
                            + self._fit_words()) for k in ks]
        n_jobs = max(1, min(self.n_jobs or _sweep.cores(), len(ks)))
        threads = self.threads or max(1, _sweep.cores() // n_jobs)
        interrupted = _sweep.run_sweep(vesk, folder, runs, n_jobs, threads, self.restarts,
                                       self.progress)
        self._collect(folder, df, runs, interrupted)

    def _read_run(self, folder, k):
        cols = os.path.join(folder, _data.BASE + "_columns.csv")
        out = {}
        for ending in _ENDINGS:
            path = os.path.join(folder, "%s_k%d_%s.csv" % (_data.BASE, k, ending))
            if os.path.exists(path):
                out[ending] = read_result(path, columns=cols)
        return out

    def _collect(self, folder, df, runs, interrupted):
        names = {i + 1: n for i, n in enumerate(self.columns_["name"])}
        rows, self.results_ = [], {}
        for run in runs:
            row = {"K": run.k, "time": run.seconds, "status": run.status,
                   "message": run.message}
            if run.status == "ok":
                res = self.results_[run.k] = self._read_run(folder, run.k)
                row.update(_tables.score_row(run.k, res["log"]))
                if _tables.classes_equal(_tables.tidy_params(res["param"], names)):
                    row["status"] = "equal classes"
                    row["message"] = "every class came out the same (the one-class fit)"
            rows.append(row)
        cols = ["K", "criterion", "score", "bic", "cs", "loglik", "logpost", "n_params",
                "time", "status", "message"]
        self.scores_ = pd.DataFrame(rows).reindex(columns=cols)
        self._warn_failures(interrupted)
        ok = self.scores_[self.scores_["status"] == "ok"]
        if ok.empty and interrupted:
            raise KeyboardInterrupt
        if ok.empty:
            raise FitFailed("no K was fitted: %s" % "; ".join(
                "K=%d %s%s" % (r.K, r.status, (": " + r.message) if r.message else "")
                for r in self.scores_.itertuples()))
        self.n_classes_ = int(_tables.best_k(ok))
        with open(os.path.join(folder, "%s_k%d_param.csv" % (_data.BASE, self.n_classes_))) as f:
            self._param_file = f.read()
        self._set_model(df, self.results_[self.n_classes_], names)
        for k, res in self.results_.items():
            for frames in res.values():
                for frame in frames.values():
                    self._map_ids(frame)

    def _warn_failures(self, interrupted):
        for r in self.scores_.itertuples():
            if r.status == "failed":
                warnings.warn("K=%d failed: %s -- %s" % (r.K, r.message, remedy(r.message)),
                              stacklevel=5)
            elif r.status == "equal classes":
                warnings.warn(
                    "K=%d: %s; annealing from a low initial inverse temperature ends so: "
                    "start it higher (daem=(0.5, 1.2)) or fit without annealing" % (r.K, r.message),
                    stacklevel=5)
        if interrupted:
            stopped = self.scores_.loc[self.scores_["status"] == "interrupted", "K"].tolist()
            warnings.warn("interrupted: K = %s not fitted; the finished K are kept"
                          % ", ".join(map(str, stopped)), stacklevel=5)

    def _set_model(self, df, res, names):
        self._index = df.index
        self._ids = df[str(self.id)].values if self.id is not None else None
        self.feature_names_in_ = np.array(df.columns, dtype=object)
        self._train_values = _data.discrete_values(df, self.columns_)
        self.params_ = _tables.tidy_params(res["param"], names)
        cases = res["cluster"]["CLUSTER-CASE-BY-CASE"].set_index("Case ID")["Cluster k"]
        self.labels_ = pd.Series(cases.reindex(range(len(df))).values, index=df.index,
                                 name="cluster")
        self.memberships_ = _tables.memberships(res["memp"]["MEMBER-CASE"], self.n_classes_,
                                                df.index)
        self.ranking_ = res["rank"]["RANK-CASE"] if "rank" in res else None
        self.evaluation_ = self.contingency_ = None
        if self.answer is not None:
            self.evaluation_, self.contingency_ = _tables.evaluation(
                self.labels_, df[str(self.answer)])
        self._train = df

    def _map_ids(self, frame):
        """Case IDs (row numbers) as the user's IDs, or the input's index."""
        if "Case ID" not in frame.columns or frame.empty:
            return
        ids = self._ids if self._ids is not None else np.asarray(self._index)
        rows = pd.to_numeric(frame["Case ID"], errors="coerce")
        if rows.notna().all():
            frame["Case ID"] = pd.Series(ids[rows.astype(int).values], index=frame.index)

    def predict_proba(self, X):
        """Membership probabilities P(k|x) of new rows: an n x K frame in
        the rows' order, with their index."""
        self._check_fitted()
        df = _data.as_frame(X)
        vesk, prep, _ = find_programs()
        folder = tempfile.mkdtemp(prefix="vesk_predict_")
        try:
            words = _data.prepare_new(prep, folder, df, self.columns_, self._columns_text,
                                      self.unseen, self._train_values)
            with open(os.path.join(folder, _data.BASE + "_param.csv"), "w") as f:
                f.write(self._param_file)
            run = _sweep.KRun(0, folder, words + ["-k", str(self.n_classes_), "-D"])
            run.launch(vesk, folder, self.threads or _sweep.cores())
            run.finish()
            if run.status != "ok":
                raise RuntimeError("vesk -R failed: %s" % run.message)
            memp = read_result(os.path.join(folder, _data.BASE + "_memp.csv"),
                               columns=os.path.join(folder, _data.BASE + "_columns.csv"))
        finally:
            shutil.rmtree(folder, ignore_errors=True)
        return _tables.memberships(memp["MEMBER-CASE"], self.n_classes_, df.index)

    def predict(self, X):
        """The most probable class of each new row, with the rows' index."""
        proba = self.predict_proba(X)
        return pd.Series(proba.values.argmax(axis=1), index=proba.index, name="cluster")

    def fit_predict(self, X, y=None):
        return self.fit(X).labels_

    def _check_fitted(self):
        if not hasattr(self, "n_classes_"):
            raise RuntimeError("this Mixture is not fitted yet: call fit first")

    # Figures (matplotlib); each returns the Figure.
    def plot_scores(self):
        """Scores against K, one axis per score, the chosen K marked."""
        self._check_fitted()
        from .plots import edge_warning, scores_figure
        warning = edge_warning(list(self.scores_.loc[self.scores_["status"] == "ok", "K"]),
                               self.n_classes_)
        if warning:
            warnings.warn(warning, stacklevel=2)
        return scores_figure(self.scores_, self.n_classes_)

    def plot_clusters(self, columns=None):
        """Scatter matrix of the continuous columns coloured by cluster,
        with class means and covariance ellipses."""
        self._check_fitted()
        from .plots import clusters_figure
        if columns is None:
            columns = self.columns_.loc[self.columns_["role"] == "continuous", "name"].tolist()
        return clusters_figure(self._train, self.labels_, self.params_["mean"],
                               self.params_["covariance"], columns)

    def plot_sizes(self):
        """Cases per cluster, largest first."""
        self._check_fitted()
        from .plots import sizes_figure
        return sizes_figure(self.labels_.value_counts().reindex(range(self.n_classes_),
                                                                fill_value=0))

    def plot_answers(self):
        """Clusters against the answer classes (in order of first appearance)."""
        self._check_fitted()
        if self.contingency_ is None:
            raise ValueError("no answer column: fit with answer=COLUMN")
        from .plots import answers_figure
        return answers_figure(self.contingency_)

    def plot_trace(self):
        """EM trace of the best restart of each K."""
        self._check_fitted()
        from .plots import trace_figure
        return trace_figure({k: r["log"] for k, r in self.results_.items()})

    def plot_uncertainty(self):
        """1 - max P(k|x) of every case."""
        self._check_fitted()
        from .plots import uncertainty_figure
        return uncertainty_figure(self.memberships_)
