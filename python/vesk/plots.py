"""Figures of a fit: scores against K, the data coloured by cluster, cluster
sizes, clusters against answers, EM traces and membership uncertainty.
Each function returns a matplotlib Figure; Mixture's plot_* methods and
tools/vesk_plot.py both draw with them."""

import numpy as np
import pandas as pd

MAX_BAR_LABELS = 30    # sizes plots label each bar up to this many clusters
MAX_SCATTER_COLUMNS = 6
MAX_CELL_LABELS = 400  # answer tables print counts up to this many cells


def _plt():
    import matplotlib.pyplot as plt
    return plt


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


def scores_figure(scores, best):
    """One axis per score (BIC, and Cheeseman-Stutz when computed), each
    with its own scale; the score the run chose by is drawn first and the
    chosen K marked; failed K are marked on the K axis."""
    plt = _plt()
    used = scores["criterion"].dropna().iloc[0] if scores["criterion"].notna().any() else "BIC"
    panels = [("bic", "BIC")]
    if scores["cs"].notna().any():
        panels.append(("cs", "Cheeseman-Stutz score"))
    if used != "BIC":
        panels.reverse()
    fig, axes = plt.subplots(len(panels), 1, figsize=(6, 2.2 + 1.8 * len(panels)), sharex=True,
                             squeeze=False)
    ok = scores[scores["status"].fillna("ok") == "ok"]
    bad = scores[scores["status"].fillna("ok") != "ok"]
    for ax, (column, label) in zip(axes[:, 0], panels):
        ax.plot(ok["K"], ok[column], "o-", label=label)
        chosen = ok[ok["K"] == best]
        if column == panels[0][0]:
            ax.plot(chosen["K"], chosen[column], "r*", markersize=16, label="chosen K = %d" % best)
        for k, status in zip(bad["K"], bad["status"]):
            ax.axvline(k, color="grey", linestyle=":", linewidth=1)
            ax.annotate(status, (k, 0.02), xycoords=("data", "axes fraction"), rotation=90,
                        fontsize=7, color="grey")
        ax.set_ylabel(label + (" (used)" if label.startswith(used[:3]) else ""), fontsize=8)
        ax.legend(fontsize=7)
    warning = edge_warning(list(ok["K"]), best)
    title = "Score against K (larger is better)"
    if warning:
        title += "\nWARNING: " + warning
    axes[0, 0].set_title(title, fontsize=10)
    axes[-1, 0].set_xlabel("number of classes K")
    ks = list(scores["K"])
    if len(ks) <= 30:
        axes[-1, 0].set_xticks(ks)
    fig.tight_layout()
    return fig


def _ellipse(ax, mean, cov, color):
    from matplotlib.patches import Ellipse
    vals, vecs = np.linalg.eigh(cov)
    vals = np.clip(vals, 0, None)
    angle = np.degrees(np.arctan2(vecs[1, 1], vecs[0, 1]))
    for scale in (1, 2):
        ax.add_patch(Ellipse(mean, 2 * scale * np.sqrt(vals[1]), 2 * scale * np.sqrt(vals[0]),
                             angle=angle, fill=False, color=color, linewidth=1, alpha=0.8))


def clusters_figure(data, labels, means=None, covariances=None, columns=None):
    """Scatter matrix of the continuous columns coloured by cluster, with
    each class's mean and its 1- and 2-standard-deviation ellipses."""
    plt = _plt()
    columns = list(columns if columns is not None else data.select_dtypes("number").columns)
    columns = columns[:MAX_SCATTER_COLUMNS]
    if not columns:
        raise ValueError("no continuous column to plot")
    d = len(columns)
    fig, axes = plt.subplots(d, d, figsize=(2.2 * d + 1, 2.2 * d + 0.5), squeeze=False)
    classes = sorted(pd.unique(labels.dropna()))
    cmap = plt.get_cmap("tab10" if len(classes) <= 10 else "tab20")
    color = {k: cmap(i % cmap.N) for i, k in enumerate(classes)}
    for i, yi in enumerate(columns):
        for j, xj in enumerate(columns):
            ax = axes[i, j]
            if i == j:
                for k in classes:
                    ax.hist(data.loc[labels == k, xj].dropna(), bins=15, alpha=0.5,
                            color=color[k])
            else:
                ax.scatter(data[xj], data[yi], c=[color.get(k, "lightgrey") for k in labels],
                           s=8, alpha=0.7)
                _class_shapes(ax, classes, color, xj, yi, means, covariances)
            if i == d - 1:
                ax.set_xlabel(xj, fontsize=8)
            if j == 0:
                ax.set_ylabel(yi, fontsize=8)
            ax.tick_params(labelsize=6)
    handles = [plt.Line2D([], [], marker="o", linestyle="", color=color[k]) for k in classes]
    fig.legend(handles, ["cluster %s" % k for k in classes], loc="upper right", fontsize=7)
    fig.suptitle("Cases by cluster: class means (x) and covariance ellipses", fontsize=10)
    fig.tight_layout(rect=(0, 0, 0.9, 0.96))
    return fig


