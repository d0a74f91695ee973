// A real case file read end to end: its statistics match reference values.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

// The statistics of the iris data agree with R's mean, var, sd and quantile
// (type 7) of Sepal.Length and Petal.Length, and with cov(Sepal.Length,
// Sepal.Width).
TEST(ReadFreqBlackbox, IrisStatisticsMatchReferenceValues) {
  TempDir dir;
  dir.copy_data("iris_freq.csv");
  RunResult res = run_vesk(dir, {"-f", "iris", "-k", "2", "-x", "5", "-u", "0-3", "--seed", "1"});
  ASSERT_EQ(res.status, 0) << res.err;
  std::string log = dir.read("iris_log.csv");
  auto values = [](const std::string &row) {
    std::vector<double> v;
    const char *p = row.c_str();
    for (char *end = nullptr;; p = end + 1) {
      v.push_back(strtod(p, &end));
      if (end == p || *end != ',') break;
    }
    return v;
  };
  const std::vector<std::vector<double>> basic = {{0, 0, 4.3, 5.843333, 5.8, 7.9, 0.6856935, 0.8280661},
                                                  {0, 2, 1, 3.758, 4.35, 6.9, 3.116278, 1.765298}};
  std::vector<std::string> rows = section_rows(log, "STAT-BASIC-GAUSS");
  ASSERT_EQ(rows.size(), 4u);
  for (size_t r = 0; r < basic.size(); r++) {
    std::vector<double> got = values(rows[2 * r]);
    ASSERT_EQ(got.size(), basic[r].size()) << rows[2 * r];
    for (size_t i = 0; i < got.size(); i++) EXPECT_NEAR(got[i], basic[r][i], 5e-7) << rows[2 * r];
  }
  const double pct[] = {4.3, 4.6, 4.8, 5.1, 5.8, 6.4, 6.9, 7.255, 7.9};
  rows = section_rows(log, "STAT-PERCENTILE");
  ASSERT_EQ(rows.size(), 36u);
  for (int i = 0; i < 9; i++) EXPECT_NEAR(values(rows[i])[2], pct[i], 1e-9) << rows[i];
  EXPECT_NEAR(values(section_rows(log, "STAT-GAUSS-COVAR")[1])[3], -0.04243400, 5e-9);
}

}  // namespace
