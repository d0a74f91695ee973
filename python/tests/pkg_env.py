"""Shared set-up of the package tests: the package from this source tree,
the example data, quiet fits."""

import os
import shutil
import subprocess
import sys
import tempfile
import warnings

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.dirname(HERE))

import pandas as pd  # noqa: E402

IRIS_RAW = os.path.join(SOURCE_DIR, "examples", "iris_raw.csv")
IRIS = os.path.join(SOURCE_DIR, "data", "iris_freq.csv")


def iris():
    return pd.read_csv(IRIS, header=None, names=["sl", "sw", "pl", "pw", "species"])


def fit_quietly(model, X):
    """Fits and returns the warnings raised, as texts."""
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        model.fit(X)
    return [str(w.message) for w in caught]


class Scratch:
    """A temporary folder that the programs and tools run in."""

    def __init__(self):
        self.path = tempfile.mkdtemp(prefix="vesk_py_")

    def file(self, name):
        return os.path.join(self.path, name)

    def copy(self, src, name=None):
        shutil.copy(src, self.file(name or os.path.basename(src)))

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)

    def run(self, args, check=True):
        r = subprocess.run(list(args), cwd=self.path, capture_output=True, text=True)
        if check and r.returncode != 0:
            raise AssertionError("%s failed (%d):\n%s" % (" ".join(args), r.returncode, r.stderr))
        return r
