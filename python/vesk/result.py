"""Read vesk result files (log, cluster, membership, parameter, ranking,
dissimilarity and evaluation files, tab- or comma-separated) into pandas
DataFrames, one per section.

    from vesk import read_result
    res = read_result("iris_raw_cluster.csv")
    res["CLUSTER-CASE-BY-CASE"]          # one row per case, one column per attribute

Column names come from each section's header line. The header "Attribute
values x" (and "Attributes values x") stands for one column per model
attribute; it is expanded into one column per attribute, named from
<base>_columns.csv (written by vesk-prep) when it is found (for a run
with -s SUFFIX, beside <base>_SUFFIX_cluster.csv), else "Attr. x<i>"
with i the attribute's 0-based column index, as the program names the
columns of the Gaussian sections. Rows that repeat a group of columns per
class (COND) are turned into one row per class. A name that occurs twice
("Attr. ID" in the covariance sections) gets ".1" the second time, as
pandas.read_csv names them. A section without a column line gets the
columns "Label" and "Value"; one whose single column heads rows of a label
and values ("Model specification") gets a "Value" column that holds the
rest of the row. Missing values ("?") and
unavailable numbers ("N/A") become NaN in every column, answers included;
numeric columns (case IDs too) become numbers.
When <base>_columns.csv is found the texts that vesk-prep percent-encoded
(blanks, commas, ...) are decoded back.

Which attributes a file shows is read from the log file beside it
(<prefix>_log.csv or .txt, section SETTING-MODEL-BASE).

A file that is not a well-formed result file (a cut last line, a row or
setting that cannot be read) raises ResultFormatError, a ValueError that
names the file and the line.

From a shell or any other language, one section as a plain CSV file:

    python3 tools/vesk_result.py iris_raw_cluster.csv CLUSTER-CASE-BY-CASE > clusters.csv
    python3 tools/vesk_result.py iris_raw_log.csv            # lists the sections
"""

import os
import re
import sys
import urllib.parse

import numpy as np
import pandas as pd

__all__ = ["read_result", "read_sections", "read_columns", "model_attributes",
           "ResultFormatError"]

_ENDINGS = ("_log", "_cluster", "_memp", "_param", "_hparam", "_rank", "_dissim", "_eval")
_EXPANDED = ("Attribute values x", "Attributes values x")
_ATTR_COLUMN = re.compile(r"^Attr\. (?:value )?x([0-9]+)('?)$")
_MISSING = ("?", "N/A")
_INTEGER = re.compile(r"[+-]?[0-9]{1,18}")


class ResultFormatError(ValueError):
    """A result or columns file that cannot be read as one; the message
    names the file and the line."""

    def __init__(self, path, line, what):
        where = "%s: line %d" % (path, line) if line else str(path)
        super().__init__("%s: %s" % (where, what))
        self.path = path
        self.line = line


class Section:
    """One section as written: identifier, column names, description lines
    and the data rows split into fields."""

    def __init__(self, ident, line=0):
        self.id = ident
        self.line = line      # line number of the "#### ID:" line
        self.columns = None
        self.descriptions = []
        self.rows = []
        self.lines = []       # line number of each row

    def __repr__(self):
        return "Section(%r, %d rows)" % (self.id, len(self.rows))


def _delimiter(path):
    return "," if path.lower().endswith(".csv") else "\t"


def read_sections(path):
    """The sections of a result file in file order, rows split into fields.
    A last line without a line end is taken for a cut file."""
    delim = _delimiter(path)
    sections = []
    cur = None
    in_header = False
    with open(path, encoding="utf-8", errors="surrogateescape", newline="") as f:
        for number, raw in enumerate(f, 1):
            if not raw.endswith("\n"):
                raise ResultFormatError(path, number, "the file ends in the middle of this "
                                        "line (cut short?)")
            line = raw.rstrip("\r\n")
            if line.startswith("#### ID:"):
                cur = Section(line[len("#### ID:"):], number)
                cur.path = path
                sections.append(cur)
                in_header = True
            elif cur is None or line == "":
                continue
            elif in_header and line == "####":
                in_header = False
            elif in_header and line.startswith("#### -- "):
                cur.descriptions.append(line[len("#### -- "):])
            elif in_header and line.startswith("#### "):
                cur.columns = line[len("#### "):].split(", ")
            else:
                cur.rows.append(line.split(delim))
                cur.lines.append(number)
    return sections


def _prefix(path):
    """The result file name without its ending ("_cluster.csv" ...)."""
    stem, _ = os.path.splitext(path)
    for ending in _ENDINGS:
        if stem.endswith(ending):
            return stem[: -len(ending)]
    return stem


def _find(prefix, ending):
    for ext in (".csv", ".txt"):
        if os.path.exists(prefix + ending + ext):
            return prefix + ending + ext
    return None


