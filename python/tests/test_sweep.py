"""Sweeps over K that survive failures and Ctrl-C, and finding the
programs."""

import os
import signal
import tempfile
import threading
import unittest
from unittest import mock

from pkg_env import fit_quietly, iris
import vesk


class FailingK(unittest.TestCase):
    def test_ml_sweep_on_iris_keeps_the_k_that_succeed(self):
        # Maximum likelihood with seed 7: a class collapses for K = 4 and K >= 6.
        m = vesk.Mixture(n_classes=range(2, 9), priors=None, seed=7, restarts=10,
                         split_merge=None, answer="species", progress=False)
        caught = fit_quietly(m, iris())
        s = m.scores_.set_index("K")
        self.assertEqual(list(s.index), list(range(2, 9)))
        self.assertEqual(list(s["status"]), ["ok", "ok", "failed", "ok", "failed", "failed",
                                             "failed"])
        failed = s[s["status"] == "failed"]
        self.assertTrue(failed["message"].str.contains("Failed to invert covariances").all())
        self.assertTrue(failed["score"].isna().all())
        ok = s[s["status"] == "ok"]
        self.assertTrue((ok["criterion"] == "BIC").all())
        # BIC = L - P/2 ln N with N = 150
        import math
        for k, r in ok.iterrows():
            self.assertAlmostEqual(r["score"], r["loglik"] - r["n_params"] / 2 * math.log(150), 6)
        self.assertEqual(m.n_classes_, ok["score"].idxmax())
        self.assertEqual(sorted(m.results_), list(ok.index))
        self.assertEqual(sum("failed" in w and "priors='autoclass'" in w for w in caught), 4)

    def test_every_k_failing_raises(self):
        m = vesk.Mixture(n_classes=[6, 7], priors=None, seed=7, split_merge=None, progress=False)
        with self.assertRaisesRegex(vesk.FitFailed, "K=6 failed: .*invert"):
            fit_quietly(m, iris())

    def test_annealing_into_equal_classes_is_flagged(self):
        # The default schedule (0.1:1.2) ends in one class written three
        # times on iris; from 0.5 it does not.
        m = vesk.Mixture(n_classes=3, restarts=1, daem=True, split_merge=None, answer="species",
                         progress=False)
        with self.assertRaisesRegex(vesk.FitFailed, "K=3 equal classes"):
            fit_quietly(m, iris())
        caught = fit_quietly(m.set_params(daem=(0.5, 1.2)), iris())
        self.assertEqual(m.scores_["status"].tolist(), ["ok"])
        self.assertEqual(caught, [])

    def test_results_do_not_depend_on_parallel_runs(self):
        fits = [vesk.Mixture(n_classes=[2, 3], restarts=2, n_jobs=j, progress=False)
                .fit(iris()) for j in (1, 2)]
        self.assertTrue(fits[0].scores_["score"].equals(fits[1].scores_["score"]))


class Interrupt(unittest.TestCase):
    def test_ctrl_c_keeps_the_finished_k(self):
        # K = 2 finishes in a moment; K = 30 with 5000 restarts does not.
        # Ctrl-C comes half a second after K = 2 has finished.
        m = vesk.Mixture(n_classes=[2, 30], restarts=5000, split_merge=None, n_jobs=1,
                         progress=False)
        real_finish = vesk._sweep.KRun.finish

        def finish(run, status=None):
            real_finish(run, status)
            if run.k == 2:
                threading.Timer(0.5, os.kill, (os.getpid(), signal.SIGINT)).start()
        with mock.patch.object(vesk._sweep.KRun, "finish", finish):
            caught = fit_quietly(m, iris())
        s = m.scores_.set_index("K")["status"]
        self.assertEqual((s[2], s[30]), ("ok", "interrupted"))
        self.assertEqual(m.n_classes_, 2)
        self.assertTrue(any("interrupted: K = 30" in w for w in caught))


class Programs(unittest.TestCase):
    def test_vesk_bin_without_programs_says_what_to_do(self):
        with tempfile.TemporaryDirectory() as empty, \
                mock.patch.dict(os.environ, {"VESK_BIN": empty}):
            with self.assertRaisesRegex(vesk.ProgramsNotFound, "set VESK_BIN"):
                vesk.find_programs()

    def test_vesk_bin_is_used_first(self):
        vesk_path, prep, where = vesk.find_programs()
        self.assertEqual(where, "VESK_BIN")
        self.assertTrue(prep.endswith("vesk-prep"))


if __name__ == "__main__":
    unittest.main()
