"""Fitting a mixed table with missing values, scoring new rows, and the
estimator protocol, against real runs of vesk and vesk-prep."""

import unittest

import numpy as np
import pandas as pd

from pkg_env import IRIS_RAW, fit_quietly
import vesk


def mixed_table():
    """Iris as an analyst has it: a text ID, a categorical, a boolean, a
    nullable integer, NaN / None / pd.NA missing values and a shuffled
    non-default index."""
    raw = pd.read_csv(IRIS_RAW)
    df = pd.DataFrame({
        "plant": raw["plant"],
        "sepal": raw["sepal length (cm)"], "petal": raw["petal length (cm)"],
        "width": raw["petal width (cm)"],
        "colour": pd.Categorical(np.where(raw["petal length (cm)"] > 2.5, "blue", "white")),
        "tall": raw["sepal length (cm)"] > 5.8,
        "species": raw["species"].astype(object),
    })
    df.loc[3, "colour"] = None
    df.loc[[5, 9], "species"] = [None, pd.NA]
    df.loc[7, "petal"] = np.nan
    return df.sample(frac=1, random_state=3).set_index(pd.Index(range(1000, 1150), name="row"))


class MixedTable(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.df = mixed_table()
        cls.m = vesk.Mixture(n_classes=range(2, 5), restarts=3, seed=7, answer="species",
                             id="plant", progress=False)
        cls.warnings = fit_quietly(cls.m, cls.df)

    def test_roles_follow_the_dtypes_and_the_arguments(self):
        roles = dict(zip(self.m.columns_["name"], self.m.columns_["role"]))
        self.assertEqual(roles, {"plant": "ignored", "sepal": "continuous",
                                 "petal": "continuous", "width": "continuous",
                                 "colour": "discrete", "tall": "discrete", "species": "answer"})

    def test_labels_memberships_and_predictions_line_up(self):
        m, df = self.m, self.df
        self.assertTrue(m.labels_.index.equals(df.index))
        self.assertEqual(set(m.labels_), set(range(m.n_classes_)))
        new = df.iloc[::-1].drop(columns=["species", "plant"])  # reversed, no answer, no ID
        proba = m.predict_proba(new)
        self.assertEqual(proba.shape, (len(df), m.n_classes_))
        self.assertTrue(proba.index.equals(new.index))
        np.testing.assert_allclose(proba.sum(axis=1), 1, atol=1e-9)
        pd.testing.assert_series_equal(m.predict(df), m.labels_, check_dtype=False)
        np.testing.assert_allclose(m.predict_proba(df).values, m.memberships_.values, atol=1e-9)

    def test_ids_keep_their_values_and_results_name_columns(self):
        cases = self.m.results_[self.m.n_classes_]["cluster"]["CLUSTER-CASE-BY-CASE"]
        self.assertEqual(sorted(cases["Case ID"]), sorted(self.df["plant"]))
        self.assertIn("colour", cases.columns)
        self.assertEqual(cases["Answer class"].isna().sum(), 2)  # "?" read as NaN
        means = self.m.params_["mean"]
        self.assertEqual(set(means["column"]), {"sepal", "petal", "width"})
        cats = self.m.params_["discrete"]
        self.assertEqual(set(cats["value"]), {"blue", "white", "True", "False"})
        np.testing.assert_allclose(cats.groupby(["column", "class"])["probability"].sum(), 1,
                                   atol=1e-9)
        np.testing.assert_allclose(self.m.params_["class"]["probability"].sum(), 1, atol=1e-9)

    def test_evaluation_leaves_out_missing_answers(self):
        ev, table = self.m.evaluation_, self.m.contingency_
        self.assertEqual((ev["cases"], ev["missing answers"]), (148, 2))
        self.assertEqual(table.values.sum(), 148)
        present = self.df["species"].notna()
        first_seen = list(pd.unique(self.df.loc[present, "species"]))
        self.assertEqual(list(table.columns), first_seen)
        by_hand = pd.crosstab(self.m.labels_[present], self.df.loc[present, "species"])
        self.assertAlmostEqual(ev["purity"], by_hand.max(axis=1).sum() / 148)

    def test_unseen_values_are_named_or_made_missing(self):
        new = self.df.head(4).copy()
        new["colour"] = new["colour"].cat.add_categories("green")
        new.iloc[1, new.columns.get_loc("colour")] = "green"
        with self.assertRaisesRegex(ValueError, r"column 'colour'.*green.*rows %d"
                                    % new.index[1]):
            self.m.predict(new)
        self.m.set_params(unseen="missing")
        try:
            self.assertEqual(len(self.m.predict(new)), 4)
        finally:
            self.m.set_params(unseen="error")

    def test_count_column(self):
        # Titanic as a frequency table: the count weighs each row.
        rows = [("1st", "Male", "No", 118), ("1st", "Female", "Yes", 141), ("3rd", "Male", "No", 387),
                ("3rd", "Female", "Yes", 76), ("Crew", "Male", "No", 670), ("Crew", "Male", "Yes", 192)]
        df = pd.DataFrame(rows, columns=["Class", "Sex", "Survived", "Freq"])
        m = vesk.Mixture(n_classes=2, restarts=2, roles={"Freq": "count"}, progress=False).fit(df)
        self.assertEqual(m.columns_["role"].tolist()[-1], "count")
        log = m.results_[2]["log"]
        self.assertEqual(log["DATASIZE"].iloc[0, 0], sum(r[3] for r in rows))
        self.assertEqual(len(m.labels_), len(rows))

    def test_ndarray_input(self):
        X = self.df[["sepal", "petal"]].dropna().to_numpy()
        m = vesk.Mixture(n_classes=2, restarts=2, progress=False).fit(X)
        self.assertEqual(list(m.columns_["name"]), ["x0", "x1"])
        self.assertEqual(len(m.labels_), len(X))


class EstimatorProtocol(unittest.TestCase):
    def test_clone_round_trip(self):
        m = vesk.Mixture(n_classes=[2, 3], restarts=4, roles={"a": "count"}, options=["-m", "50"])
        params = m.get_params()
        twin = type(m)(**params)  # what sklearn.base.clone does
        for name, value in params.items():
            self.assertIs(twin.get_params()[name], value, name)
        self.assertIs(m.set_params(seed=9), m)
        self.assertEqual(m.seed, 9)
        with self.assertRaises(ValueError):
            m.set_params(colour=1)

    def test_unfitted_and_wrong_input(self):
        with self.assertRaisesRegex(RuntimeError, "not fitted"):
            vesk.Mixture().predict(pd.DataFrame({"a": [1.0]}))
        with self.assertRaisesRegex(ValueError, "unique"):
            vesk.Mixture().fit(pd.DataFrame([[1, 2]], columns=["a", "a"]))
        with self.assertRaisesRegex(ValueError, "no column named 'nope'"):
            vesk.Mixture(answer="nope").fit(pd.DataFrame({"a": [1.0, 2.0]}))


if __name__ == "__main__":
    unittest.main()
