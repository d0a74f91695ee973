// Loops split over threads: every index is visited exactly once whatever the
// split, failures resolve to the one a sequential loop meets first, the
// thread count follows OMP_NUM_THREADS, and a forked process still loops.
#include "base/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <vector>

namespace {

// A loop over n indices split over the threads: 0 when every index was
// visited once, in pieces within 0 .. n on valid thread indices.
int loop_faults(int n) {
  std::vector<std::atomic<int>> seen(n);
  std::atomic<int> bad{0};
  parallel_ranges(n, 1e9, [&](int begin, int end) {
    if (begin >= end || begin < 0 || end > n || thread_index() < 0 || thread_index() >= max_threads()) bad++;
    for (int i = begin; i < end && i < n; i++) seen[i]++;
  });
  for (auto &s : seen) bad += s.load() != 1;
  return bad.load();
}

TEST(Parallel, EveryIndexOnceInConsecutivePieces) {
  for (int n : {0, 1, 2, 7, 33, 1000, 100003}) EXPECT_EQ(loop_faults(n), 0) << n;
}

TEST(Parallel, SmallLoopsAndNestedLoopsRunOnTheCallingThread) {
  std::vector<std::vector<int>> pieces;
  parallel_ranges(50, 10, [&](int begin, int end) { pieces.push_back({begin, end, thread_index()}); });
  EXPECT_EQ(pieces, (std::vector<std::vector<int>>{{0, 50, 0}}));
  std::vector<std::atomic<int>> seen(64 * 64);
  parallel_ranges(64, 1e9, [&](int b0, int e0) {
    for (int i = b0; i < e0; i++)
      parallel_ranges(64, 1e9, [&](int b1, int e1) {
        for (int j = b1; j < e1; j++) seen[i * 64 + j]++;
      });
  });
  for (auto &s : seen) ASSERT_EQ(s.load(), 1);
}

TEST(Parallel, FirstFaultKeepsTheSmallestKey) {
  FirstFault f;
  EXPECT_FALSE(f.any());
  f.note(50, 2);
  f.note(7, 3);
  f.note(9, 1);
  EXPECT_TRUE(f.any());
  EXPECT_EQ(f.key, 7);
  EXPECT_EQ(f.code, 3);
}

// A process forked after the workers exist (as a death check is) must not
// wait for workers it does not have.
TEST(Parallel, ForkedProcessMakesItsOwnWorkers) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer does not start threads after a threaded fork";
#endif
  GTEST_FLAG_SET(death_test_style, "fast");  // a true fork of this process
  ASSERT_EQ(loop_faults(5000), 0);
  EXPECT_EXIT(exit(loop_faults(5000)), ::testing::ExitedWithCode(0), "");
}

// A fresh process takes its thread count from the environment, even one
// above the number of cores.
TEST(Parallel, ThreadCountFromTheEnvironment) {
  EXPECT_EQ(thread_count_setting(nullptr, 2), 2);
  EXPECT_EQ(thread_count_setting("1", 8), 1);
  EXPECT_EQ(thread_count_setting("3", 2), 3);
  EXPECT_EQ(thread_count_setting("4,2", 2), 4);
  EXPECT_EQ(thread_count_setting("100000", 2), 256);
  for (const char *bad : {"", "0", "-2", "two", "3x"}) EXPECT_EQ(thread_count_setting(bad, 2), 2) << bad;
#ifdef VESK_THREADS
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("OMP_NUM_THREADS", "3", 1);
  EXPECT_EXIT(exit(loop_faults(5000) == 0 ? max_threads() : 0), ::testing::ExitedWithCode(3), "");
  unsetenv("OMP_NUM_THREADS");
#endif
}

}  // namespace