def read_columns(path):
    """<base>_columns.csv as a DataFrame (index, name, role)."""
    try:
        df = pd.read_csv(path, dtype=str, keep_default_na=False)
    except (ValueError, pd.errors.ParserError, UnicodeDecodeError) as e:
        raise ResultFormatError(path, 0, "not a columns file: %s" % e) from None
    if list(df.columns) != ["index", "name", "role"]:
        raise ResultFormatError(path, 1, "not a columns file (header index,name,role)")
    bad = ~df["index"].str.fullmatch(r"[0-9]{1,9}")
    if bad.any():
        line = int(bad.values.argmax()) + 2
        raise ResultFormatError(path, line, "column index %r is not a number"
                                % df["index"].iloc[line - 2])
    df["index"] = df["index"].astype("int64")
    return df


def _indices(fields):
    out = []
    for x in fields:
        if x in ("", "(none)"):
            continue
        if not _INTEGER.fullmatch(x):
            raise ValueError("attribute index %r is not a number" % x)
        out.append(int(x))
    return out


def model_attributes(sections):
    """The attribute roles recorded in a log's SETTING-MODEL-BASE section:
    a dict with "n", "id", "answer" (int or None), "ignored", "discrete",
    "continuous" and "model" (the attributes that result rows show, in
    column order). None when the section is absent."""
    for sec in sections:
        if sec.id != "SETTING-MODEL-BASE":
            continue
        try:
            return _model_attributes(sec)
        except ValueError as e:
            raise ResultFormatError(getattr(sec, "path", ""), sec.line, "SETTING-MODEL-BASE: %s"
                                    % e) from None
    return None


def _model_attributes(sec):
    rows = {r[0]: r[1:] for r in sec.rows if r}
    one = lambda key: (_indices(rows.get(key, [])) or [None])[0]  # noqa: E731
    info = {
        "n": one("Num of attributes"),
        "id": one("ID attribute"),
        "answer": one("Answer class attribute"),
        "ignored": _indices(rows.get("Ignored attributes", [])),
        "discrete": _indices(rows.get("Discrete attributes", [])),
        "continuous": _indices(rows.get("Continuous attributes", [])),
    }
    info["model"] = sorted(info["discrete"] + info["continuous"])
    return info


class _Context:
    """What naming and typing the columns of one file needs."""

    def __init__(self, attrs, names, decode):
        self.attrs = attrs
        self.names = names or {}
        self.decode = decode

    def attr_name(self, i, prime=""):
        if i in self.names:
            return self.names[i] + prime
        return "Attr. x%d%s" % (i, prime)

    def is_discrete(self, i):
        return self.attrs is not None and i in self.attrs["discrete"]


def _expand(sec, width, ctx):
    """Column names for rows of `width` fields, and the indices of the
    attributes behind the expanded columns (name -> attribute index)."""
    head = list(sec.columns or [])
    attr_of = {}
    names = []
    for h in head:
        m = _ATTR_COLUMN.match(h)
        if h in _EXPANDED:
            if ctx.attrs is not None:
                model = ctx.attrs["model"]
            else:
                model = list(range(max(width - (len(head) - 1), 0)))
            for i in model:
                names.append(ctx.attr_name(i))
                attr_of[names[-1]] = i
        elif m and not h.startswith("Attr. value") and int(m.group(1)) in ctx.names:
            names.append(ctx.attr_name(int(m.group(1)), m.group(2)))
            attr_of[names[-1]] = int(m.group(1))
        else:
            names.append(h)
            if m:
                attr_of[h] = int(m.group(1))
    return names, attr_of


def _melt_repeats(rows, names, group):
    """Rows that end with a group of `group` columns repeated per class
    become one row per repetition."""
    fixed = len(names) - group
    out = []
    for r in rows:
        for k in range(fixed, len(r) - group + 1, group):
            out.append(r[:fixed] + r[k:k + group])
    return out


def _fit(row, n):
    """A row cut or padded to n fields; extra fields join the last one,
    separated by commas in both file forms."""
    if len(row) > n:
        return row[: n - 1] + [",".join(row[n - 1:])]
    return row + [None] * (n - len(row))


def _shape(sec, ctx, delim):
    """Column names and rows of a section, each row as long as the names."""
    if sec.id == "SETTING-VERSION":
        return ["Version"], [[delim.join(r)] for r in sec.rows], {}
    width = max((len(r) for r in sec.rows), default=len(sec.columns or []))
    if sec.columns is None:
        names = ["Label", "Value"] if width == 2 else ["Field %d" % i for i in range(width)]
        return names, [_fit(r, len(names)) for r in sec.rows], {}
    names, attr_of = _expand(sec, width, ctx)
    rows = sec.rows
    if names[-2:] == ["Class k", "Conditional prob. P(k|x)"] and width > len(names):
        rows = _melt_repeats(rows, names, 2)
    elif len(names) == 1 and width > 1:
        names = names + ["Value"]
    return names, [_fit(r, len(names)) for r in rows], attr_of


def _is_text_column(name, attr_of, ctx):
    if name in attr_of:
        return ctx.is_discrete(attr_of[name]) or name.startswith("Attr. value")
    if name.startswith("Case ID"):
        return ctx.attrs is None or ctx.attrs["id"] is not None
    return name.startswith("Answer class") or name == "Mode value"


_FLOAT = re.compile(r"[+-]?(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][+-]?[0-9]+)?"
                    r"|[+-]?(?:nan|inf|infinity)", re.IGNORECASE)


