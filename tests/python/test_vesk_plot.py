"""Every plot rendered from a real run, in comma and tab form, and the
warning for a chosen K at the edge of the range."""

import os
import struct
import subprocess
import sys
import unittest

from vesk_env import DATA_DIR, EXAMPLES_DIR, TOOLS_DIR, VESK, VESK_PREP, Scratch, prepared_command

PLOT = os.path.join(TOOLS_DIR, "vesk_plot.py")


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
        return subprocess.run([sys.executable, PLOT] + list(args), cwd=self.dir.path,
                              capture_output=True, text=True)

    def check_pngs(self, prefix, kinds, stdout):
        self.assertEqual(stdout.split(), ["%s_%s.png" % (prefix, k) for k in kinds])
        for k in kinds:
            size = png_size(self.dir.file("%s_%s.png" % (prefix, k)))
            self.assertIsNotNone(size, k)
            self.assertGreater(min(size), 100, k)

    def test_every_plot_of_a_run_with_an_answer(self):
        self.dir.copy(os.path.join(EXAMPLES_DIR, "iris_raw.csv"), "raw.csv")
        prep = self.dir.run(VESK_PREP, ["raw.csv", "iris", "-k", "2:4:1", "--role",
                                        "species=answer"])
        self.dir.run(VESK, prepared_command(prep.stdout, "-r", "5", "-n", "2"))
        r = self.plot("iris")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.check_pngs("iris", ["score", "trace", "sizes", "answer"], r.stdout)

    def test_tab_files_without_answer_and_an_edge_warning(self):
        self.dir.copy(os.path.join(DATA_DIR, "iris_freq.csv"))
        # On iris with priors three classes beat two: the largest K tried.
        self.dir.run(VESK, ["-f", "iris", "-k", "2:3:1", "-x", "5", "-u", "0-3", "-A", "-r", "7",
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
        self.dir.write("half_log.csv", "#### ID:SETTING-VERSION\n#### Version\n####\nv\n")
        r = self.plot("half")
        self.assertEqual(r.returncode, 1)
        self.assertIn("has no SCORE section", r.stderr)

if __name__ == "__main__":
    unittest.main()
