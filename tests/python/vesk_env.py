"""Shared set-up of the tool tests: where the built programs, the tools and
the example data are, a scratch folder, and runs of the programs."""

import os
import shutil
import subprocess
import sys
import tempfile

SOURCE_DIR = os.environ.get(
    "VESK_SOURCE_DIR", os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..")))
BUILD_DIR = os.environ.get("VESK_BUILD_DIR", os.path.join(SOURCE_DIR, "build"))
VESK = os.environ.get("VESK_BIN", os.path.join(BUILD_DIR, "vesk"))
VESK_PREP = os.environ.get("VESK_PREP_BIN", os.path.join(BUILD_DIR, "vesk-prep"))
TOOLS_DIR = os.path.join(SOURCE_DIR, "tools")
DATA_DIR = os.path.join(SOURCE_DIR, "data")
EXAMPLES_DIR = os.path.join(SOURCE_DIR, "examples")

sys.path.insert(0, TOOLS_DIR)


class Scratch:
    """A temporary folder that the programs run in."""

    def __init__(self):
        self.path = tempfile.mkdtemp(prefix="vesk_py_")

    def file(self, name):
        return os.path.join(self.path, name)

    def copy(self, src, name=None):
        shutil.copy(src, self.file(name or os.path.basename(src)))

    def write(self, name, text):
        with open(self.file(name), "w", newline="") as f:
            f.write(text)

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)

    def run(self, program, args, check=True):
        r = subprocess.run([program] + list(args), cwd=self.path, capture_output=True, text=True)
        if check and r.returncode != 0:
            raise AssertionError("%s %s failed (%d):\n%s" % (
                os.path.basename(program), " ".join(args), r.returncode, r.stderr))
        return r


def prepared_command(prep_stdout, *more):
    """The vesk arguments of the command line vesk-prep printed last."""
    words = prep_stdout.strip().splitlines()[-1].split()
    assert words[0] == "vesk", words
    return words[1:] + list(more)


def raw_sections(path):
    """Independent count of each section's data lines and the widest row,
    in file order: a list of (id, lines, fields)."""
    delim = "," if path.endswith(".csv") else "\t"
    out = []
    header = False
    with open(path) as f:
        for line in f:
            line = line.rstrip("\n")
            if line.startswith("#### ID:"):
                out.append([line[8:], 0, 0])
                header = True
            elif line == "####":
                header = False
            elif not header and line:
                out[-1][1] += 1
                out[-1][2] = max(out[-1][2], len(line.split(delim)))
    return out
