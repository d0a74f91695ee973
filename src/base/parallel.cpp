// A small pool of worker threads for parallel_ranges. Workers sleep between
// loops (they never spin), so a busy machine loses no time to idle threads;
// pieces are taken from a shared counter, the calling thread taking its
// share too. The pool is made at the first loop run on several threads and
// lives until the process ends; its threads are detached and its state is
// never destroyed, so that an exit from anywhere leaves nothing to tear
// down. A process forked from one with a pool (a test's death check) makes
// its own.
#include "base/parallel.h"

#include <cstdlib>
#include <mutex>

#ifdef VESK_THREADS
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <condition_variable>
#include <thread>
#endif

namespace {

std::mutex fault_mutex;
const int MAX_THREADS = 256;

#ifdef VESK_THREADS

struct Pool {
  std::mutex mu;
  std::condition_variable start, done;
  long generation = 0;  // one per loop
  void (*fn)(void *, int) = nullptr;
  void *ctx = nullptr;
  int pieces = 0;
  std::atomic<int> next{0};
  int busy = 0;          // workers not yet through the current loop
  bool running = false;  // a loop is in progress
  int size = 1;          // threads, the caller included
};

Pool *pool = nullptr;
thread_local int my_index = 0;

int available_cores() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) >= 1) return CPU_COUNT(&set);
  int h = static_cast<int>(std::thread::hardware_concurrency());
  return h < 1 ? 1 : h;
}

void take_pieces(Pool *p) {
  for (int i = p->next.fetch_add(1); i < p->pieces; i = p->next.fetch_add(1)) p->fn(p->ctx, i);
}

void worker(Pool *p, int index) {
  my_index = index;
  long seen = 0;
  std::unique_lock<std::mutex> lock(p->mu);
  for (;;) {
    p->start.wait(lock, [&] { return p->generation != seen; });
    seen = p->generation;
    lock.unlock();
    take_pieces(p);
    lock.lock();
    if (--p->busy == 0) p->done.notify_one();
  }
}

// A child made by fork() has none of the workers: it starts a pool of its own.
void forget_pool_in_child() { pool = nullptr; }

// The number of threads, the caller included; read once.
int pool_size() {
  static int size = thread_count_setting(getenv("OMP_NUM_THREADS"), available_cores());
  return size;
}

// The workers start at the first loop that runs on more than one thread, so
// a run whose loops are all small never starts a thread.
Pool *get_pool() {
  if (pool != nullptr) return pool;
  static bool registered = pthread_atfork(nullptr, nullptr, forget_pool_in_child) == 0;
  (void)registered;
  pool = new Pool;
  pool->size = pool_size();
  for (int i = 1; i < pool->size; i++) std::thread(worker, pool, i).detach();
  return pool;
}

#endif

}  // namespace

#ifdef VESK_THREADS

int max_threads() { return pool_size(); }

int thread_index() { return my_index; }

void run_pieces(int pieces, void (*fn)(void *ctx, int piece), void *ctx) {
  if (pool_size() < 2 || my_index != 0 || (pool != nullptr && pool->running)) {
    for (int i = 0; i < pieces; i++) fn(ctx, i);
    return;
  }
  Pool *p = get_pool();
  {
    std::lock_guard<std::mutex> lock(p->mu);
    p->fn = fn;
    p->ctx = ctx;
    p->pieces = pieces;
    p->next = 0;
    p->busy = p->size - 1;
    p->running = true;
    p->generation++;
  }
  p->start.notify_all();
  take_pieces(p);
  std::unique_lock<std::mutex> lock(p->mu);
  p->done.wait(lock, [p] { return p->busy == 0; });
  p->running = false;
}

#else

int max_threads() { return 1; }

int thread_index() { return 0; }

void run_pieces(int pieces, void (*fn)(void *ctx, int piece), void *ctx) {
  for (int i = 0; i < pieces; i++) fn(ctx, i);
}

#endif

int thread_count_setting(const char *env, int cores) {
  if (cores > MAX_THREADS) cores = MAX_THREADS;
  if (env == nullptr) return cores;
  char *end = nullptr;
  long v = strtol(env, &end, 10);
  if (end == env || v < 1 || (*end != '\0' && *end != ',')) return cores;
  return v > MAX_THREADS ? MAX_THREADS : static_cast<int>(v);
}

void FirstFault::note(long long at, int what) {
  std::lock_guard<std::mutex> lock(fault_mutex);
  if (at < key) {
    key = at;
    code = what;
  }
}
