#!/usr/bin/env python3
"""Plots of a vesk run, as PNG files beside its result files.

    python3 tools/vesk_plot.py BASE [--out PREFIX]

BASE is the prefix of the result files (the -f value, with "_SUFFIX" when
-s was given): BASE_log.csv (or .txt) must exist, BASE_cluster.* is used
when present. Writes

    PREFIX_score.png    score of every K tried (one axis per score), the
                        chosen K marked
    PREFIX_trace.png    log-likelihood (or log posterior under priors) of
                        each K against the EM updates of its best restart
    PREFIX_sizes.png    number of cases in each cluster, largest first
    PREFIX_answer.png   clusters against the answer classes (runs with -E),
                        answers in order of first appearance

PREFIX is BASE unless --out says otherwise. A warning goes to standard
error (and into the score plot) when the chosen K is the largest K tried,
or the smallest when that is above 2: the best K may lie outside the range.
The figures are those of the vesk package's Mixture.plot_* methods.
"""

import os
import sys

_HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(_HERE), "python"))

try:
    import matplotlib
    import pandas as pd
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    from vesk import plots
    from vesk.plots import edge_warning  # noqa: F401
    from vesk.result import read_result
except ImportError as e:  # the python3 first on PATH may lack them
    sys.exit("vesk_plot.py needs pandas and matplotlib (%s): on Debian apt-get install "
             "python3-pandas python3-matplotlib and run it with /usr/bin/python3" % e)


def _find(base, ending):
    for ext in (".csv", ".txt"):
        if os.path.exists(base + ending + ext):
            return base + ending + ext
    return None


def _description(df, label):
    for line in df.attrs.get("description", []):
        if line.startswith(label + " = "):
            return line[len(label) + 3:]
    return None


def score_table(log):
    """The SCORE section as the package's scores_ table, and the chosen K."""
    score = log["SCORE"]
    criterion = _description(score, "Selected criterion") or "BIC"
    table = pd.DataFrame({"K": score["Num. of classes"], "bic": score["BIC"],
                          "cs": score["AUTOCLASS"], "criterion": criterion, "status": "ok"})
    return table, int(_description(score, "Optimal num. of classes"))


def cluster_sizes(log, cluster):
    if "CLUSTER-FREQ-CASE" in log:
        df = log["CLUSTER-FREQ-CASE"]
        return pd.Series(df["Cluster size"].values, index=df["Cluster for cases"].values)
    return cluster["CLUSTER-CASE-BY-CASE"]["Cluster k"].value_counts().sort_index()


def answer_table(cases):
    """Cases per cluster (rows) and answer class (columns, first appearance first)."""
    answers = cases["Answer class"]
    order = list(pd.unique(answers.dropna()))
    return pd.crosstab(cases["Cluster k"], pd.Categorical(answers, categories=order))


def _save(fig, path):
    fig.savefig(path, dpi=100)
    plt.close(fig)
    return path


def main(argv):
    args = argv[1:]
    if len(args) not in (1, 3) or (len(args) == 3 and args[1] != "--out") or \
            args[0] in ("-h", "--help"):
        sys.stdout.write(__doc__)
        return 0 if args and args[0] in ("-h", "--help") else 1
    base = args[0]
    out = args[2] if len(args) == 3 else base
    log_path = _find(base, "_log")
    if log_path is None:
        sys.stderr.write("vesk_plot.py: neither %s_log.csv nor %s_log.txt exists\n" % (base, base))
        return 1
    try:
        log = read_result(log_path)
        if "SCORE" not in log:
            sys.stderr.write("vesk_plot.py: %s has no SCORE section: the run did not finish\n"
                             % log_path)
            return 1
        cluster_path = _find(base, "_cluster")
        cluster = read_result(cluster_path) if cluster_path else {}
    except ValueError as e:
        sys.stderr.write("vesk_plot.py: %s\n" % e)
        return 1
    scores, best = score_table(log)
    warning = edge_warning(list(scores["K"]), best)
    if warning:
        sys.stderr.write("vesk_plot.py: warning: %s\n" % warning)
    written = [_save(plots.scores_figure(scores, best), out + "_score.png"),
               _save(plots.trace_figure({best: log}), out + "_trace.png")]
    if "CLUSTER-FREQ-CASE" in log or "CLUSTER-CASE-BY-CASE" in cluster:
        written.append(_save(plots.sizes_figure(cluster_sizes(log, cluster)), out + "_sizes.png"))
    cases = cluster.get("CLUSTER-CASE-BY-CASE")
    if cases is not None and "Answer class" in cases.columns:
        written.append(_save(plots.answers_figure(answer_table(cases)), out + "_answer.png"))
    for path in written:
        print(path)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
