// Memberships and clusters, rankings, dissimilarities, evaluation, sample
// statistics and quantiles.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "analysis/dissim.h"
#include "analysis/eval.h"
#include "input/quantile.h"
#include "analysis/rank.h"
#include "input/stat.h"
#include "analysis_fixture.h"
#include "case_file_util.h"
#include "driver/run.h"
#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/cluster.h"
#include "output/print.h"
#include "test_util.h"

namespace {

// Membership distributions against Bayes' rule worked out by hand, the
// deliberate differences of the log path, the hard clustering with its tie
// rules and sorted value lists, and the membership sections.
// Normal density with mean mu and variance s.
long double normal(long double x, long double mu, long double s) {
  return expl(-(x - mu) * (x - mu) / (2 * s)) / sqrtl(2 * 3.14159265358979323846264338327950288L * s);
}

// Column 0 discrete, column 1 a one-dimensional Gaussian group; two classes.
class ClusterTest : public ::testing::Test {
 protected:
  std::string dir;
  FILE *log = nullptr;
  const long double c[2] = {0.25L, 0.75L};
  const long double w[2][3] = {{0.2L, 0.8L, 0.0L}, {0.6L, 0.4L, 0.0L}};
  const long double mu[2] = {0.0L, 1.0L}, var[2] = {1.0L, 4.0L};

  void SetUp() override {
    setup_process_state();
    cases = CaseTable();
    model = Model();
    member = Membership();
    clusters = Clusters();
    settings.tuple_size = 2;
    add_gauss("1");
    build_attr_info();
    settings.mode_em = 1;
    model.num_class = 2;
    settings.format_in = FORMAT_TXT;
    settings.format_out = FORMAT_CSV;
    char tmpl[] = "/tmp/vesk_cl_XXXXXX";
    dir = mkdtemp(tmpl);
    snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s/t_freq.txt", dir.c_str());
    snprintf(settings.fname_cluster, sizeof settings.fname_cluster, "%s/t_cluster.csv", dir.c_str());
    log = tmpfile();
    settings.fp_log = log;
  }
  void TearDown() override {
    settings.fp_log = nullptr;
    fclose(log);
    release_cluster();
    release_prob_mem();
    release_param();
    release_freq();
    std::string cmd = "rm -rf '" + dir + "'";
    if (system(cmd.c_str()) != 0) ADD_FAILURE() << cmd;
  }

