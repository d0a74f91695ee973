// Sample statistics of a small case table with missing values, checked
// against values worked out by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "output/print.h"
#include "input/stat.h"
#include "case_file_util.h"

namespace {

// Column 0 discrete; columns 1, 2 form group 0; column 3 (never observed) is
// group 1. N = 5 (the last line counts twice).
const char *const kTable = "a,1,2,?\na,3,?,NA\nb,?,?,?\na,5,8,?,2\n";
const Roles kRoles{4, "1-2#3"};

double d(long double x) { return static_cast<double>(x); }

TEST(Stat, SampleMeanAndCovarianceWithMissingValues) {
  read_text_as(kRoles, kTable);
  compute_stats();
  print_stats(settings.fp_log);
  // mean: observed sum / (N - missing count)
  EXPECT_NEAR(d(stats.sample_u_raw[0][0]), 14.0 / 4, 1e-15);
  EXPECT_NEAR(d(stats.sample_u_raw[0][1]), 18.0 / 3, 1e-15);
  // covariance: sum over pairs both observed / (N - both missing - 1)
  EXPECT_NEAR(d(stats.sample_s_raw[0][0][0]), 11.0 / 3, 1e-15);
  EXPECT_NEAR(d(stats.sample_s_raw[0][1][1]), 24.0 / 2, 1e-15);
  EXPECT_NEAR(d(stats.sample_s_raw[0][0][1]), 16.0 / 3, 1e-15);
  EXPECT_EQ(stats.sample_s_raw[0][1][0], stats.sample_s_raw[0][0][1]);
  EXPECT_EQ(stats.sample_u, stats.sample_u_raw);
  EXPECT_NEAR(d(stats.attr_stat[1].std), std::sqrt(11.0 / 3), 1e-15);
  EXPECT_EQ(d(stats.attr_stat[3].min), -1);  // never observed
  EXPECT_EQ(d(stats.attr_stat[3].max), -1);
  EXPECT_STREQ(stats.attr_stat[0].mode_value, "a");
  EXPECT_EQ(stats.attr_stat[0].mode_count, 3);
}

TEST(Stat, RegularStatisticsLeaveOutExtremeValues) {
  read_text_as(kRoles, kTable);
  settings.mode_regular_stat = 1;
  compute_stats();
  print_stats(settings.fp_log);
  EXPECT_NEAR(d(stats.regular_min[0][0]), 1.3, 1e-15);
  EXPECT_NEAR(d(stats.regular_max[0][1]), 8, 1e-15);
  // Value 1 of column 1 and value 2 of column 2 are extreme.
  EXPECT_NEAR(d(stats.regular_u[0][0]), 13.0 / 3, 1e-15);
  EXPECT_NEAR(d(stats.regular_u[0][1]), 8, 1e-15);
  EXPECT_NEAR(d(stats.regular_s[0][0][0]), (24.0 / 9) / 2, 1e-15);
  EXPECT_EQ(stats.sample_u, stats.regular_u);
  EXPECT_EQ(stats.sample_s, stats.regular_s);
}

TEST(Stat, SectionsInOrder) {
  FILE *log_fp = tmpfile();
  read_text_as(kRoles, kTable, "csv", log_fp);
  compute_stats();
  print_stats(settings.fp_log);
  std::string log = stream_text(log_fp);
  std::vector<std::string> ids;
  for (size_t p = log.find("#### ID:STAT"); p != std::string::npos; p = log.find("#### ID:", p + 1))
    ids.push_back(log.substr(p + 8, log.find('\n', p) - p - 8));
  EXPECT_EQ(ids, (std::vector<std::string>{"STAT-BASIC-CAT", "STAT-BASIC-GAUSS", "STAT-PERCENTILE", "STAT-GAUSS-MEAN",
                                           "STAT-GAUSS-COVAR", "STAT-REGULAR-Q", "STAT-REGULAR-MEAN",
                                           "STAT-REGULAR-COVAR"}));
  EXPECT_NE(log.find("#### ID:STAT-REGULAR-Q\n#### Q-min., Q-max.\n#### -- The values below Q-min. or above "
                     "Q-max. are considered as extreme values\n####\n0.05\t0.95\n"
                     "#### ID:STAT-REGULAR-MEAN\n#### Gauss ID, Attr. ID, Min., Mean, Max.\n"
                     "#### -- These are the statistics when ignoring extreme values\n####\n"),
            std::string::npos);
  EXPECT_NE(log.find("\n3\t0\t-1\n"), std::string::npos);  // percentile 0 of the unobserved column
  fclose(log_fp);
}

TEST(Stat, SingularSampleCovarianceNeedsTheConstantPrior) {
  read_text_as({3, "1-2"}, "a,1,2\na,2,4\na,3,6\n");
  settings.mode_smooth_gauss = 1;
  settings.fp_msg = nullptr;  // failures then go to stderr
  EXPECT_EXIT(compute_stats(), testing::ExitedWithCode(1),
              "Sample covariance matrix is singular; please specify a diagonal covariance matrix by "
              "'--smooth-var \\(-L\\) const:Var'");
  settings.mode_smooth_s = 2;
  compute_stats();
  print_stats(settings.fp_log);
  EXPECT_NEAR(d(stats.sample_s_raw[0][0][1]), 2, 1e-15);
}

}  // namespace
