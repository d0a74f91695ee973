"""The result reader against files written by real runs: every section of
the log, cluster, membership and parameter files parses, in tab and comma
form, with the row and column counts that the data and options imply."""

import os
import re
import subprocess
import sys
import unittest

import numpy as np
import pandas as pd

from pkg_env import SOURCE_DIR, Scratch
import vesk
from vesk import read_result

VESK = vesk.find_programs()[0]
DATA_DIR = os.path.join(SOURCE_DIR, "data")

IRIS_ARGS = ["-f", "iris", "-k", "2:3:1", "-x", "5", "-u", "0-3", "-n", "2", "-r", "3", "-A",
             "-D", "--show-attr-memp", "--show-attr-cluster"]
TIMING = ("CPUTIME", "LAPTIME")
NAMED_FILES = ("SETTING-FILE", "SETTING-INOUT")


def raw_sections(path):
    """Independent count of each section's data lines and widest row, in
    file order: a list of [id, lines, fields]."""
    delim, out, header = "," if path.endswith(".csv") else "\t", [], False
    with open(path) as f:
        for line in f.read().splitlines():
            if line.startswith("#### ID:"):
                out.append([line[8:], 0, 0])
                header = True
            elif line == "####":
                header = False
            elif not header and line:
                out[-1][1] += 1
                out[-1][2] = max(out[-1][2], len(line.split(delim)))
    return out


def chosen_k(log):
    line = [d for d in log["SCORE"].attrs["description"] if d.startswith("Optimal")][0]
    return int(line.rsplit("=", 1)[1])


class EverySectionParses:
    """Checks shared by all runs: each section of each file becomes a frame
    with one row per data line (one per class for COND), unique names and
    no multi-column header left."""

    def check_file(self, path, k=None):
        res = read_result(path)
        raw = raw_sections(path)
        self.assertEqual(len(res), len(raw), path)
        for (key, df), (ident, lines, fields) in zip(res.items(), raw):
            self.assertEqual(df.attrs["id"], ident)
            rows = lines * k if ident == "COND" else lines
            self.assertEqual(len(df), rows, "%s %s" % (path, key))
            self.assertEqual(len(set(df.columns)), len(df.columns), key)
            self.assertFalse({"Attribute values x", "Attributes values x"} & set(df.columns), key)
            if ident not in ("COND", "SETTING-VERSION") and lines:
                self.assertGreaterEqual(len(df.columns), min(fields, len(df.columns)), key)
        return res


class IrisReader(unittest.TestCase, EverySectionParses):
    @classmethod
    def setUpClass(cls):
        cls.dir = Scratch()
        cls.dir.copy(os.path.join(DATA_DIR, "iris_freq.csv"))
        cls.dir.run([VESK] + IRIS_ARGS)
        cls.dir.run([VESK] + IRIS_ARGS + ["-j", "txt"])
        cls.csv = {e: read_result(cls.dir.file("iris_%s.csv" % e))
                   for e in ("log", "cluster", "memp", "param")}
        cls.k = chosen_k(cls.csv["log"])

    @classmethod
    def tearDownClass(cls):
        cls.dir.remove()

    def test_every_section_of_every_file(self):
        for ending in ("log", "cluster", "memp", "param"):
            for ext in ("csv", "txt"):
                self.check_file(self.dir.file("iris_%s.%s" % (ending, ext)), self.k)

    def test_tab_and_comma_files_read_the_same(self):
        for ending in ("log", "cluster", "memp", "param"):
            txt = read_result(self.dir.file("iris_%s.txt" % ending))
            for key, df in self.csv[ending].items():
                if key in TIMING or key in NAMED_FILES:
                    continue
                pd.testing.assert_frame_equal(df, txt[key], obj="%s %s" % (ending, key))