  // Reads the cases (tab-separated rows), sets the parameters above and
  // allocates the membership arrays. The default cases: value a at x = 0,
  // value b with x missing, the value missing at x = 1.
  void set_up_model(const char *rows = "a\t0\nb\tNA\n?\t1\n") {
    FILE *fp = fopen(settings.fname_freq, "wb");
    fputs(rows, fp);
    fclose(fp);
    read_freq();
    alloc_param();
    for (int k = 0; k < 2; k++) {
      model.param_c[k] = c[k];
      for (int v = 0; v < cases.num_word[0]; v++) model.param_w[k][0][v] = w[k][v];
      model.param_u[k][0][0] = mu[k];
      model.param_s[k][0][0][0] = var[k];
      model.param_p[k][0][0][0] = 1.0L / var[k];
      model.param_sdet[k][0] = var[k];
    }
    alloc_prob_mem();
  }
};

void expect_close(long double got, long double want) {
  EXPECT_NEAR(static_cast<double>(got), static_cast<double>(want), 1e-15 * (1 + fabsl(want)));
}

TEST_F(ClusterTest, AttributeMembershipsFollowBayesRule) {
  set_up_model();
  // {--log-scale, strict smoothing}: the log path needs both.
  const int modes[3][2] = {{0, 0}, {1, 1}, {1, 0}};
  for (const int *m : modes) {
    SCOPED_TRACE(testing::Message() << m[0] << m[1]);
    settings.mode_log_scale = m[0];
    model.smooth.strict = m[1];
    bool log_path = m[0] && m[1];
    compute_attr_member_prob();
    // P(a) = .25 * .2 + .75 * .6 = .5 and P(b) = .2 + .3 = .5
    expect_close(member.prob_w[0][0], log_path ? logl(0.5L) : 0.5L);
    expect_close(member.prob_mem_w[0][0][0], 0.1L);
    expect_close(member.prob_mem_w[1][0][1], 0.6L);
    expect_close(member.prob_compo_w[1][0][1], 0.4L);  // a probability in both paths
    long double f0 = normal(0, mu[0], var[0]), f1 = normal(0, mu[1], var[1]);
    long double marginal = c[0] * f0 + c[1] * f1;
    expect_close(member.prob_mem_g[0][0][0], c[0] * f0 / marginal);
    expect_close(member.prob_g[0][0], log_path ? logl(marginal) : marginal);
    expect_close(member.prob_compo_g[1][0][0], log_path ? logl(f1) : f1);
    // A wholly missing group falls back to P(k), with a marginal of 1.
    expect_close(member.prob_mem_g[1][0][1], c[1]);
    expect_close(member.prob_g[0][1], log_path ? 0.0L : 1.0L);
    EXPECT_EQ(member.prob_compo_g[0][0][1], 0.0L);
  }
}

TEST_F(ClusterTest, CaseMembershipsAndTheLogPathComponentColumn) {
  set_up_model();
  // P(x|k) for the three cases: value and density, value alone, density alone.
  long double px[2][3];
  for (int k = 0; k < 2; k++) {
    px[k][0] = w[k][0] * normal(0, mu[k], var[k]);
    px[k][1] = w[k][1];
    px[k][2] = normal(1, mu[k], var[k]);
  }
  for (int log_path = 0; log_path < 2; log_path++) {
    SCOPED_TRACE(log_path);
    settings.mode_log_scale = model.smooth.strict = log_path;
    compute_case_member_prob();
    for (int n = 0; n < 3; n++) {
      long double marginal = c[0] * px[0][n] + c[1] * px[1][n];
      expect_close(member.prob_case[n], marginal);
      for (int k = 0; k < 2; k++) {
        expect_close(member.prob_mem_case[k][n], c[k] * px[k][n] / marginal);
        long double compo = log_path ? c[k] * px[k][n] * expl(-c[k]) : px[k][n];
        expect_close(member.prob_compo_case[k][n], compo);
      }
    }
  }
}

TEST_F(ClusterTest, MostProbableClassWithTiesAndSortedValueLists) {
  // Values by id: "c", "a", "b"; printed and listed lexically.
  set_up_model("c\t0\na\t0\nb\t0\nc\t0\n");
  const long double case_mem[4][2] = {{0.5L, 0.5L}, {0.2L, 0.8L}, {0, 0}, {0.9L, 0.1L}};
  for (int n = 0; n < 4; n++)
    for (int k = 0; k < 2; k++) {
      member.prob_mem_case[k][n] = case_mem[n][k];
      member.prob_mem_g[k][0][n] = case_mem[n][1 - k];
    }
  const long double value_mem[3][2] = {{0.1L, 0.9L}, {0.3L, 0.7L}, {0.6L, 0.4L}};
  for (int v = 0; v < 3; v++)
    for (int k = 0; k < 2; k++) member.prob_mem_w[k][0][v] = value_mem[v][k];
  settings.mode_show_attr_cluster = 1;
  cluster_main();
  const int want_case[4] = {0, 1, 0, 0};  // a tie and an all-zero case go to class 0
  for (int n = 0; n < 4; n++) EXPECT_EQ(clusters.cluster_case_pred[n], want_case[n]);
  EXPECT_EQ(clusters.cluster_case_freq[0], 3);
  EXPECT_EQ(clusters.cluster_g_pred[0][1], 0);
  EXPECT_EQ(clusters.cluster_g_freq[0][1], 1);
  EXPECT_EQ(clusters.cluster_w_freq[0][1], 2);
  EXPECT_EQ(clusters.cluster_w[0][1][0], 1);  // "a" before "c"
  EXPECT_EQ(clusters.cluster_w[0][1][1], 0);
  std::string text = read_text(settings.fname_cluster);
  EXPECT_NE(text.find("#### ID:CLUSTER-CASE-BY-CLUSTER\n"
                      "#### Cluster k, Case ID, Attribute values x, Membership prob. P(k|x)\n####\n"
                      "0,0,c,0,0.5\n0,2,b,0,0\n0,3,c,0,0.9\n1,1,a,0,0.8\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("#### ID:CLUSTER-CAT0-BY-CLUSTER\n"
                      "#### Attr. ID, Cluster k, Attr. x0, Membership prob. P(k|x0)\n####\n"
                      "0,0,b,0.6\n0,1,a,0.7\n0,1,c,0.9\n"),
            std::string::npos)
      << text;
  settings.cl_type = 2;
  EXPECT_EXIT(cluster_main(), ::testing::ExitedWithCode(1),
              "Clustering cases and attribute values...Internal error: Unsupported clustering method\n$");
}

TEST_F(ClusterTest, HiddenAttributesLeaveValueColumnsOnlyInMemberCat) {
  set_up_model();
  compute_case_member_prob();
  compute_attr_member_prob();
  settings.mode_hide_attr = 1;
  FILE *fp = tmpfile();
  print_case_member_prob(fp);
  print_attr_member_prob(fp);
  std::string text = stream_text(fp);
  fclose(fp);
  EXPECT_NE(text.find("#### Case ID, Class k, Class prob. P(k), Component prob. P(x|k), Marginal prob. "
                      "P(x), Membership prob. P(k|x)\n"),
            std::string::npos);
  EXPECT_NE(text.find("\n0,1,0.75,"), std::string::npos);  // case 0, class 1, P(k)
  EXPECT_NE(text.find("#### Attr. ID, Attr. value x0, Class k, Class prob. P(k), Component prob. P(x0|k), "
                      "Marginal prob. P(x0), Membership prob. P(k|x0)\n####\n0,a,0,0.25,0.2,0.5,0.1\n"),
            std::string::npos);
  EXPECT_NE(text.find("#### Gauss ID, Case ID, Class k, Class prob. P(k), Component prob. P(Gauss0|k), "
                      "Marginal prob. P(Gauss0), Membership prob. P(k|Gauss0)\n####\n0,0,0,0.25,"),
            std::string::npos);
}

// Relevance ranking: the order against an independent stable sort, the
// limits and stops, the sections as written, the internal-error texts.
// Decreasing key, equal keys in index order, NaN after every number; twelve
// keys, so that sorted runs are merged.
TEST(RankIndices, StableDecreasingOrderWithTiesAndNaN) {
  const long double key[] = {0.5L, NAN, 0.2L, 0.5L, 0.9L, 0.2L, NAN, 0.5L, 0.9L, 0, 0.2L, NAN};
  std::vector<int> got(12);
  rank_indices(got.data(), 12, key);
  EXPECT_EQ(got, (std::vector<int>{4, 8, 0, 3, 7, 2, 5, 10, 9, 1, 6, 11}));
}

// The text of one section of a result file.
inline std::string section(const std::string &text, const std::string &id) {
  size_t start = text.find("#### ID:" + id + "\n");
  if (start == std::string::npos) return "";
  size_t end = text.find("#### ID:", start + 1);
  return text.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

const Roles kRoles{3, "1", -1, 2};
const char kRows[] = "a,1,yes\nb,2,no\na,3,no\nc,4,yes\nb,5,yes\n";
const char kComment[] = "#### -- in the decending order of the class probs. and the membership probs.\n####\n";

class RankTest : public AnalysisTest {
 protected:
  // Five cases (value of attribute 0, value of the Gaussian 1, answer) and
  // two classes, class 1 the more probable.
  void SetUp() override {
    AnalysisTest::SetUp();
    load(kRoles, kRows, {0.4L, 0.6L});
    set_case_members({{0.3L, 0.7L}, {0.8L, 0.2L}, {0.3L, 0.7L}, {0.6L, 0.4L}, {0.1L, 0.9L}});
    set_value_members(0, {{0.5L, 0.5L}, {0.2L, 0.8L}, {0.9L, 0.1L}});  // a, b, c
    set_group_members(0, Dists(5, {0.5L, 0.5L}));
  }
  std::string ranked() {
    alloc_rank();
    compute_rank();
    std::string text = written(print_rank);
    release_rank();
    return text;
  }
};

// Class 1 first; within a class by decreasing membership (cases 0 and 2 tie
// in class 1, every Gaussian entry ties), equal ones in entry order. A count
// of 0, or at least the number of entries or values, lists all.
TEST_F(RankTest, CountLimitsCasesAndValues) {
  settings.num_rank = 2;
  std::string text = ranked();
  EXPECT_EQ(section(text, "RANK-CASE"),
            std::string("#### ID:RANK-CASE\n#### Class k, Answer class, Case ID, Attributes values x, "
                        "Class prob. P(k), Membership prob. P(k|x)\n") +
                kComment + "1,yes,4,b,5,0.6,0.9\n1,yes,0,a,1,0.6,0.7\n0,no,1,b,2,0.4,0.8\n0,yes,3,c,4,0.4,0.6\n");
  EXPECT_EQ(section(text, "RANK-CAT0"),
            std::string("#### ID:RANK-CAT0\n#### Attr. ID, Class k, Attr. value x0, Class prob. P(k), "
                        "Membership prob. P(k|x0)\n") +
                kComment + "0,1,b,0.6,0.8\n0,1,a,0.6,0.5\n0,0,c,0.4,0.9\n0,0,a,0.4,0.5\n");
  EXPECT_EQ(section(text, "RANK-GAUSS0"),
            std::string("#### ID:RANK-GAUSS0\n#### Gauss ID, Class k, Case ID, Attr. x1, Class prob. P(k), "
                        "Membership prob. P(k|Gauss0)\n") +
                kComment + "0,1,0,1,0.6,0.5\n0,1,1,2,0.6,0.5\n0,0,0,1,0.4,0.5\n0,0,1,2,0.4,0.5\n");
  for (int count : {0, 3, 5, 9}) {
    settings.num_rank = count;
    text = ranked();
    auto rows = [&text](const char *id) {
      std::string s = section(text, id);
      return std::count(s.begin(), s.end(), '\n') - 4;
    };
    int cases_per_class = count == 3 ? 3 : 5;
    EXPECT_EQ(rows("RANK-CASE"), 2 * cases_per_class) << count;
    EXPECT_EQ(rows("RANK-CAT0"), 6) << count;  // three values per class
    EXPECT_EQ(rows("RANK-GAUSS0"), 2 * cases_per_class) << count;
  }
}

TEST_F(RankTest, ThresholdAndHideRankEndEachList) {
  settings.mode_rank_th = 1;
  settings.rank_th = 0.5L;
  std::string th = ranked();
  EXPECT_NE(th.find("####\n1,yes,4,b,5,0.6,0.9\n1,yes,0,a,1,0.6,0.7\n1,no,2,a,3,0.6,0.7\n"
                    "0,no,1,b,2,0.4,0.8\n0,yes,3,c,4,0.4,0.6\n#### ID:RANK-CAT0"),
            std::string::npos)
      << th;
  EXPECT_NE(th.find("####\n0,1,b,0.6,0.8\n0,1,a,0.6,0.5\n0,0,c,0.4,0.9\n0,0,a,0.4,0.5\n#### ID:RANK-GAUSS0"),
            std::string::npos);
  // With --hide-rank 1/K = 0.5 is the bar, whatever the count.
  settings.mode_rank_th = 0;
  settings.rank_th = -1;
  settings.num_rank = 0;
  settings.mode_rank_hide = 1;
  EXPECT_EQ(ranked(), th);
  // A 0.55 threshold stops before the 0.5 entries; --hide-rank adds nothing.
  settings.mode_rank_th = 1;
  settings.rank_th = 0.55L;
  std::string both = ranked();
  EXPECT_NE(both.find("####\n0,1,b,0.6,0.8\n0,0,c,0.4,0.9\n#### ID:RANK-GAUSS0"), std::string::npos);
  EXPECT_EQ(both.substr(both.size() - 12), "probs.\n####\n");  // every Gaussian entry is below
}

TEST_F(RankTest, OneClassHidesOnlyMembershipsBelowOne) {
  load(kRoles, kRows, {1.0L});
  set_case_members({{1}, {1}, {0.999L}, {1}, {1}});
  set_value_members(0, {{1}, {1}, {1}});
  set_group_members(0, Dists(5, {1}));
  settings.mode_rank_hide = 1;
  settings.mode_eval = 0;
  settings.mode_hide_attr = 1;
  std::string text = ranked();
  EXPECT_EQ(section(text, "RANK-CASE"),
            std::string("#### ID:RANK-CASE\n#### Class k, Case ID, Class prob. P(k), Membership prob. P(k|x)\n") +
                kComment + "0,0,1,1\n0,1,1,1\n0,3,1,1\n0,4,1,1\n");
  EXPECT_NE(text.find("#### Gauss ID, Class k, Case ID, Class prob. P(k), Membership prob. P(k|Gauss0)\n"),
            std::string::npos);
}

// Dissimilarity sections: divergences in closed form, the failure messages
// after the rows before the failing pair, the layouts, and a long section
// against the naive formula printed row by row.
class DissimTest : public AnalysisTest {};

const Roles kDissimRoles{3, "1", -1, 2};  // discrete 0, Gaussian 1, answer class 2
const char kDissimRows[] = "b,1.5,yes\na,2,no\nb,NA,yes\n";
const char kDeath[] = "^Couldn't compute KL div\\. since P\\(Class=";

// `format` with the divergences printed as the file prints them.
std::string rows_with(const char *format, long double d1, long double d2) {
  char buf[1024];
  snprintf(buf, sizeof buf, format, d1, d2);
  return buf;
}

// A class with p_k = 0 contributes nothing; p_k > 0 against q_k = 0 stops
// the run at that ordered pair, after the rows before it.
TEST_F(DissimTest, CaseSectionStopsAtTheFirstUndefinedPair) {
  load(kDissimRoles, kDissimRows, {0.5L, 0.5L});
  settings.mode_eval = 0;
  set_case_members({{1, 0}, {0.5L, 0.5L}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  EXPECT_EXIT(written(print_dissim_case), ::testing::ExitedWithCode(1),
              std::string(kDeath) + "1\\|case-ID=0\\) = 0 \\(smoothing may be required\\)\n$");
  EXPECT_EQ(read_text(path("out.txt").c_str()),
            rows_with("#### ID:DISSIM-CASE\n#### Case ID of x, Case ID of x', KL-divergence D(x||x')\n####\n"
                      "0,0,0\n0,1,%.12Lg\n0,2,%.12Lg\n",
                      logl(2.0L), logl(2.0L)));
}

// Values in print order (a before b, while b has id 0); both orders of a pair.
TEST_F(DissimTest, ValueSectionFollowsThePrintOrder) {
  load(kDissimRoles, kDissimRows, {0.5L, 0.5L});
  set_value_members(0, {{0.2L, 0.8L}, {0.6L, 0.4L}});  // b, a
  auto cat0 = [](FILE *fp) { print_dissim_cat(fp, 0); };
  EXPECT_EQ(written(cat0),
            rows_with("#### ID:DISSIM-CAT0\n#### Attr. ID, Attr. value x0, Attr. value x0', KL-divergence "
                      "D(x0||x0')\n####\n0,a,a,0\n0,a,b,%.12Lg\n0,b,a,%.12Lg\n0,b,b,0\n",
                      0.6L * logl(3.0L) - 0.4L * logl(2.0L), 0.8L * logl(2.0L) - 0.2L * logl(3.0L)));
  set_value_members(0, {{0, 1}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  EXPECT_EXIT(written(cat0), ::testing::ExitedWithCode(1),
              std::string(kDeath) + "0\\|b\\) = 0 \\(smoothing may be required\\)\n$");
}

// Case IDs and member values ("?" where missing) on both sides; equal
// distributions give exactly 0.
TEST_F(DissimTest, GaussianSectionCarriesIdsAndMemberValues) {
  load(Roles{4, "1", 3, 2}, "b,1.5,yes,c1\na,2,no,c2\nb,NA,yes,c3\n", {0.5L, 0.5L});
  set_group_members(0, {{0.5L, 0.5L}, {0.9L, 0.1L}, {0.5L, 0.5L}});
  settings.format_out = FORMAT_TXT;
  auto gauss0 = [](FILE *fp) { print_dissim_gauss(fp, 0); };
  EXPECT_EQ(written(gauss0),
            rows_with("#### ID:DISSIM-GAUSS0\n#### Gauss ID, Case ID of Gauss0, Attr. x1, Case ID of Gauss0', "
                      "Attr. x1', KL-divergence D(Gauss0||Gauss0')\n####\n"
                      "0\tc1\t1.5\tc1\t1.5\t0\n0\tc1\t1.5\tc2\t2\t%1$.12Lg\n0\tc1\t1.5\tc3\t?\t0\n"
                      "0\tc2\t2\tc1\t1.5\t%2$.12Lg\n0\tc2\t2\tc2\t2\t0\n0\tc2\t2\tc3\t?\t%2$.12Lg\n"
                      "0\tc3\t?\tc1\t1.5\t0\n0\tc3\t?\tc2\t2\t%1$.12Lg\n0\tc3\t?\tc3\t?\t0\n",
                      0.5L * logl(0.5L / 0.9L) + 0.5L * logl(0.5L / 0.1L),
                      0.9L * logl(0.9L / 0.5L) + 0.1L * logl(0.1L / 0.5L)));
  settings.mode_hide_attr = 1;
  EXPECT_NE(written(gauss0).find("#### Gauss ID, Case ID of Gauss0, Case ID of Gauss0', "
                                 "KL-divergence D(Gauss0||Gauss0')\n####\n0\tc1\tc1\t0\n"),
            std::string::npos);
  set_group_members(0, {{0.5L, 0.5L}, {1, 0}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  EXPECT_EXIT(written(gauss0), ::testing::ExitedWithCode(1),
              std::string(kDeath) + "1\\|Gauss0\\) = 0 for c2 \\(smoothing should be required\\)\n$");
}

// Sections in the order case, values, Gaussian groups; a full disk (here
// /dev/full) ends the run instead of leaving a short file.
TEST_F(DissimTest, MainWritesEverySectionOrFailsOnAFullDisk) {
  load(kDissimRoles, kDissimRows, {0.5L, 0.5L});
  set_case_members(Dists(3, {0.5L, 0.5L}));
  set_value_members(0, Dists(2, {0.5L, 0.5L}));
  set_group_members(0, Dists(3, {0.5L, 0.5L}));
  snprintf(settings.fname_dissim, sizeof settings.fname_dissim, "%s", path("t_dissim.csv").c_str());
  dissim_main();
  std::string text = read_text(settings.fname_dissim);
  size_t c = text.find("#### ID:DISSIM-CASE\n"), v = text.find("#### ID:DISSIM-CAT0\n"),
         g = text.find("#### ID:DISSIM-GAUSS0\n");
  EXPECT_TRUE(c == 0 && c < v && v < g && g != std::string::npos) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3 * 3 + 9 + 4 + 9);  // headers and rows
  EXPECT_GT(run_times.stime_lap_dissim, 0);
  EXPECT_GE(run_times.etime_lap_dissim, run_times.stime_lap_dissim);
  settings.fp_msg = nullptr;
  snprintf(settings.fname_dissim, sizeof settings.fname_dissim, "/dev/full");
  EXPECT_EXIT(dissim_main(), ::testing::ExitedWithCode(1),
              "^Computing dissimilarities between attribute values\\.\\.\\.Couldn't write /dev/full\n$");
}

// Evaluation measures: repeated cases worked out by hand with the file as
// written, and every measure of small clusterings and their NaN and infinite
// edge cases.
// The measures in the order of the file.
long double Evaluation::*const kMeasures[] = {
    &Evaluation::purity,         &Evaluation::purity_inv, &Evaluation::purity_f,   &Evaluation::rand_index,
    &Evaluation::wallance1,      &Evaluation::wallance2,  &Evaluation::wallance_f, &Evaluation::fowlkes_mallows,
    &Evaluation::adj_rand_index, &Evaluation::jaccard,    &Evaluation::mirkin,     &Evaluation::nmi_score,
    &Evaluation::vi_score,       &Evaluation::nvi_score};
const long double Q = NAN, I = INFINITY;

class EvalTest : public AnalysisTest {
 protected:
  // One discrete attribute (column 0) and the answer class (column 1);
  // `rows` may carry object counts. `pred` is the cluster of each entry.
  void set_up(const char *rows, int k, const std::vector<int> &pred) {
    load(Roles{2, nullptr, -1, 1}, rows, std::vector<long double>(k, 1.0L / k));
    ASSERT_EQ(cases.num_entry, static_cast<int>(pred.size()));
    clusters.cluster_case_pred = static_cast<int *>(calloc(pred.size(), sizeof(int)));
    clusters.cluster_case_freq = static_cast<int *>(calloc(k, sizeof(int)));
    for (size_t n = 0; n < pred.size(); n++) clusters.cluster_case_freq[clusters.cluster_case_pred[n] = pred[n]]++;
    alloc_eval();
    compute_eval();
  }
  void release() {
    release_eval();
    free(clusters.cluster_case_pred);
    free(clusters.cluster_case_freq);
    clusters.cluster_case_pred = clusters.cluster_case_freq = nullptr;
  }
  // Every measure, in file order: NaN wants NaN, an infinity itself.
  void check(const char *rows, int k, const std::vector<int> &pred, const std::vector<long double> &want) {
    SCOPED_TRACE(rows);
    set_up(rows, k, pred);
    for (size_t i = 0; i < want.size(); i++) {
      long double got = eval.*kMeasures[i], w = want[i];
      EXPECT_TRUE(std::isnan(w) ? std::isnan(got) : got == w || fabsl(got - w) <= 1e-15L * (1 + fabsl(w)))
          << i << ": " << static_cast<double>(got) << " vs " << static_cast<double>(w);
    }
    release();
  }
  void TearDown() override {
    release();
    AnalysisTest::TearDown();
  }
};

// Entries p..t with counts 3, 1, 2, 1, 1; classes A A B B C; clusters
// 0 1 1 1 0 and an empty cluster 2. Cells: k0 = {A:3, C:1}, k1 = {A:1, B:3}
// (the match sections). Cluster sizes (entries) 2, 3, 0; class sizes 2, 2,
// 1; N = 5.
TEST_F(EvalTest, RepeatedCasesWorkedByHandAndTheFileAsWritten) {
  set_up("p,A,3\nq,A,1\nr,B,2\ns,B,1\nt,C,1\n", 3, {0, 1, 1, 1, 0});
  // Purity (3 + 3 + 0) / 5, inverse (3 + 3 + 1) / 5, F-Purity 2 * 1.2 * 1.4 / 2.6.
  // TP = C(3) + C(3) = 6, S_pred = C(2) + C(3) = 4, S_ans = C(2) + C(2) = 2,
  // M = C(5) = 10: Rand (10 + 6) / 10, Wallance 6 / 4 and 6 / 2, F-measure
  // 2 * 1.5 * 3 / 4.5, Fowlkes-Mallows sqrt(4.5), with E = 4 * 2 / 10 ARI
  // (6 - 0.8) / (3 - 0.8), Jaccard 6 / 0, Mirkin 20 * (1 - 1.6). With
  // I = 0.6 lg(15/4) + 0.2 lg(5/2) + 0.2 lg(5/6) + 0.6 lg(15/6) and
  // H = H(0.4, 0.6) + H(0.4, 0.4, 0.2): NMI 2I / H, VI H - 2I, NVI 1 - NMI.
  EXPECT_EQ(written(print_eval),
            "#### ID:EVAL-PURITY\n#### Evaluation measure, Value\n"
            "#### -- Weight in F-measure of Purity = 1\n####\n"
            "Purity,1.2\nInverse Purity,1.4\nF-Purity,1.29230769231\n"
            "#### ID:EVAL-RAND\n#### Evaluation measure, Value\n"
            "#### -- Weight in F-measure of Wallance's measures = 1\n####\n"
            "Rand index,1.6\nWallance's measure I,1.5\nWallance's measure II,3\n"
            "F-measure of Wallance's measures,2\nFowlkes and Mallows index,2.12132034356\n"
            "Adjusted Rand index,2.36363636364\nJaccard index,inf\nMirkin metric,-12\n"
            "#### ID:EVAL-NMI\n#### Evaluation measure, Value\n####\n"
            "Normalized mutual information,1.72416729406\nVariation of information,-1.80526121487\n"
            "Normalized variation of information,-0.724167294058\n"
            "#### ID:CLUSTER-MATCH-BY-PREDICTED\n"
            "#### Cluster k [predicted], Answer class, Num. of matched cases\n####\n"
            "0,A,3\n0,B,0\n0,C,1\n1,A,1\n1,B,3\n1,C,0\n2,A,0\n2,B,0\n2,C,0\n"
            "#### ID:CLUSTER-MATCH-BY-ANSWER\n"
            "#### Answer class, Cluster k [predicted], Num. of matched cases\n####\n"
            "A,0,3\nA,1,1\nA,2,0\nB,0,0\nB,1,3\nB,2,0\nC,0,1\nC,1,0\nC,2,0\n");
  settings.weight_purity = 2;
  settings.weight_wallance = 0.5L;
  compute_eval();
  EXPECT_NEAR(static_cast<double>(eval.purity_f), 5 * 1.2 * 1.4 / (4 * 1.2 + 1.4), 1e-15);
  EXPECT_NEAR(static_cast<double>(eval.wallance_f), 1.25 * 1.5 * 3 / (0.25 * 1.5 + 3), 1e-15);
}

TEST_F(EvalTest, SmallClusteringsAndUndefinedMeasures) {
  // Cells {2}, {1}, {1}: TP = 1, S_pred = 1, S_ans = 2, M = 6, E = 1/3; I = 1,
  // H_pred = 1.5, H_ans = 1.
  check("a,0\nb,0\nc,1\nd,1\n", 3, {0, 0, 1, 2},
        {1, 0.75L, 6.0L / 7, 5.0L / 6, 1, 0.5L, 2.0L / 3, sqrtl(0.5L), 4.0L / 7, 0.5L, 2, 0.8L, 0.5L, 0.2L});
  check("a,0\nb,0\nc,1\nd,1\ne,2\n", 3, {2, 2, 0, 0, 1}, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1, 0, 0});  // perfect
  // One cluster and one class: ARI (3 - 3) / (3 - 3), no entropy on either side.
  check("a,0\nb,0\nc,0\n", 1, {0, 0, 0}, {1, 1, 1, 1, 1, 1, 1, 1, Q, 1, 0, Q, 0, Q});
  // One entry, M = 0: with a count of 1 every pair count is 0; with a count
  // of 3 TP = 3, the Rand index 6/0, Jaccard 3 / -3, and I = 3 L (L = log2 3)
  // over no entropy.
  check("p,A\n", 2, {1}, {1, 1, 1, Q, Q, Q, Q, Q, Q, Q, Q, Q, 0, Q});
  const long double L = log2l(3);
  check("p,A,3\n", 2, {1}, {3, 3, 3, I, I, I, Q, I, Q, -1, Q, I, -6 * L, -I});
  // Singleton clusters: S_pred = 0; I = H_ans = H(2/3, 1/3) = L - 2/3, as
  // the cluster decides the class.
  check("a,0\nb,0\nc,1\n", 3, {0, 1, 2},
        {1, 2.0L / 3, 0.8L, 2.0L / 3, Q, 0, Q, Q, 0, 0, 2, 2 * (L - 2.0L / 3) / (2 * L - 2.0L / 3), 2.0L / 3,
         (2.0L / 3) / (2 * L - 2.0L / 3)});
}

// Sample statistics of a small case table with missing values, checked
// against values worked out by hand.
// Column 0 discrete; columns 1, 2 form group 0; column 3 (never observed) is
// group 1. N = 5 (the last line counts twice).
const char *const kTable = "a,1,2,?\na,3,?,NA\nb,?,?,?\na,5,8,?,2\n";
const Roles kStatRoles{4, "1-2#3"};

double d(long double x) { return static_cast<double>(x); }

TEST(Stat, SampleMeanAndCovarianceWithMissingValues) {
  read_text_as(kStatRoles, kTable);
  compute_stats();
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
  read_text_as(kStatRoles, kTable);
  settings.mode_regular_stat = 1;
  compute_stats();
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
  read_text_as(kStatRoles, kTable, "csv", log_fp);
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
  EXPECT_NEAR(d(stats.sample_s_raw[0][0][1]), 2, 1e-15);
}

// Quantiles of values given with occurrence counts.
struct CountCase {
  std::vector<long double> values;
  std::vector<int> counts;
  long double q, expected;
};

// Positions worked out by hand, 1 + q (M - 1) in the sample of M values
// repeated by their counts.
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
    long double counted = get_quantile_count(r.q, static_cast<int>(r.values.size()), r.values.data(), r.counts.data());
    EXPECT_NEAR(static_cast<double>(counted), static_cast<double>(r.expected), 1e-12) << static_cast<double>(r.q);
  }
}

TEST(Quantile, EmptySampleIsTooSmall) {
  setup_process_state();
  long double none[1] = {0};
  int zero[1] = {0};
  EXPECT_EXIT(get_quantile_count(0.25L, 0, none, zero), testing::ExitedWithCode(1),
              "Too small data \\(size = 0\\) for computing 0\\.250000-quantile");
}

}  // namespace
