"""Every figure renders from a real fit; the sizes plot stays readable at
K = 300 and answers keep their order of first appearance."""

import unittest
import warnings

import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402
import pandas as pd  # noqa: E402

from pkg_env import iris  # noqa: E402
import vesk  # noqa: E402
from vesk import plots  # noqa: E402


class Figures(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        df = iris()
        df["species"] = df["species"].map({"setosa": "s", "versicolor": "v", "virginica": "a"})
        cls.m = vesk.Mixture(n_classes=range(2, 5), restarts=2, answer="species",
                             progress=False).fit(df)

    def tearDown(self):
        plt.close("all")

    def test_each_method_returns_a_drawn_figure(self):
        for name in ("scores", "clusters", "sizes", "answers", "trace", "uncertainty"):
            with warnings.catch_warnings():
                warnings.simplefilter("ignore")
                fig = getattr(self.m, "plot_" + name)()
            self.assertIsInstance(fig, matplotlib.figure.Figure, name)
            fig.canvas.draw()
        fig = self.m.plot_clusters()
        self.assertEqual(len(fig.axes), 16)  # 4 continuous columns
        ellipses = [p for p in fig.axes[1].patches if type(p).__name__ == "Ellipse"]
        self.assertEqual(len(ellipses), 2 * self.m.n_classes_)

    def test_scores_have_one_axis_per_score(self):
        fig = self.m.plot_scores()
        self.assertEqual(len(fig.axes), 2)  # Cheeseman-Stutz (used) above BIC
        self.assertIn("Cheeseman", fig.axes[0].get_ylabel())

    def test_answers_in_order_of_first_appearance(self):
        fig = self.m.plot_answers()
        labels = [t.get_text() for t in fig.axes[0].get_xticklabels()]
        self.assertEqual(labels, ["s", "v", "a"])

    def test_sizes_at_k_300(self):
        sizes = pd.Series(np.r_[np.arange(200, 0, -1), np.zeros(100, int)][::-1])
        fig = plots.sizes_figure(sizes)
        ax = fig.axes[0]
        self.assertEqual(len(ax.texts), 0)
        self.assertIn("300", ax.get_xlabel())
        heights = [p.get_height() for p in ax.patches]
        self.assertEqual(heights, sorted(heights, reverse=True))


if __name__ == "__main__":
    unittest.main()
