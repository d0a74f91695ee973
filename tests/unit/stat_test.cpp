// Sample statistics of a small hand-made case table with missing values,
// checked against values worked out by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "analysis/stat.h"
#include "input/read_freq.h"
#include "test_util.h"

namespace {

// Roles: column 0 discrete, every other column in the group given by `group_of`.
void set_roles(int tuple_size, const std::vector<int> &group_of, int num_groups) {
  settings.tuple_size = tuple_size;
  settings.mode_id = settings.mode_eval = 0;
  settings.attr_ignore = nullptr;
  settings.attr_info = static_cast<AttrInfo *>(calloc(tuple_size, sizeof(AttrInfo)));
  settings.gauss_size = num_groups;
  settings.gauss_attr_size = static_cast<int *>(calloc(num_groups, sizeof(int)));
  settings.gauss_attr = static_cast<int **>(calloc(num_groups, sizeof(int *)));
  for (int g = 0; g < num_groups; g++) settings.gauss_attr[g] = static_cast<int *>(calloc(tuple_size, sizeof(int)));
  for (int a = 1; a < tuple_size; a++) {
    int g = group_of[a - 1];
    int k = settings.gauss_attr_size[g]++;
    settings.gauss_attr[g][k] = a;
    settings.attr_info[a] = AttrInfo{1, g, k};
  }
  settings.tuple_size_c = tuple_size - 1;
  settings.tuple_size_d = 1;
  settings.tuple_size_all = tuple_size;
  settings.mode_nominal = 1;
}

FILE *log_stream;

void read_table(int tuple_size, const std::vector<int> &group_of, int num_groups, const std::string &text) {
  setup_process_state();
  static FILE *quiet = tmpfile();
  log_stream = tmpfile();
  settings.fp_log = log_stream;
  settings.fp_msg = quiet;
  settings.format_in = FORMAT_CSV;
  settings.format_out = FORMAT_TXT;
  settings.mode_em = 1;
  settings.mode_lex_order = 1;
  settings.mode_uncompress = settings.mode_verbose = 0;
  settings.mode_smooth_gauss = 0;
  settings.mode_smooth_s = 1;
  settings.mode_regular_stat = 0;
  settings.q_regular_min = 0.05L;
  settings.q_regular_max = 0.95L;
  set_roles(tuple_size, group_of, num_groups);
  char dir[] = "/tmp/vesk_st_XXXXXX";
  std::string path = std::string(mkdtemp(dir)) + "/t_freq.csv";
  FILE *fp = fopen(path.c_str(), "wb");
  fputs(text.c_str(), fp);
  fclose(fp);
  snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s", path.c_str());
  cases = CaseTable();
  read_freq();
}

// Data rows of one section of the log.
std::vector<std::string> rows_of(const std::string &log, const std::string &id) {
  std::vector<std::string> rows;
  bool in = false;
  size_t pos = 0;
  while (pos < log.size()) {
    size_t end = log.find('\n', pos);
    std::string line = log.substr(pos, end - pos);
    pos = end == std::string::npos ? log.size() : end + 1;
    if (line.rfind("#### ID:", 0) == 0) in = line == "#### ID:" + id;
    else if (in && line.rfind("####", 0) != 0) rows.push_back(line);
  }
  return rows;
}

// Column 0 discrete; columns 1, 2 form group 0; column 3 (never observed) is group 1.
const char *const kTable = "a,1,2,?\na,3,?,NA\nb,?,?,?\na,5,8,?,2\n";

double d(long double x) { return static_cast<double>(x); }

TEST(Stat, SampleMeanAndCovarianceWithMissingValues) {
  read_table(4, {0, 0, 1}, 2, kTable);
  compute_stats();
  ASSERT_EQ(cases.total_freq, 5);
  // mean: observed sum / (N - missing count)
  EXPECT_NEAR(d(stats.sample_u_raw[0][0]), 14.0 / 4, 1e-15);
  EXPECT_NEAR(d(stats.sample_u_raw[0][1]), 18.0 / 3, 1e-15);
  // covariance: sum over pairs both observed / (N - both missing - 1)
  EXPECT_NEAR(d(stats.sample_s_raw[0][0][0]), 11.0 / 3, 1e-15);
  EXPECT_NEAR(d(stats.sample_s_raw[0][1][1]), 24.0 / 2, 1e-15);
  EXPECT_NEAR(d(stats.sample_s_raw[0][0][1]), 16.0 / 3, 1e-15);
  EXPECT_EQ(stats.sample_s_raw[0][1][0], stats.sample_s_raw[0][0][1]);
  EXPECT_EQ(stats.sample_u, stats.sample_u_raw);
  EXPECT_EQ(stats.sample_s, stats.sample_s_raw);

  const AttrStat &x1 = stats.attr_stat[1];
  EXPECT_EQ(d(x1.min), 1);
  EXPECT_EQ(d(x1.max), 5);
  EXPECT_NEAR(d(x1.median), 4, 1e-15);         // sample 1 3 5 5
  EXPECT_NEAR(d(x1.pct[0]), 1.3, 1e-15);       // position 1.15
  EXPECT_NEAR(d(x1.std), std::sqrt(11.0 / 3), 1e-15);
  const AttrStat &x3 = stats.attr_stat[3];     // never observed
  EXPECT_EQ(d(x3.min), -1);
  EXPECT_EQ(d(x3.max), -1);
  const AttrStat &c0 = stats.attr_stat[0];
  EXPECT_EQ(c0.num_values, 2);
  EXPECT_STREQ(c0.mode_value, "a");
  EXPECT_EQ(c0.mode_count, 3);
}

TEST(Stat, RegularStatisticsLeaveOutExtremeValues) {
  read_table(4, {0, 0, 1}, 2, kTable);
  settings.mode_regular_stat = 1;
  compute_stats();
  EXPECT_NEAR(d(stats.regular_min[0][0]), 1.3, 1e-15);
  EXPECT_NEAR(d(stats.regular_max[0][0]), 5, 1e-15);
  EXPECT_NEAR(d(stats.regular_min[0][1]), 2.6, 1e-15);
  EXPECT_NEAR(d(stats.regular_max[0][1]), 8, 1e-15);
  // Value 1 of column 1 and value 2 of column 2 are extreme.
  EXPECT_NEAR(d(stats.regular_u[0][0]), 13.0 / 3, 1e-15);
  EXPECT_NEAR(d(stats.regular_u[0][1]), 8, 1e-15);
  EXPECT_NEAR(d(stats.regular_s[0][0][0]), (24.0 / 9) / 2, 1e-15);
  EXPECT_EQ(stats.sample_u, stats.regular_u);
  EXPECT_EQ(stats.sample_s, stats.regular_s);
}

TEST(Stat, SectionsInOrderWithRows) {
  read_table(4, {0, 0, 1}, 2, kTable);
  compute_stats();
  std::string log = stream_text(log_stream);
  std::vector<std::string> ids;
  for (size_t p = log.find("#### ID:"); p != std::string::npos; p = log.find("#### ID:", p + 1))
    ids.push_back(log.substr(p + 8, log.find('\n', p) - p - 8));
  EXPECT_EQ(ids, (std::vector<std::string>{"STAT-BASIC-CAT", "STAT-BASIC-GAUSS", "STAT-PERCENTILE", "STAT-GAUSS-MEAN",
                                           "STAT-GAUSS-COVAR", "STAT-REGULAR-Q", "STAT-REGULAR-MEAN",
                                           "STAT-REGULAR-COVAR"}));
  EXPECT_NE(log.find("#### ID:STAT-BASIC-CAT\n#### Attr. ID, Num. of distinct values, Mode value, Mode count\n"
                     "#### -- Only for discrete attributes\n####\n0\t2\ta\t3\n"),
            std::string::npos);
  EXPECT_EQ(rows_of(log, "STAT-GAUSS-MEAN"), (std::vector<std::string>{"0\t1\t3.5", "0\t2\t6", "1\t3\t0"}));
  std::vector<std::string> pct = rows_of(log, "STAT-PERCENTILE");
  ASSERT_EQ(pct.size(), 27u);
  EXPECT_EQ(pct[0], "1\t0\t1");
  EXPECT_EQ(pct[1], "1\t5\t1.3");
  EXPECT_EQ(pct[4], "1\t50\t4");
  EXPECT_EQ(pct[8], "1\t100\t5");
  EXPECT_EQ(pct[18], "3\t0\t-1");
  EXPECT_EQ(rows_of(log, "STAT-REGULAR-Q"), (std::vector<std::string>{"0.05\t0.95"}));
  EXPECT_EQ(rows_of(log, "STAT-GAUSS-COVAR")[1], "0\t1\t2\t5.33333333333");
  EXPECT_EQ(rows_of(log, "STAT-BASIC-GAUSS")[0], "0\t1\t1\t3.5\t4\t5\t3.66666666667\t1.91485421551");
}

TEST(Stat, SingularSampleCovarianceNeedsTheConstantPrior) {
  const char *table = "a,1,2\na,2,4\na,3,6\n";
  read_table(3, {0, 0}, 1, table);
  settings.mode_smooth_gauss = 1;
  settings.fp_msg = nullptr;  // failures then go to stderr
  EXPECT_EXIT(compute_stats(), testing::ExitedWithCode(1),
              "Sample covariance matrix is singular; please specify a diagonal covariance matrix by "
              "'--smooth-var \\(-L\\) const:Var'");
  settings.mode_smooth_s = 2;
  compute_stats();
  EXPECT_NEAR(d(stats.sample_s_raw[0][0][1]), 2, 1e-15);
  settings.mode_smooth_gauss = 0;
  settings.mode_smooth_s = 1;
  compute_stats();  // no prior, no check
}

}  // namespace
