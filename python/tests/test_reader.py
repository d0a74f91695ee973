"""The result reader on files that used to break it: runs with -s, numeric
IDs, malformed, cut and mutated files; the command line in a
closed pipe."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

try:
    from hypothesis import HealthCheck, given, settings, strategies as st
except ImportError:  # Debian: python3-hypothesis
    given = None

from pkg_env import IRIS, SOURCE_DIR
import vesk
from vesk import ResultFormatError, read_result

VESK, PREP, _ = vesk.find_programs()


def run(folder, *args):
    subprocess.run(list(args), cwd=folder, check=True, capture_output=True)


class Files(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp(prefix="vesk_reader_")
        with open(IRIS) as f, open(os.path.join(cls.dir, "raw.csv"), "w") as out:
            out.write("tag,a,b,c,d,species\n")
            for i, line in enumerate(f):
                out.write("%d,%s" % (1000 + 7 * i, line))
        run(cls.dir, PREP, "raw.csv", "ir", "--role", "species=answer", "--role", "tag=id")
        run(cls.dir, VESK, "-f", "ir", "-x", "6", "-u", "1-4", "-I", "0", "-E", "5", "-k", "2",
            "-r", "3", "-A", "-D", "-s", "run1")
        cls.cluster = os.path.join(cls.dir, "ir_run1_cluster.csv")

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.dir)

    def write(self, name, text):
        path = os.path.join(self.dir, name)
        with open(path, "w") as f:
            f.write(text)
        return path

    def test_suffix_run_finds_names_and_numeric_ids(self):
        cases = read_result(self.cluster)["CLUSTER-CASE-BY-CASE"]
        self.assertEqual(list(cases.columns[:5]), ["Case ID", "Answer class", "Cluster k", "a",
                                                   "b"])
        self.assertEqual(str(cases["Case ID"].dtype), "int64")
        self.assertEqual(cases["Case ID"].iloc[2], 1014)

    def test_malformed_files_name_file_and_line(self):
        with open(self.cluster) as f:
            good = f.read().splitlines(keepends=True)
        body = "".join(good[:4])
        cases = {
            "cut.csv": ("".join(good[:6])[:-1], 6),
            "fullwidth.csv": (body + "\uff11,0,1,2,3,4,0.5\n", 1),
            "huge.csv": (body + "99999999999999999999999,x,1,2,3,4,5,0.5\n", 1),
        }
        for name, (text, line) in cases.items():
            path = self.write(name.replace(".csv", "_cluster.csv"), text)
            try:
                read_result(path)
            except ResultFormatError as e:
                self.assertIn("%s: line %d" % (path, line), str(e))
                self.assertIsInstance(e, ValueError)
            else:  # a full-width digit is text, a huge integer a float: both fine
                self.assertNotEqual(name, "cut.csv")
        log = self.write("bad_log.csv", "#### ID:SETTING-MODEL-BASE\n####\nNum of attributes,\uff16\n")
        with self.assertRaisesRegex(ResultFormatError, r"bad_log.csv: line 1: SETTING-MODEL-BASE"):
            read_result(log)
        cols = self.write("bad_columns.csv", "index,name\n0,a\n")
        with self.assertRaisesRegex(ResultFormatError, "bad_columns.csv: line 1"):
            vesk.read_columns(cols)

    def mutated_file_reads_or_raises_the_one_error(self, edits):
        with open(self.cluster, "rb") as f:
            data = bytearray(f.read())
        for pos, new in edits:
            pos %= len(data)
            data[pos:pos + 1] = new
        path = os.path.join(self.dir, "mut_run1_cluster.csv")
        with open(path, "wb") as f:
            f.write(bytes(data))
        try:
            read_result(path)
        except ResultFormatError:
            pass

    if given is not None:
        test_mutated_files_read_or_raise_the_one_error = settings(
            max_examples=120, deadline=None, derandomize=True,
            suppress_health_check=list(HealthCheck))(given(st.lists(st.tuples(
                st.integers(0, 10 ** 6), st.sampled_from(
                    [b"", b",", b"\n", b"?", b"#### ID:", b"####", b"x", b"\xef\xbc\x91", b"-",
                     b"e9"])), min_size=1, max_size=4))(mutated_file_reads_or_raises_the_one_error))

    def test_closed_pipe_is_quiet(self):
        tool = os.path.join(SOURCE_DIR, "tools", "vesk_result.py")
        r = subprocess.run("%s %s %s CLUSTER-CASE-BY-CASE | head -1" % (sys.executable, tool,
                                                                         self.cluster),
                           shell=True, capture_output=True, text=True)
        self.assertEqual(r.stderr, "")
        self.assertTrue(r.stdout.startswith("Case ID,"))


if __name__ == "__main__":
    unittest.main()
