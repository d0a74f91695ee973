"""Tables of a fitted model as analysts use them: the score row of each K,
tidy parameter frames with column names, memberships pivoted wide, and the
evaluation against answers present."""

import numpy as np
import pandas as pd


def _description(df, label):
    for line in df.attrs.get("description", []):
        if line.startswith(label + " = "):
            return line[len(label) + 3:]
    return None


def score_row(k, log):
    """Score, log-likelihood, log posterior and parameter count of one
    finished K, from its log."""
    score = log["SCORE"]
    criterion = _description(score, "Selected criterion") or "BIC"
    column = "BIC" if criterion == "BIC" else "AUTOCLASS"
    trace = next((df for key, df in log.items() if key.startswith("LOGLIKE") and len(df)), None)
    row = {"K": k, "criterion": criterion, "score": float(score[column].iloc[0]),
           "bic": float(score["BIC"].iloc[0]), "cs": float(score["AUTOCLASS"].iloc[0])}
    row["loglik"] = float(trace["Log likelihood"].iloc[-1]) if trace is not None else np.nan
    row["logpost"] = (float(trace["Log a posteriori prob."].iloc[-1])
                      if trace is not None and "Log a posteriori prob." in trace else np.nan)
    row["n_params"] = int(log["PARAMSIZE"]["Total num. of params"].iloc[0])
    return row


def best_k(scores):
    """The program's rule: in increasing K, a later K wins only with a
    strictly greater score; only K that succeeded take part."""
    best, best_score = None, None
    for k, s in zip(scores["K"], scores["score"]):
        if best is None or s > best_score:
            best, best_score = k, s
    return best


def tidy_params(param, names):
    """Frames "class", "discrete", "mean", "covariance" from the sections
    of a parameter file; `names` maps column index to column name."""
    out = {"class": pd.DataFrame({"class": param["PARAM-CLASS"]["Class k"].values,
                                  "probability": param["PARAM-CLASS"].iloc[:, 1].values})}
    cats, means, covs = [], [], []
    for key, df in param.items():
        if key.startswith("PARAM-CAT"):
            cats.append(pd.DataFrame({
                "column": df["Attr. ID"].map(names).values, "class": df["Class k"].values,
                "value": df.iloc[:, 2].values, "probability": df.iloc[:, 3].values}))
        elif key.startswith("PARAM-GAUSS-MEAN"):
            means.append(pd.DataFrame({
                "group": df["Gauss ID"].values, "class": df["Class k"].values,
                "column": df["Attr. ID"].map(names).values, "mean": df["Mean"].values}))
        elif key.startswith("PARAM-GAUSS-COVAR"):
            covs.append(pd.DataFrame({
                "group": df["Gauss ID"].values, "class": df["Class k"].values,
                "row": df.iloc[:, 2].map(names).values, "column": df.iloc[:, 3].map(names).values,
                "covariance": df.iloc[:, 4].values}))
    empty = {"discrete": ["column", "class", "value", "probability"],
             "mean": ["group", "class", "column", "mean"],
             "covariance": ["group", "class", "row", "column", "covariance"]}
    for key, parts in (("discrete", cats), ("mean", means), ("covariance", covs)):
        out[key] = (pd.concat(parts, ignore_index=True) if parts
                    else pd.DataFrame(columns=empty[key]))
    return out


def classes_equal(params, rtol=1e-6):
    """True when every class has the same means and value probabilities:
    the fit is one class written K times."""
    if len(params["class"]) < 2:
        return False
    for key, value in (("mean", "mean"), ("discrete", "probability"),
                       ("covariance", "covariance")):
        df = params[key]
        if df.empty:
            continue
        cols = [c for c in df.columns if c not in ("class", value)]
        wide = df.pivot_table(index=cols, columns="class", values=value)
        spread = (wide.max(axis=1) - wide.min(axis=1)).abs()
        if (spread > rtol * (1 + wide.abs().max(axis=1))).any():
            return False
    return True


def memberships(memp, n_classes, index):
    """MEMBER-CASE pivoted to one row per case (in input order) and one
    column per class."""
    wide = memp.pivot(index="Case ID", columns="Class k", values="Membership prob. P(k|x)")
    wide = wide.reindex(index=range(len(index)), columns=range(n_classes))
    wide.index = index
    wide.columns.name = "class"
    return wide


def answer_order(values):
    """Answer classes in order of first appearance."""
    return list(pd.unique(values.dropna()))


def evaluation(labels, answers):
    """Purity, inverse purity, adjusted Rand index and normalized mutual
    information of the clusters against the answers that are present, and
    the contingency table (answer classes in order of first appearance)."""
    keep = answers.notna()
    lab, ans = labels[keep], answers[keep]
    table = pd.crosstab(lab, pd.Categorical(ans, categories=answer_order(ans)))
    table.index.name, table.columns.name = "cluster", "answer"
    n = table.values.sum()
    c = table.values.astype(float)
    comb = lambda x: x * (x - 1) / 2  # noqa: E731
    rows, cols = c.sum(axis=1), c.sum(axis=0)
    expected = comb(rows).sum() * comb(cols).sum() / comb(n) if n > 1 else 0
    top = 0.5 * (comb(rows).sum() + comb(cols).sum())
    ari = (comb(c).sum() - expected) / (top - expected) if top != expected else np.nan
    p = c / n
    pr, pc = p.sum(axis=1), p.sum(axis=0)
    nz = p > 0
    mi = (p[nz] * np.log(p[nz] / np.outer(pr, pc)[nz])).sum()
    h = lambda q: -(q[q > 0] * np.log(q[q > 0])).sum()  # noqa: E731
    nmi = mi / np.sqrt(h(pr) * h(pc)) if h(pr) > 0 and h(pc) > 0 else np.nan
    measures = pd.Series({
        "cases": int(n), "missing answers": int((~keep).sum()),
        "purity": c.max(axis=1).sum() / n, "inverse purity": c.max(axis=0).sum() / n,
        "adjusted Rand": ari, "NMI": nmi}, name="value")
    return measures, table
