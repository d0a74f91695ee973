// Loops split over threads. Built with OpenMP, a loop uses every available
// core unless OMP_NUM_THREADS sets fewer; built without it, or with
// OMP_NUM_THREADS=1, it runs on the calling thread. Callers split their work
// so that every item is computed by one thread with the same operations in
// the same order whatever the split: results never depend on the number of
// threads. Bodies must not touch the vector and matrix pools, print, or stop
// the run; they report failures through FirstFault instead.
#ifndef VESK_BASE_PARALLEL_H
#define VESK_BASE_PARALLEL_H

#include <climits>

#ifdef _OPENMP
#include <omp.h>
#endif

// Below this many elementary steps a loop is not worth waking the threads.
enum { PARALLEL_MIN_WORK = 100000 };

inline int max_threads() {
#ifdef _OPENMP
  return omp_get_max_threads();
#else
  return 1;
#endif
}

// The index of the calling thread within a parallel loop (0 outside one).
inline int thread_index() {
#ifdef _OPENMP
  return omp_get_thread_num();
#else
  return 0;
#endif
}

// Calls body(begin, end) for consecutive pieces covering 0 .. n-1, handed
// out to the threads as they become free (so a thread that the system
// delays holds up only its own piece); `work` estimates the total number of
// steps, and small loops run on the calling thread.
template <typename Body>
void parallel_ranges(int n, double work, Body body) {
  if (n <= 0) return;
#ifdef _OPENMP
  int threads = omp_get_max_threads();
  if (n > 1 && work >= PARALLEL_MIN_WORK && threads > 1) {
    int pieces = n < 16 * threads ? n : 16 * threads;
#pragma omp parallel for schedule(dynamic, 1)
    for (int p = 0; p < pieces; p++) {
      long long begin = static_cast<long long>(n) * p / pieces;
      long long end = static_cast<long long>(n) * (p + 1) / pieces;
      body(static_cast<int>(begin), static_cast<int>(end));
    }
    return;
  }
#else
  (void)work;
#endif
  body(0, n);
}

// The failure that a sequential loop would have met first: the smallest key
// (the position of the item in the sequential order) wins.
struct FirstFault {
  long long key = LLONG_MAX;
  int code = 0;

  void note(long long at, int what) {
#ifdef _OPENMP
#pragma omp critical(vesk_first_fault)
#endif
    {
      if (at < key) {
        key = at;
        code = what;
      }
    }
  }
  bool any() const { return code != 0; }
};

#endif
