"""Where the vesk and vesk-prep programs are, and running them.

Looked for, in this order: the folder that VESK_BIN names (or VESK_BIN
itself when it names the vesk program, with vesk-prep beside it);
the bin folder of the install tree this package was installed into
(cmake --install puts the package in PREFIX/share/vesk/python); the
build folders of the source tree this package sits in (build*/); the
PATH."""

import glob
import os
import shutil

NAMES = ("vesk", "vesk-prep")


class ProgramsNotFound(RuntimeError):
    pass


def _pair(folder):
    paths = [os.path.join(folder, n) for n in NAMES]
    if all(os.path.isfile(p) and os.access(p, os.X_OK) for p in paths):
        return paths
    return None


def _candidates():
    env = os.environ.get("VESK_BIN")
    if env:
        folder = env if os.path.isdir(env) else os.path.dirname(env)
        yield "VESK_BIN", folder
        return
    here = os.path.dirname(os.path.abspath(__file__))
    prefix = os.path.normpath(os.path.join(here, "..", "..", "..", ".."))
    yield "install tree", os.path.join(prefix, "bin")
    source = os.path.dirname(os.path.dirname(here))
    for build in sorted(glob.glob(os.path.join(source, "build*"))):
        yield "build tree", build
    for folder in os.environ.get("PATH", "").split(os.pathsep):
        if folder:
            yield "PATH", folder


def find_programs():
    """(vesk, vesk-prep, where): the two programs' paths and which of the
    places above they were found in. Raises ProgramsNotFound, saying
    where it looked and what to do."""
    looked = []
    for where, folder in _candidates():
        pair = _pair(folder)
        if pair:
            return pair[0], pair[1], where
        if where != "PATH":
            looked.append(folder)
    vesk_on_path = shutil.which("vesk")
    raise ProgramsNotFound(
        "the vesk and vesk-prep programs were not found (looked in %s%s); build them "
        "(cmake -S . -B build && cmake --build build), install them (cmake --install build "
        "--prefix DIR) or set VESK_BIN to the folder that holds them"
        % (", ".join(looked) or "VESK_BIN", " and on PATH" if not os.environ.get("VESK_BIN")
           else "") + ("; %s has no vesk-prep beside it" % vesk_on_path if vesk_on_path else ""))