def _numeric(values):
    """The fields as numbers when every present one is a number (ASCII
    digits only), else None; whole numbers that fit 64 bits, without a
    missing field, become integers."""
    present = [v for v in values if v is not None and v not in _MISSING]
    if len(present) == len(values) and all(_INTEGER.fullmatch(v) for v in present):
        return np.array([int(v) for v in present], dtype="int64")
    if not all(_FLOAT.fullmatch(v) for v in present):
        return None
    return np.array([np.nan if v is None or v in _MISSING else float(v) for v in values],
                    dtype="float64")


def _decode(values):
    return [urllib.parse.unquote(v) if isinstance(v, str) and "%" in v else v for v in values]


def _unique(names):
    """Repeated names get ".1", ".2" ... as pandas.read_csv gives them,
    skipping names already taken."""
    taken = set()
    out = []
    for n in names:
        name, k = n, 0
        while name in taken:
            k += 1
            name = "%s.%d" % (n, k)
        taken.add(name)
        out.append(name)
    return out


def _column(name, values, attr_of, ctx):
    if _is_text_column(name, attr_of, ctx):
        values = [np.nan if v is None or v == "?" else v for v in values]
        if ctx.decode:
            values = _decode(values)
        if name.startswith("Case ID") and values and np.nan not in values:
            nums = _numeric(values)
            if nums is not None:
                return nums
        return pd.Series(values, dtype=object)
    nums = _numeric(values)
    if nums is not None:
        return nums
    return pd.Series([np.nan if v is None or v in _MISSING else v for v in values], dtype=object)


def _frame(sec, ctx, delim):
    names, rows, attr_of = _shape(sec, ctx, delim)
    names = _unique(names)
    columns = list(zip(*rows)) if rows else [()] * len(names)
    data = {name: _column(name, list(values), attr_of, ctx)
            for name, values in zip(names, columns)}
    df = pd.DataFrame(data, columns=pd.Index(names, dtype=object))
    df.attrs["id"] = sec.id
    df.attrs["description"] = list(sec.descriptions)
    return df


def _columns_beside(prefix):
    """<prefix>_columns.csv, or, for a run with -s SUFFIX, the columns
    file of the base that the suffix was added to."""
    while True:
        found = _find(prefix, "_columns")
        if found is not None or "_" not in os.path.basename(prefix):
            return found
        prefix = prefix[: prefix.rindex("_")]


def read_result(path, columns=None, decode=None):
    """Every section of the result file `path` as a DataFrame, in a dict
    keyed by section identifier ("SCORE", "CLUSTER-CASE-BY-CASE", ...); a
    section that occurs again is keyed "ID (2)", "ID (3)" ... Each frame's
    attrs hold "id" and "description" (the "#### -- " lines).

    columns: path of <base>_columns.csv; by default the one beside `path`.
    decode: undo vesk-prep's percent-encoding; by default when a columns
    file is used. Raises ResultFormatError (a ValueError) naming the file
    and line of anything malformed."""
    prefix = _prefix(path)
    if columns is None:
        columns = _columns_beside(prefix)
    names = None
    if columns is not None:
        cdf = read_columns(columns)
        names = dict(zip(cdf["index"], cdf["name"]))
    if decode is None:
        decode = names is not None
    sections = read_sections(path)
    attrs = model_attributes(sections)
    if attrs is None:
        log = _find(prefix, "_log")
        if log is not None and os.path.abspath(log) != os.path.abspath(path):
            attrs = model_attributes(read_sections(log))
    ctx = _Context(attrs, names, decode)
    out = {}
    delim = _delimiter(path)
    for sec in sections:
        key, n = sec.id, 1
        while key in out:
            n += 1
            key = "%s (%d)" % (sec.id, n)
        try:
            out[key] = _frame(sec, ctx, delim)
        except (ValueError, TypeError, KeyError, IndexError, AttributeError,
                OverflowError) as e:
            raise ResultFormatError(path, sec.line, "section %s cannot be read: %s"
                                    % (sec.id, e)) from None
    return out


def main(argv):
    """The command line of tools/vesk_result.py."""
    prog = "vesk_result.py"
    if len(argv) not in (2, 3) or argv[1] in ("-h", "--help"):
        sys.stdout.write("usage: %s RESULT_FILE [SECTION]\n"
                         "Lists the sections, or writes one as CSV with a header row.\n" % prog)
        return 0 if len(argv) > 1 else 1
    try:
        res = read_result(argv[1])
        if len(argv) == 2:
            for key, df in res.items():
                sys.stdout.write("%s\t%d rows\t%d columns\n" % (key, len(df), len(df.columns)))
        elif argv[2] not in res:
            sys.stderr.write("%s: no section %s in %s\n" % (prog, argv[2], argv[1]))
            return 1
        else:
            res[argv[2]].to_csv(sys.stdout, index=False)
        sys.stdout.flush()
    except BrokenPipeError:
        # The reader of our output has gone (| head): not an error of ours.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    except (OSError, ValueError) as e:
        sys.stderr.write("%s: %s\n" % (prog, e))
        return 1
    return 0
