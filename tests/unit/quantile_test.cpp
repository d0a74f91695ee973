// Quantiles of plain samples and of values given with occurrence counts.
#include <gtest/gtest.h>

#include <vector>

#include "analysis/quantile.h"
#include "test_util.h"

namespace {

struct PlainCase {
  std::vector<long double> values;
  long double q, expected;
};

TEST(Quantile, PlainSampleInterpolatesBetweenOrderStatistics) {
  const std::vector<PlainCase> rows = {
      {{4, 1, 3, 2}, 0.5L, 2.5L},  {{4, 1, 3, 2}, 0.25L, 1.75L}, {{4, 1, 3, 2}, 0, 1},
      {{4, 1, 3, 2}, 1, 4},        {{7}, 0.9L, 7},               {{10, 0, 20}, 0.5L, 10},
      {{5, 1, 3}, 0.75L, 4},
  };
  for (const PlainCase &r : rows) {
    std::vector<long double> v = r.values;
    EXPECT_NEAR(static_cast<double>(get_quantile(r.q, static_cast<int>(v.size()), v.data())),
                static_cast<double>(r.expected), 1e-12);
  }
  std::vector<long double> v = {3, 1, 2};
  get_quantile(0.5L, 3, v.data());
  EXPECT_EQ(v, (std::vector<long double>{1, 2, 3}));  // sorted in place
}

struct CountCase {
  std::vector<long double> values;
  std::vector<int> counts;
  long double q, expected;
};

TEST(Quantile, CountedValuesBehaveAsTheRepeatedSample) {
  const std::vector<CountCase> rows = {
      {{1, 2}, {3, 1}, 0.5L, 1},              // position 2.5 between two 1s
      {{2, 1}, {1, 3}, 0.5L, 1},              // order of the input does not matter
      {{1, 2}, {1, 1}, 0.5L, 1.5L},           // position 1.5
      {{1, 3, 5}, {1, 1, 2}, 0.5L, 4},        // sample 1 3 5 5, position 2.5
      {{1, 3, 5}, {1, 1, 2}, 0.05L, 1.3L},    // position 1.15
      {{1, 3, 5}, {1, 1, 2}, 1, 5},           // last position
      {{1, 3, 5}, {1, 1, 2}, 0, 1},           // first position
      {{9, 9, 1}, {1, 1, 1}, 0.25L, 5},       // repeated values as separate entries
  };
  for (const CountCase &r : rows) {
    long double got = get_quantile_count(r.q, static_cast<int>(r.values.size()), r.values.data(), r.counts.data());
    EXPECT_NEAR(static_cast<double>(got), static_cast<double>(r.expected), 1e-12) << static_cast<double>(r.q);
  }
  // Agrees with the plain quantile of the expanded sample.
  std::vector<long double> vals = {0.5L, -2, 7, 3};
  std::vector<int> counts = {2, 3, 1, 4};
  for (long double q : {0.05L, 0.1L, 0.25L, 0.5L, 0.75L, 0.9L, 0.95L}) {
    std::vector<long double> expanded;
    for (size_t i = 0; i < vals.size(); i++) expanded.insert(expanded.end(), counts[i], vals[i]);
    long double plain = get_quantile(q, static_cast<int>(expanded.size()), expanded.data());
    EXPECT_NEAR(static_cast<double>(get_quantile_count(q, 4, vals.data(), counts.data())),
                static_cast<double>(plain), 1e-12);
  }
}

TEST(Quantile, EmptySampleIsTooSmall) {
  setup_process_state();
  long double none[1] = {0};
  int zero[1] = {0};
  EXPECT_EXIT(get_quantile(0.5L, 0, none), testing::ExitedWithCode(1),
              "Too small data \\(size = 0\\) for computing 0\\.500000-quantile");
  EXPECT_EXIT(get_quantile(0, 0, none), testing::ExitedWithCode(1), "Too small data \\(size = 0\\)");
  EXPECT_EXIT(get_quantile_count(0.25L, 0, none, zero), testing::ExitedWithCode(1),
              "Too small data \\(size = 0\\) for computing 0\\.250000-quantile");
}

}  // namespace
