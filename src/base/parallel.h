// Loops split over threads. A loop uses as many threads as the machine has
// cores available to the process, or the number given by the environment
// variable OMP_NUM_THREADS (the usual convention; 1 runs everything on the
// calling thread). Builds configured without threads always run serially.
// Callers split their work so that every item is computed by one thread with
// the same operations in the same order whatever the split: results never
// depend on the number of threads. Bodies must not touch the vector and
// matrix pools, print, or stop the run; they report failures through
// FirstFault instead.
#ifndef VESK_BASE_PARALLEL_H
#define VESK_BASE_PARALLEL_H

#include <climits>

// Below this many elementary steps a loop is not worth waking the threads.
enum { PARALLEL_MIN_WORK = 100000 };

// Threads a loop may use (at least 1).
int max_threads();
// The thread count an OMP_NUM_THREADS value asks for (its leading positive
// number, at most 256), or `cores` when the value is absent or unusable.
int thread_count_setting(const char *env, int cores);
// The index of the calling thread within a loop: 0 .. max_threads()-1; 0
// outside loops.
int thread_index();
// Runs fn(ctx, p) for p = 0 .. pieces-1 on all threads; returns when all are
// done. Called from inside a piece it runs the pieces on the calling thread.
void run_pieces(int pieces, void (*fn)(void *ctx, int piece), void *ctx);

// Calls body(begin, end) for consecutive pieces covering 0 .. n-1, handed
// out to the threads as they become free (a thread that the system delays
// holds up only its own piece); `work` estimates the total number of steps,
// and small loops run on the calling thread.
template <typename Body>
void parallel_ranges(int n, double work, Body body) {
  if (n <= 0) return;
  int threads = max_threads();
  if (n == 1 || work < PARALLEL_MIN_WORK || threads < 2) {
    body(0, n);
    return;
  }
  struct Loop {
    Body *body;
    long long n, pieces;
  } loop = {&body, n, n < 16 * threads ? n : 16 * threads};
  run_pieces(static_cast<int>(loop.pieces), [](void *ctx, int p) {
    Loop *l = static_cast<Loop *>(ctx);
    (*l->body)(static_cast<int>(l->n * p / l->pieces), static_cast<int>(l->n * (p + 1) / l->pieces));
  }, &loop);
}

// The failure that a sequential loop would have met first: the smallest key
// (the position of the item in the sequential order) wins.
struct FirstFault {
  long long key = LLONG_MAX;
  int code = 0;

  void note(long long at, int what);
  bool any() const { return code != 0; }
};

#endif
