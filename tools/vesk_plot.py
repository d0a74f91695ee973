#!/usr/bin/env python3
"""Plots of a vesk run, as PNG files beside its result files.

    python3 tools/vesk_plot.py BASE [--out PREFIX]

BASE is the prefix of the result files (the -f value, with "_SUFFIX" when
-s was given): BASE_log.csv (or .txt) must exist, BASE_cluster.* is used
when present. Writes

    PREFIX_score.png    score of every K tried, the chosen K marked
    PREFIX_trace.png    log-likelihood (or log posterior under priors) of
                        each K against the EM updates of its best restart
    PREFIX_sizes.png    number of cases in each cluster
    PREFIX_answer.png   clusters against the answer classes (runs with -E)

PREFIX is BASE unless --out says otherwise. A warning goes to standard
error (and into the score plot) when the chosen K is the largest K tried,
or the smallest when that is above 2: the best K may lie outside the range.
"""

import os
import sys

try:
    import matplotlib
    import pandas as pd
except ImportError:  # the python3 first on PATH may lack them
    sys.exit("vesk_plot.py needs pandas and matplotlib: on Debian apt-get install "
             "python3-pandas python3-matplotlib and run it with /usr/bin/python3")

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from vesk_result import read_result  # noqa: E402


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


def edge_warning(ks, best):
    """A warning text when `best` lies at an edge of the K values tried
    that could be moved, else None."""
    ks = sorted(ks)
    if len(ks) < 2:
        return None
    if best == ks[-1]:
        return "the chosen K = %d is the largest tried; try a range with larger K" % best
    if best == ks[0] and best > 2:
        return "the chosen K = %d is the smallest tried; try a range with smaller K" % best
    return None


def plot_score(log, out):
    score = log["SCORE"]
    criterion = _description(score, "Selected criterion") or "BIC"
    best = int(_description(score, "Optimal num. of classes"))
    column = "BIC" if criterion == "BIC" else "AUTOCLASS"
    ks = score["Num. of classes"]
    fig, ax = plt.subplots(figsize=(6, 4))
    ax.plot(ks, score[column], "o-", label=criterion)
    other = "AUTOCLASS" if column == "BIC" else "BIC"
    if score[other].notna().any():
        ax.plot(ks, score[other], "s--", color="grey", alpha=0.6,
                label="BIC" if other == "BIC" else "Cheeseman-Stutz score")
    chosen = score[ks == best]
    ax.plot(chosen["Num. of classes"], chosen[column], "r*", markersize=16,
            label="chosen K = %d" % best)
    warning = edge_warning(list(ks), best)
    title = "Score against K (larger is better)"
    if warning:
        title += "\nWARNING: " + warning
        sys.stderr.write("vesk_plot.py: warning: %s\n" % warning)
    ax.set_title(title, fontsize=10)
    ax.set_xlabel("number of classes K")
    ax.set_ylabel(criterion)
    ax.set_xticks(list(ks))
    ax.legend(fontsize=8)
    return _save(fig, out + "_score.png")


def plot_trace(log, out):
    fig, ax = plt.subplots(figsize=(6, 4))
    ylabel = "Log likelihood"
    for key, df in log.items():
        if not key.startswith("LOGLIKE-") or df.empty:
            continue
        if "Log a posteriori prob." in df.columns:
            ylabel = "Log a posteriori prob."
        k = int(df["Num. of classes"].iloc[0])
        smem = "SMEM" in key
        ax.plot(range(len(df)), df[ylabel], "--" if smem else "-",
                label="K = %d%s" % (k, " (split-merge)" if smem else ""))
    ax.set_title("EM trace of the best restart of each K", fontsize=10)
    ax.set_xlabel("update")
    ax.set_ylabel(ylabel)
    ax.legend(fontsize=8)
    return _save(fig, out + "_trace.png")


def cluster_sizes(log, cluster):
    if "CLUSTER-FREQ-CASE" in log:
        df = log["CLUSTER-FREQ-CASE"]
        return pd.Series(df["Cluster size"].values, index=df["Cluster for cases"].values)
    return cluster["CLUSTER-CASE-BY-CASE"]["Cluster k"].value_counts().sort_index()


def plot_sizes(sizes, out):
    fig, ax = plt.subplots(figsize=(6, 4))
    ax.bar([str(k) for k in sizes.index], sizes.values)
    for x, v in enumerate(sizes.values):
        ax.text(x, v, str(v), ha="center", va="bottom", fontsize=8)
    ax.set_title("Cluster sizes", fontsize=10)
    ax.set_xlabel("cluster k")
    ax.set_ylabel("cases")
    return _save(fig, out + "_sizes.png")


def answer_table(cases):
    """Cases per cluster (rows) and answer class (columns)."""
    return pd.crosstab(cases["Cluster k"], cases["Answer class"])


def plot_answer(table, out):
    fig, ax = plt.subplots(figsize=(1.5 + 1.2 * len(table.columns), 1.5 + 0.6 * len(table)))
    im = ax.imshow(table.values, cmap="Blues", aspect="auto")
    ax.set_xticks(range(len(table.columns)))
    ax.set_xticklabels([str(c) for c in table.columns], rotation=30, ha="right", fontsize=8)
    ax.set_yticks(range(len(table.index)))
    ax.set_yticklabels([str(k) for k in table.index])
    top = table.values.max() if table.size else 0
    for i in range(len(table.index)):
        for j in range(len(table.columns)):
            v = table.values[i, j]
            ax.text(j, i, str(v), ha="center", va="center", fontsize=8,
                    color="white" if v > top / 2 else "black")
    ax.set_xlabel("answer class")
    ax.set_ylabel("cluster k")
    ax.set_title("Clusters against answer classes", fontsize=10)
    fig.colorbar(im, ax=ax)
    return _save(fig, out + "_answer.png")


def _save(fig, path):
    fig.tight_layout()
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
    log = read_result(log_path)
    if "SCORE" not in log:
        sys.stderr.write("vesk_plot.py: %s has no SCORE section: the run did not finish\n"
                         % log_path)
        return 1
    cluster_path = _find(base, "_cluster")
    cluster = read_result(cluster_path) if cluster_path else {}
    written = [plot_score(log, out), plot_trace(log, out)]
    if "CLUSTER-FREQ-CASE" in log or "CLUSTER-CASE-BY-CASE" in cluster:
        written.append(plot_sizes(cluster_sizes(log, cluster), out))
    cases = cluster.get("CLUSTER-CASE-BY-CASE")
    if cases is not None and "Answer class" in cases.columns:
        written.append(plot_answer(answer_table(cases), out))
    for path in written:
        print(path)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
