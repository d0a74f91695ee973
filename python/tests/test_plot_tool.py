"""Every plot rendered from a real run, in comma and tab form, and the
warning for a chosen K at the edge of the range."""

import os
import struct
import sys
import unittest

from pkg_env import IRIS, IRIS_RAW, SOURCE_DIR, Scratch
import vesk

VESK, VESK_PREP, _ = vesk.find_programs()
PLOT = [sys.executable, os.path.join(SOURCE_DIR, "tools", "vesk_plot.py")]


def png_size(path):
    """Width and height from the PNG header, or None for another file."""
    with open(path, "rb") as f:
        head = f.read(24)
    if head[:8] != b"\x89PNG\r\n\x1a\n" or head[12:16] != b"IHDR":
        return None
    return struct.unpack(">II", head[16:24])


class Plots(unittest.TestCase):
    def setUp(self):
        self.dir = Scratch()

    def tearDown(self):
        self.dir.remove()

    def plot(self, *args):
        return self.dir.run(PLOT + list(args), check=False)

    def check_pngs(self, prefix, kinds, stdout):
        self.assertEqual(stdout.split(), ["%s_%s.png" % (prefix, k) for k in kinds])
        for k in kinds:
            size = png_size(self.dir.file("%s_%s.png" % (prefix, k)))
            self.assertIsNotNone(size, k)
            self.assertGreater(min(size), 100, k)

    def test_every_plot_of_a_run_with_an_answer(self):
        self.dir.copy(IRIS_RAW, "raw.csv")
        prep = self.dir.run([VESK_PREP, "raw.csv", "iris", "-k", "2:4:1", "--role",
                             "species=answer"])
        command = prep.stdout.strip().splitlines()[-1].split()  # the vesk command printed last
        self.dir.run([VESK] + command[1:] + ["-r", "5", "-n", "2"])
        r = self.plot("iris")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.check_pngs("iris", ["score", "trace", "sizes", "answer"], r.stdout)

    def test_tab_files_without_answer_and_an_edge_warning(self):
        self.dir.copy(IRIS)
        # On iris with priors three classes beat two: the largest K tried.
        self.dir.run([VESK, "-f", "iris", "-k", "2:3:1", "-x", "5", "-u", "0-3", "-A", "-r", "7",
                            "-n", "3", "-j", "txt"])
        r = self.plot("iris", "--out", "plots")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.check_pngs("plots", ["score", "trace", "sizes"], r.stdout)
        self.assertEqual(r.stderr, "vesk_plot.py: warning: the chosen K = 3 is the largest "
                                   "tried; try a range with larger K\n")

    def test_missing_or_unfinished_runs_fail_with_a_message(self):
        r = self.plot("nothing")
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stderr, "vesk_plot.py: neither nothing_log.csv nor nothing_log.txt "
                                   "exists\n")
        with open(self.dir.file("half_log.csv"), "w") as f:
            f.write("#### ID:SETTING-VERSION\n#### Version\n####\nv\n")
        r = self.plot("half")
        self.assertEqual(r.returncode, 1)
        self.assertIn("has no SCORE section", r.stderr)

if __name__ == "__main__":
    unittest.main()
