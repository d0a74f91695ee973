"""A sweep over class counts: one vesk process per K, as many at once as
there are cores, each writing its files with the suffix k<K>. A K that
fails keeps the others; Ctrl-C stops the running processes and keeps every
K that had finished."""

import os
import re
import signal
import subprocess
import time

try:
    from tqdm.auto import tqdm
except ImportError:  # plain lines instead of bars
    tqdm = None

_RESTART_DONE = re.compile(r"\((?:Converged|Stopped)")
_PROGRESS = re.compile(r"^\s*(?:\[\d+\] #iters [0-9. *]*|<<.*>>)")


def cores():
    try:
        return len(os.sched_getaffinity(0))
    except AttributeError:
        return os.cpu_count() or 1


class KRun:
    """One K: its process, standard error file and outcome."""

    def __init__(self, k, folder, words):
        self.k = k
        self.words = words
        self.stderr_path = os.path.join(folder, "k%d_stderr.txt" % k)
        self.proc = None
        self.start = self.seconds = None
        self.status = "not run"
        self.message = ""
        self.done_restarts = 0

    def launch(self, vesk, folder, threads):
        env = dict(os.environ, OMP_NUM_THREADS=str(threads))
        self.err = open(self.stderr_path, "w")
        self.start = time.monotonic()
        self.proc = subprocess.Popen([vesk] + self.words, cwd=folder, env=env,
                                     stdout=subprocess.DEVNULL, stderr=self.err,
                                     start_new_session=True)

    def progress(self):
        """Restarts finished so far, from the progress messages."""
        with open(self.stderr_path, errors="replace") as f:
            self.done_restarts = len(_RESTART_DONE.findall(f.read()))
        return self.done_restarts

    def finish(self, status=None):
        rc = self.proc.wait()
        self.seconds = time.monotonic() - self.start
        self.err.close()
        self.status = status or ("ok" if rc == 0 else "failed")
        if self.status == "failed":
            self.message = program_message(self.stderr_path)

    def stop(self):
        try:
            os.killpg(self.proc.pid, signal.SIGTERM)
        except ProcessLookupError:
            pass
        self.finish("interrupted")


def program_message(path):
    """The program's own failure message: the last line of its standard
    error without the progress text in front of it."""
    with open(path, errors="replace") as f:
        lines = [ln for ln in f.read().splitlines() if ln.strip()]
    if not lines:
        return ""
    return _PROGRESS.sub("", lines[-1]).strip()


class _Progress:
    def __init__(self, runs, total, show):
        self.bars = {}
        self.show = show
        self.total = total
        self.runs = runs

    def update(self, run):
        if not self.show:
            return
        if tqdm is not None:
            bar = self.bars.get(run.k)
            if bar is None:
                bar = self.bars[run.k] = tqdm(total=self.total, desc="K=%d" % run.k,
                                              unit="restart", leave=True)
            n = min(run.done_restarts, self.total)
            if n != bar.n:
                bar.update(n - bar.n)
            if run.status not in ("not run", "running"):
                bar.set_postfix_str(run.status)
        elif run.status not in ("not run", "running"):
            print("K=%d: %s after %.1f s%s" % (run.k, run.status, run.seconds or 0,
                                               (": " + run.message) if run.message else ""))

    def close(self):
        for bar in self.bars.values():
            bar.close()


def run_sweep(vesk, folder, runs, n_jobs, threads, restarts, show_progress):
    """Runs every KRun, at most n_jobs at once. Returns True when the
    sweep was interrupted (the runs that had not finished are marked)."""
    waiting = list(runs)
    running = []
    progress = _Progress(runs, restarts + (1 if restarts > 1 else 0), show_progress)
    try:
        while waiting or running:
            while waiting and len(running) < n_jobs:
                run = waiting.pop(0)
                run.launch(vesk, folder, threads)
                run.status = "running"
                running.append(run)
            time.sleep(0.05)
            for run in list(running):
                run.progress()
                if run.proc.poll() is not None:
                    run.finish()
                    running.remove(run)
                progress.update(run)
        return False
    except KeyboardInterrupt:
        for run in running:
            run.stop()
        for run in waiting:
            run.status = "interrupted"
        return True
    finally:
        progress.close()
