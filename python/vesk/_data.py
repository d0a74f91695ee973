"""From a DataFrame (or array) to a prepared vesk case file: the table is
written as an ordinary CSV, vesk-prep decides the roles by its rules (with
the package's and the user's overrides) and writes the case file and the
columns file; its printed command is the base of every vesk run."""

import os
import shlex
import subprocess
import warnings

import numpy as np
import pandas as pd

from .result import read_columns

ROW = "(row)"        # the column of row numbers the package adds as the case ID
BASE = "data"        # base name of the files in a work folder
ROLES = ("continuous", "discrete", "id", "answer", "ignored", "count")
MISSING_TEXTS = {"", "NA", "N/A", "NaN", "nan", "?", "NULL", "null", "#N/A"}
FEW_VALUES = 10      # an integer column with at most this many values is worth a warning


class PrepError(RuntimeError):
    pass


def as_frame(X):
    """X as a DataFrame with unique text column names; arrays get x0, x1 ..."""
    if isinstance(X, pd.DataFrame):
        df = X.copy()
        df.columns = [str(c) for c in X.columns]
    else:
        arr = np.asarray(X)
        if arr.ndim != 2:
            raise ValueError("expected a table of cases: a DataFrame or a 2-d array, got %d-d"
                             % arr.ndim)
        df = pd.DataFrame(arr, columns=["x%d" % i for i in range(arr.shape[1])])
    dup = df.columns[df.columns.duplicated()].tolist()
    if dup:
        raise ValueError("column names must be unique; repeated: %s" % ", ".join(dup))
    if ROW in df.columns:
        raise ValueError("the column name %r is reserved for the package" % ROW)
    if len(df) == 0:
        raise ValueError("the table has no rows")
    return df


def cell_texts(df):
    """The table as the texts written to the CSV file (missing: "")."""
    out = {}
    for name, col in df.items():
        if isinstance(col.dtype, pd.CategoricalDtype):
            col = col.astype(object)
        missing = col.isna()
        text = col.astype(object).map(lambda v: v if isinstance(v, str) else repr(v)
                                      if isinstance(v, float) else str(v))
        out[name] = text.where(~missing, "")
    return pd.DataFrame(out, index=df.index)


def write_table(df, path):
    """Writes the table with the row-number column first."""
    texts = cell_texts(df)
    texts.insert(0, ROW, [str(i) for i in range(len(df))])
    texts.to_csv(path, index=False)


def default_roles(df, answer, id_column, roles):
    """The roles the package sets before vesk-prep sees the table."""
    out = {ROW: "id"}
    for name, col in df.items():
        if isinstance(col.dtype, pd.CategoricalDtype) or pd.api.types.is_bool_dtype(col.dtype):
            out[name] = "discrete"
    if id_column is not None:
        out[str(id_column)] = "ignored"  # kept by the package; the row number is the case ID
    if answer is not None:
        out[str(answer)] = "answer"
    for name, role in (roles or {}).items():
        if role not in ROLES:
            raise ValueError("role of %r: %r is not one of %s" % (name, role, ", ".join(ROLES)))
        out[str(name)] = "ignored" if role == "id" else role
    for name in out:
        if name != ROW and name not in df.columns:
            raise ValueError("no column named %r in the table" % name)
    return out


def run_prep(prep, folder, extra, warn=True):
    """Runs vesk-prep in `folder` on data.csv; returns its standard output."""
    r = subprocess.run([prep, "data.csv", BASE] + extra, cwd=folder, capture_output=True,
                       text=True)
    if r.returncode != 0:
        raise PrepError("vesk-prep: %s" % (r.stderr.strip() or "exit status %d" % r.returncode))
    for line in r.stderr.splitlines() if warn else ():
        if "warning:" in line and "percent-encoded" not in line:
            warnings.warn(line.replace("vesk-prep: warning: ", "vesk-prep: "), stacklevel=4)
    return r.stdout