def _class_shapes(ax, classes, color, xj, yi, means, covariances):
    if means is None or means.empty:
        return
    for k in classes:
        m = means[means["class"] == k].set_index("column")["mean"]
        if xj not in m or yi not in m:
            continue
        center = (m[xj], m[yi])
        ax.plot(*center, "x", color="black", markersize=7)
        if covariances is None or covariances.empty:
            continue
        c = covariances[covariances["class"] == k]
        get = {(r, col): v for r, col, v in zip(c["row"], c["column"], c["covariance"])}
        try:
            cov = np.array([[get[(xj, xj)], get.get((xj, yi), get.get((yi, xj)))],
                            [get.get((yi, xj), get.get((xj, yi))), get[(yi, yi)]]], dtype=float)
        except KeyError:
            continue
        if np.isfinite(cov).all():
            _ellipse(ax, center, cov, color[k])


def sizes_figure(sizes):
    """Cases per cluster, largest first; counts are printed on the bars
    only while they stay readable."""
    plt = _plt()
    sizes = sizes.sort_values(ascending=False)
    n = len(sizes)
    fig, ax = plt.subplots(figsize=(min(12, 4 + 0.25 * min(n, 32)), 4))
    x = np.arange(n)
    ax.bar(x, sizes.values, width=0.8 if n <= 100 else 1.0)
    if n <= MAX_BAR_LABELS:
        ax.set_xticks(x)
        ax.set_xticklabels([str(k) for k in sizes.index], fontsize=8)
        for xi, v in zip(x, sizes.values):
            ax.text(xi, v, str(v), ha="center", va="bottom", fontsize=7)
        ax.set_xlabel("cluster k")
    else:
        ax.set_xlabel("clusters by size (%d; %d hold no case)" % (n, int((sizes == 0).sum())))
    ax.set_ylabel("cases")
    ax.set_title("Cluster sizes", fontsize=10)
    fig.tight_layout()
    return fig


def answers_figure(table):
    """Cases per cluster (rows) and answer class (columns, in order of
    first appearance as the table gives them)."""
    plt = _plt()
    r, c = table.shape
    fig, ax = plt.subplots(figsize=(min(14, 2 + 1.0 * c), min(14, 1.5 + 0.4 * r)))
    im = ax.imshow(table.values, cmap="Blues", aspect="auto")
    ax.set_xticks(range(c))
    ax.set_xticklabels([str(v) for v in table.columns], rotation=30, ha="right", fontsize=8)
    ax.set_yticks(range(r))
    ax.set_yticklabels([str(k) for k in table.index], fontsize=8)
    if r * c <= MAX_CELL_LABELS:
        top = table.values.max() if table.size else 0
        for i in range(r):
            for j in range(c):
                v = table.values[i, j]
                ax.text(j, i, str(v), ha="center", va="center", fontsize=7,
                        color="white" if v > top / 2 else "black")
    ax.set_xlabel("answer class")
    ax.set_ylabel("cluster k")
    ax.set_title("Clusters against answer classes", fontsize=10)
    fig.colorbar(im, ax=ax)
    fig.tight_layout()
    return fig


def trace_figure(logs):
    """The objective of each K's best restart against the EM updates;
    `logs` maps K to the sections of its log."""
    plt = _plt()
    fig, ax = plt.subplots(figsize=(6, 4))
    ylabel = "Log likelihood"
    for k, log in sorted(logs.items()):
        for key, df in log.items():
            if not key.startswith("LOGLIKE-") or df.empty:
                continue
            if "Log a posteriori prob." in df.columns:
                ylabel = "Log a posteriori prob."
            smem = "SMEM" in key
            kk = int(df["Num. of classes"].iloc[0]) if "Num. of classes" in df else k
            ax.plot(range(len(df)), df[ylabel], "--" if smem else "-",
                    label="K = %d%s" % (kk, " (split-merge)" if smem else ""))
    ax.set_title("EM trace of the best restart of each K", fontsize=10)
    ax.set_xlabel("update")
    ax.set_ylabel(ylabel)
    if len(logs) <= 12:
        ax.legend(fontsize=8)
    fig.tight_layout()
    return fig


def uncertainty_figure(memberships):
    """How sure the model is of each case: 1 - max_k P(k|x), sorted, and
    its distribution per assigned cluster."""
    plt = _plt()
    unc = 1 - memberships.max(axis=1)
    labels = memberships.values.argmax(axis=1)
    fig, (a, b) = plt.subplots(1, 2, figsize=(9, 3.5))
    a.plot(np.sort(unc.values)[::-1])
    a.set_xlabel("cases, most uncertain first")
    a.set_ylabel("1 - max P(k|x)")
    a.set_title("Membership uncertainty", fontsize=10)
    groups = [unc.values[labels == k] for k in range(memberships.shape[1])]
    shown = [k for k, g in enumerate(groups) if len(g)]
    b.boxplot([groups[k] for k in shown], labels=[str(k) for k in shown])
    b.set_xlabel("cluster k")
    b.set_title("Uncertainty by cluster", fontsize=10)
    fig.tight_layout()
    return fig
