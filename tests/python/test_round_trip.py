"""From a raw CSV to the cluster of every input row: vesk-prep, vesk with the
command vesk-prep printed, the result reader, and a join back by row."""

import os
import unittest

import pandas as pd

from vesk_env import EXAMPLES_DIR, VESK, VESK_PREP, Scratch, prepared_command
from vesk_result import read_result


class RoundTrip(unittest.TestCase):
    def setUp(self):
        self.dir = Scratch()

    def tearDown(self):
        self.dir.remove()

    def fit(self, raw_name, base, *prep_args):
        prep = self.dir.run(VESK_PREP, [raw_name, base] + list(prep_args))
        self.dir.run(VESK, prepared_command(prep.stdout, "-r", "11", "-n", "3"))
        return read_result(self.dir.file(base + "_cluster.csv"))["CLUSTER-CASE-BY-CASE"]

    def test_rows_with_an_id_join_back_by_id(self):
        self.dir.copy(os.path.join(EXAMPLES_DIR, "iris_raw.csv"), "raw.csv")
        clusters = self.fit("raw.csv", "iris", "-k", "3", "--role", "species=answer")
        raw = pd.read_csv(self.dir.file("raw.csv"))
        joined = raw.join(clusters.set_index("Case ID"), on="plant", rsuffix=" (vesk)")
        self.assertEqual(len(joined), 150)
        self.assertFalse(joined["Cluster k"].isna().any())
        self.assertEqual(set(joined["Cluster k"]), {0, 1, 2})
        # The columns carry the input's names and values, blanks and all.
        for name in ["sepal length (cm)", "sepal width (cm)", "petal length (cm)",
                     "petal width (cm)"]:
            pd.testing.assert_series_equal(joined[name + " (vesk)"], joined[name],
                                           check_names=False)
        self.assertEqual(joined["Answer class"].tolist(), raw["species"].tolist())
        # Three clusters of iris: most of each species shares one cluster.
        table = pd.crosstab(joined["Cluster k"], joined["species"])
        self.assertGreaterEqual(table.max(axis=0).sum(), 100)

    def test_discrete_rows_without_id_join_back_by_row_number(self):
        # Identical rows, values with blanks and commas, empty cells.
        self.dir.write("raw.csv",
                       "city,size,colour\n"
                       "\"New York\",S,red\n"
                       "\"New York\",S,red\n"
                       "Oslo,L,\n"
                       "\"Rome, IT\",M,blue\n"
                       "Oslo,L,green\n"
                       "\"New York\",S,red\n"
                       "Oslo,,green\n"
                       "\"Rome, IT\",M,blue\n")
        clusters = self.fit("raw.csv", "towns", "-k", "2")
        raw = pd.read_csv(self.dir.file("raw.csv"))
        self.assertEqual(clusters["Case ID"].tolist(), list(range(len(raw))))
        joined = raw.join(clusters.set_index("Case ID"), rsuffix=" (vesk)")
        for name in ["city", "size", "colour"]:
            pd.testing.assert_series_equal(joined[name + " (vesk)"], joined[name],
                                           check_names=False)
        # Identical rows land in the same cluster.
        self.assertEqual(len(set(joined.loc[[0, 1, 5], "Cluster k"])), 1)


if __name__ == "__main__":
    unittest.main()
