"""Shared set-up of the package tests: the package from this source tree,
the example data, quiet fits."""

import os
import sys
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