class CountsAnswersAndVerboseSections(unittest.TestCase, EverySectionParses):
    """Titanic: a tab-separated file with object counts, an answer column
    and the verbose sections (COND repeats a column pair per class). Cases
    that differ only in the answer must not be merged: --uncompress."""

    @classmethod
    def setUpClass(cls):
        cls.dir = Scratch()
        cls.dir.copy(os.path.join(DATA_DIR, "titanic_freq.txt"))
        cls.dir.run([VESK, "-f", "titanic", "-k", "2", "-x", "4", "-E", "3", "-D", "--verbose", "--uncompress",
                           "--show-attr-memp", "--show-attr-cluster", "-r", "5", "-m", "5"])
        with open(cls.dir.file("titanic_freq.txt")) as f:
            cls.lines = [line.split("\t") for line in f.read().split("\n") if line]

    @classmethod
    def tearDownClass(cls):
        cls.dir.remove()

    def test_every_section(self):
        for ending in ("log", "cluster", "memp", "param"):
            self.check_file(self.dir.file("titanic_%s.txt" % ending), 2)

    def test_counts_answers_and_repeated_columns(self):
        log = read_result(self.dir.file("titanic_log.txt"))
        total = sum(int(l[4]) for l in self.lines)
        self.assertEqual(log["DATASIZE"]["Total num. of cases"].iloc[0], total)
        cond = log["COND"]
        self.assertEqual(list(cond.columns), ["Case ID", "Attr. x0", "Attr. x1", "Attr. x2",
                                              "Class k", "Conditional prob. P(k|x)"])
        self.assertEqual(cond["Class k"].tolist(), [0, 1] * len(self.lines))
        sums = cond.groupby("Case ID")["Conditional prob. P(k|x)"].sum()
        np.testing.assert_allclose(sums.values, 1.0, atol=1e-9)
        self.assertIn("PARAM-CLASS (2)", log)  # the verbose dumps repeat sections
        cases = read_result(self.dir.file("titanic_cluster.txt"))["CLUSTER-CASE-BY-CASE"]
        self.assertEqual(cases["Answer class"].tolist(), [l[3] for l in self.lines])
        self.assertEqual(cases["Attr. x1"].tolist(), [l[1] for l in self.lines])
        self.assertEqual(cases["Attr. x0"].dtype, object)  # "1st" ... stay texts


class MissingValuesAndHiddenAttributes(unittest.TestCase, EverySectionParses):
    @classmethod
    def setUpClass(cls):
        cls.dir = Scratch()
        cls.dir.copy(os.path.join(DATA_DIR, "airquality_freq.csv"))
        common = ["-f", "airquality", "-k", "2", "-x", "5", "-u", "0-3", "-A", "-r", "2", "-D"]
        cls.dir.run([VESK] + common)
        cls.dir.run([VESK] + common + ["--hide-attr", "-s", "hidden"])
        cls.data = pd.read_csv(os.path.join(DATA_DIR, "airquality_freq.csv"), header=None)

    @classmethod
    def tearDownClass(cls):
        cls.dir.remove()

    def test_missing_values_become_nan(self):
        cases = self.check_file(self.dir.file("airquality_cluster.csv"))["CLUSTER-CASE-BY-CASE"]
        for i in range(4):
            self.assertEqual(cases["Attr. x%d" % i].isna().sum(), self.data[i].isna().sum())
        np.testing.assert_array_equal(cases["Attr. x0"].values, self.data[0].values)

    def test_hidden_attributes_and_suffix(self):
        res = self.check_file(self.dir.file("airquality_hidden_cluster.csv"))
        self.assertEqual(list(res["CLUSTER-CASE-BY-CASE"].columns),
                         ["Case ID", "Cluster k", "Membership prob. P(k|x)"])
        memp = self.check_file(self.dir.file("airquality_hidden_memp.csv"), 2)["MEMBER-CASE"]
        self.assertEqual(memp.shape, (2 * len(self.data), 6))
        self.check_file(self.dir.file("airquality_hidden_log.csv"))


class CommandLine(unittest.TestCase):
    def test_lists_sections_and_writes_one_as_csv(self):
        d = Scratch()
        try:
            d.copy(os.path.join(DATA_DIR, "iris_freq.csv"))
            d.run([VESK] + IRIS_ARGS)
            tool = [sys.executable, os.path.join(SOURCE_DIR, "tools", "vesk_result.py")]
            self.assertIn("SCORE\t2 rows\t3 columns\n", d.run(tool + ["iris_log.csv"]).stdout)
            out = d.run(tool + ["iris_cluster.csv", "CLUSTER-CASE-BY-CASE"]).stdout.splitlines()
            self.assertEqual(out[0], "Case ID,Cluster k,Attr. x0,Attr. x1,Attr. x2,Attr. x3,"
                                     "Attr. x4,Membership prob. P(k|x)")
            self.assertEqual(len(out), 151)
            self.assertTrue(re.match(r"^0,\d,5\.1,3\.5,1\.4,0\.2,setosa,", out[1]), out[1])
        finally:
            d.remove()


if __name__ == "__main__":
    unittest.main()
