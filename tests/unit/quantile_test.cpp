// Quantiles of plain samples and of values given with occurrence counts.
#include <gtest/gtest.h>

#include <vector>

#include "input/quantile.h"
#include "test_util.h"

namespace {

struct CountCase {
  std::vector<long double> values;
  std::vector<int> counts;
  long double q, expected;
};

// Positions worked out by hand, 1 + q (M - 1) in the sample of M values
// repeated by their counts; the plain form gets that repeated sample.
TEST(Quantile, HandWorkedPositions) {
  const std::vector<CountCase> rows = {
      {{4, 1, 3, 2}, {1, 1, 1, 1}, 0.5L, 2.5L},  // position 2.5
      {{4, 1, 3, 2}, {1, 1, 1, 1}, 0.25L, 1.75L},
      {{7}, {1}, 0.9L, 7},
      {{1, 2}, {3, 1}, 0.5L, 1},          // position 2.5 between two 1s
      {{1, 3, 5}, {1, 1, 2}, 0.5L, 4},    // sample 1 3 5 5
      {{1, 3, 5}, {1, 1, 2}, 0.05L, 1.3L},  // position 1.15
      {{1, 3, 5}, {1, 1, 2}, 1, 5},
      {{1, 3, 5}, {1, 1, 2}, 0, 1},
  };
  for (const CountCase &r : rows) {
    std::vector<long double> expanded;
    for (size_t i = 0; i < r.values.size(); i++) expanded.insert(expanded.end(), r.counts[i], r.values[i]);
    long double plain = get_quantile(r.q, static_cast<int>(expanded.size()), expanded.data());
    long double counted = get_quantile_count(r.q, static_cast<int>(r.values.size()), r.values.data(), r.counts.data());
    EXPECT_NEAR(static_cast<double>(plain), static_cast<double>(r.expected), 1e-12) << static_cast<double>(r.q);
    EXPECT_NEAR(static_cast<double>(counted), static_cast<double>(r.expected), 1e-12) << static_cast<double>(r.q);
  }
}

TEST(Quantile, EmptySampleIsTooSmall) {
  setup_process_state();
  long double none[1] = {0};
  int zero[1] = {0};
  EXPECT_EXIT(get_quantile(0.5L, 0, none), testing::ExitedWithCode(1),
              "Too small data \\(size = 0\\) for computing 0\\.500000-quantile");
  EXPECT_EXIT(get_quantile_count(0.25L, 0, none, zero), testing::ExitedWithCode(1),
              "Too small data \\(size = 0\\) for computing 0\\.250000-quantile");
}

}  // namespace