def command_words(prep_stdout):
    """The vesk arguments of vesk-prep's printed command, without the class
    count, restarts, priors and -R, which each run sets itself."""
    words = shlex.split(prep_stdout.strip().splitlines()[-1])[1:]
    out = []
    i = 0
    while i < len(words):
        if words[i] in ("-k", "-n"):
            i += 2
            continue
        if words[i] not in ("-A", "-R"):
            out.append(words[i])
        i += 1
    return out


def prepare(prep, folder, df, answer, id_column, roles, independent):
    """Writes data.csv, runs vesk-prep; returns (command words, columns
    frame without the row column, columns file text)."""
    write_table(df, os.path.join(folder, "data.csv"))
    extra = []
    for name, role in default_roles(df, answer, id_column, roles).items():
        extra += ["--role", "%s=%s" % (name, role)]
    if independent:
        extra.append("--independent")
    out = run_prep(prep, folder, extra)
    path = os.path.join(folder, BASE + "_columns.csv")
    with open(path) as f:
        text = f.read()
    cols = read_columns(path)
    warn_few_integers(df, cols)
    return command_words(out), cols[cols["name"] != ROW].reset_index(drop=True), text


def warn_few_integers(df, cols):
    for name, role in zip(cols["name"], cols["role"]):
        if role != "continuous" or name not in df.columns:
            continue
        col = df[name]
        if pd.api.types.is_integer_dtype(col.dtype) and col.nunique() <= FEW_VALUES:
            warnings.warn("column %r holds only %d distinct integers and is modelled as "
                          "continuous; roles={%r: 'discrete'} makes it categorical"
                          % (name, col.nunique(), name), stacklevel=4)


def prepare_new(prep, folder, df, train_columns, columns_text, unseen, train_values):
    """Writes new rows for scoring with the roles of the fitted model:
    absent answer, ID, ignored and count columns are filled in as missing;
    discrete values never seen in training are reported or made missing.
    Returns the command words (ending in -R)."""
    df = df.copy()
    for name, role in zip(train_columns["name"], train_columns["role"]):
        if name not in df.columns:
            if role in ("continuous", "discrete"):
                raise ValueError("column %r of the fitted model is missing" % name)
            df[name] = np.nan if role != "count" else 1
    df = df[list(train_columns["name"])]
    texts = cell_texts(df)
    for name, seen in train_values.items():
        col = texts[name]
        new = ~col.isin(seen) & ~col.isin(MISSING_TEXTS)
        if not new.any():
            continue
        if unseen == "missing":
            df.loc[new.values, name] = np.nan
            continue
        rows = df.index[new.values].tolist()
        raise ValueError("column %r holds values the model never saw (%s) in rows %s; "
                         "pass unseen='missing' to treat them as missing"
                         % (name, ", ".join(sorted(set(col[new])))[:200],
                            ", ".join(map(str, rows[:10])) + (" ..." if len(rows) > 10 else "")))
    write_table(df, os.path.join(folder, "data.csv"))
    with open(os.path.join(folder, "model_columns.csv"), "w") as f:
        f.write(columns_text)
    words = command_words(run_prep(prep, folder, ["--columns", "model_columns.csv"], warn=False))
    return without_answer(words) + ["-R"]


def without_answer(words):
    """The command with the answer column ignored instead of evaluated."""
    if "-E" not in words:
        return words
    i = words.index("-E")
    answer = words[i + 1]
    words = words[:i] + words[i + 2:]
    if "-y" in words:
        j = words.index("-y") + 1
        items = set()
        for item in words[j].split(","):
            a, _, b = item.partition("-")
            items.update(range(int(a), int(b or a) + 1))
        items.add(int(answer))
        words[j] = ",".join(str(i) for i in sorted(items))
    else:
        words += ["-y", answer]
    return words


def discrete_values(df, columns):
    """The texts of every discrete column, as written for training."""
    texts = cell_texts(df)
    return {n: set(texts[n]) - MISSING_TEXTS
            for n, r in zip(columns["name"], columns["role"]) if r == "discrete"}
