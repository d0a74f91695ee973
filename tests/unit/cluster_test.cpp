// Membership distributions against Bayes' rule worked out by hand, the
// deliberate differences of the log path, the hard clustering with its tie
// rules and sorted value lists, and the membership sections.
#include "driver/run.h"
#include "model/cluster.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "input/read_freq.h"
#include "model/allocate.h"
#include "output/print.h"
#include "test_util.h"

namespace {

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
    settings.attr_info = static_cast<AttrInfo *>(calloc(2, sizeof(AttrInfo)));
    settings.attr_info[1] = AttrInfo{1, 0, 0};
    settings.gauss_size = 1;
    settings.gauss_attr_size = static_cast<int *>(calloc(1, sizeof(int)));
    settings.gauss_attr_size[0] = 1;
    settings.gauss_attr = static_cast<int **>(calloc(1, sizeof(int *)));
    settings.gauss_attr[0] = static_cast<int *>(calloc(1, sizeof(int)));
    settings.gauss_attr[0][0] = 1;
    settings.tuple_size_d = settings.tuple_size_c = 1;
    settings.mode_nominal = settings.mode_gauss = settings.mode_em = 1;
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
    settings.mode_smooth_strict = m[1];
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
    settings.mode_log_scale = settings.mode_smooth_strict = log_path;
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

}  // namespace
