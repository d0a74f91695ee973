// Loops split over threads: every index is visited exactly once whatever the
// split, failures resolve to the one a sequential loop meets first, and the
// thread count follows the OMP_NUM_THREADS convention.
#include "base/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <vector>

namespace {

TEST(Parallel, EveryIndexOnceInConsecutivePieces) {
  for (int n : {0, 1, 2, 7, 33, 1000, 100003}) {
    std::vector<std::atomic<int>> seen(n);
    std::atomic<int> bad_piece{0}, bad_thread{0};
    parallel_ranges(n, 1e9, [&](int begin, int end) {
      if (begin >= end || begin < 0 || end > n) bad_piece++;
      int t = thread_index();
      if (t < 0 || t >= max_threads()) bad_thread++;
      for (int i = begin; i < end; i++) seen[i]++;
    });
    for (int i = 0; i < n; i++) ASSERT_EQ(seen[i].load(), 1) << "n=" << n << " i=" << i;
    EXPECT_EQ(bad_piece.load(), 0);
    EXPECT_EQ(bad_thread.load(), 0);
  }
}

TEST(Parallel, SmallLoopsAndNestedLoopsRunOnTheCallingThread) {
  int calls = 0;
  parallel_ranges(50, 10, [&](int begin, int end) {
    calls++;
    EXPECT_EQ(begin, 0);
    EXPECT_EQ(end, 50);
    EXPECT_EQ(thread_index(), 0);
  });
  EXPECT_EQ(calls, 1);
  std::vector<std::atomic<int>> seen(64 * 64);
  parallel_ranges(64, 1e9, [&](int b0, int e0) {
    for (int i = b0; i < e0; i++)
      parallel_ranges(64, 1e9, [&](int b1, int e1) {
        for (int j = b1; j < e1; j++) seen[i * 64 + j]++;
      });
  });
  for (auto &s : seen) ASSERT_EQ(s.load(), 1);
}

// Sums of many terms computed per piece and combined in index order equal
// the sequential sum bit for bit, which is how the passes keep their results.
TEST(Parallel, PerItemResultsDoNotDependOnTheSplit) {
  const int n = 20000;
  std::vector<long double> per_item(n), seq(n);
  auto item = [](int i) {
    long double s = 0;
    for (int j = 1; j <= 50; j++) s += 1.0L / (i + j);
    return s;
  };
  for (int i = 0; i < n; i++) seq[i] = item(i);
  parallel_ranges(n, 1e9, [&](int begin, int end) {
    for (int i = begin; i < end; i++) per_item[i] = item(i);
  });
  for (int i = 0; i < n; i++) ASSERT_EQ(per_item[i], seq[i]);
}

TEST(Parallel, FirstFaultKeepsTheSmallestKey) {
  FirstFault none;
  EXPECT_FALSE(none.any());
  FirstFault f;
  f.note(50, 2);
  f.note(7, 3);
  f.note(9, 1);
  EXPECT_TRUE(f.any());
  EXPECT_EQ(f.key, 7);
  EXPECT_EQ(f.code, 3);
  // Noted from every piece of a loop, in whatever order the threads run.
  FirstFault g;
  parallel_ranges(10000, 1e9, [&](int begin, int end) {
    for (int i = begin; i < end; i++)
      if (i % 997 == 13) g.note(i, 1 + i % 3);
  });
  EXPECT_EQ(g.key, 13);
  EXPECT_EQ(g.code, 2);
}

// A process forked after the workers exist (as a death check does) must not
// wait for workers it does not have.
int loop_in_child() {
  std::vector<std::atomic<int>> seen(5000);
  parallel_ranges(5000, 1e9, [&](int begin, int end) {
    for (int i = begin; i < end; i++) seen[i]++;
  });
  for (auto &s : seen)
    if (s.load() != 1) return 2;
  return 0;
}

TEST(Parallel, ForkedProcessMakesItsOwnWorkers) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer does not start threads after a threaded fork";
#endif
  ASSERT_EQ(loop_in_child(), 0);
  EXPECT_EXIT(exit(loop_in_child()), ::testing::ExitedWithCode(0), "");
}

TEST(Parallel, ThreadCountSetting) {
  EXPECT_EQ(thread_count_setting(nullptr, 2), 2);
  EXPECT_EQ(thread_count_setting("1", 8), 1);
  EXPECT_EQ(thread_count_setting("3", 2), 3);  // more threads than cores is allowed
  EXPECT_EQ(thread_count_setting("4,2", 2), 4);
  EXPECT_EQ(thread_count_setting("100000", 2), 256);
  for (const char *bad : {"", "0", "-2", "two", "3x"}) EXPECT_EQ(thread_count_setting(bad, 2), 2) << bad;
  EXPECT_GE(max_threads(), 1);
}

}  // namespace
