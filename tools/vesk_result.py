#!/usr/bin/env python3
"""Read vesk result files into pandas (the reader of the vesk package).

    python3 tools/vesk_result.py iris_raw_cluster.csv CLUSTER-CASE-BY-CASE > clusters.csv
    python3 tools/vesk_result.py iris_raw_log.csv            # lists the sections

From Python, `from vesk import read_result` (see the package's documentation);
this file finds the package beside itself in the source tree (../python) or in
the install tree (../python under share/vesk).
"""

import os
import sys

_HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(_HERE), "python"))

try:
    from vesk.result import *  # noqa: F401,F403,E402
    from vesk.result import main  # noqa: E402
except ImportError as e:  # the python3 first on PATH may lack pandas
    sys.exit("%s needs pandas and matplotlib (%s): on Debian apt-get install python3-pandas "
             "python3-matplotlib and run it with /usr/bin/python3"
             % (os.path.basename(sys.argv[0]), e))

if __name__ == "__main__":
    sys.exit(main(sys.argv))
