// Evaluation measures: a contingency table with repeated cases worked out by
// hand (cells add occurrence counts, N and the cluster and class sizes count
// entries), a small example with its standard values, the edge cases with
// NaN and infinite values, and the evaluation file as written. The standard
// definitions on a larger data set are checked through the binary.
#include "analysis/eval.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "analysis_fixture.h"
#include "output/print.h"

namespace {

void expect_close(long double got, long double want) {
  EXPECT_NEAR(static_cast<double>(got), static_cast<double>(want), 1e-15 * (1 + fabsl(want)));
}

class EvalTest : public AnalysisTest {
 protected:
  // One discrete attribute (column 0) and the answer class (column 1);
  // `rows` may carry object counts. `pred` is the cluster of each entry.
  void set_up(const char *rows, int k, const std::vector<int> &pred) {
    load(Roles{2, nullptr, -1, 1}, rows, std::vector<long double>(k, 1.0L / k));
    ASSERT_EQ(cases.num_entry, static_cast<int>(pred.size()));
    free(clusters.cluster_case_pred);
    free(clusters.cluster_case_freq);
    clusters.cluster_case_pred = static_cast<int *>(calloc(pred.size(), sizeof(int)));
    clusters.cluster_case_freq = static_cast<int *>(calloc(k, sizeof(int)));
    for (size_t n = 0; n < pred.size(); n++) {
      clusters.cluster_case_pred[n] = pred[n];
      clusters.cluster_case_freq[pred[n]]++;
    }
    alloc_eval();
    compute_eval();
  }
  void TearDown() override {
    release_eval();
    free(clusters.cluster_case_pred);
    free(clusters.cluster_case_freq);
    clusters.cluster_case_pred = clusters.cluster_case_freq = nullptr;
    AnalysisTest::TearDown();
  }
  // Rows "v<i>,<class>" with distinct values, so that every line is an entry
  // of count 1.
  void set_up_labels(const std::vector<int> &ans, const std::vector<int> &pred, int k) {
    std::string rows;
    for (size_t i = 0; i < ans.size(); i++) rows += "v" + std::to_string(i) + ",c" + std::to_string(ans[i]) + "\n";
    set_up(rows.c_str(), k, pred);
  }
};

long double log2_(long double x) { return logl(x) / logl(2.0L); }

// Entries p..t with counts 3, 1, 2, 1, 1; classes A A B B C; clusters
// 0 1 1 1 0 and an empty cluster 2. Cells: k0 = {A:3, C:1}, k1 = {A:1, B:3}.
// Cluster sizes (entries) 2, 3, 0; class sizes 2, 2, 1; N = 5.
TEST_F(EvalTest, ContingencyWithRepeatedCasesWorkedByHand) {
  set_up("p,A,3\nq,A,1\nr,B,2\ns,B,1\nt,C,1\n", 3, {0, 1, 1, 1, 0});
  const int cells[3][3] = {{3, 0, 1}, {1, 3, 0}, {0, 0, 0}};
  for (int k = 0; k < 3; k++)
    for (int a = 0; a < 3; a++) EXPECT_EQ(eval.cluster_case_freq_joint[k][a], cells[k][a]) << k << a;
  expect_close(eval.purity, 6.0L / 5);      // (3 + 3 + 0) / 5
  expect_close(eval.purity_inv, 7.0L / 5);  // (3 + 3 + 1) / 5
  expect_close(eval.purity_f, 2 * 1.2L * 1.4L / 2.6L);
  // TP = C(3) + C(3) = 6, S_pred = C(2) + C(3) = 4, S_ans = C(2) + C(2) = 2, M = C(5) = 10
  expect_close(eval.rand_index, 16.0L / 10);  // TN = 10 - (4 + 2 - 6) = 10
  expect_close(eval.wallance1, 6.0L / 4);
  expect_close(eval.wallance2, 6.0L / 2);
  expect_close(eval.wallance_f, 2.0L);
  expect_close(eval.fowlkes_mallows, sqrtl(4.5L));
  expect_close(eval.adj_rand_index, (6 - 0.8L) / (3 - 0.8L));  // E = 4 * 2 / 10
  EXPECT_TRUE(std::isinf(eval.jaccard));                       // 6 / 0
  expect_close(eval.mirkin, -12.0L);
  long double info = 0.6L * log2_(15.0L / 4) + 0.2L * log2_(5.0L / 2) + 0.2L * log2_(5.0L / 6) +
                     0.6L * log2_(15.0L / 6);
  long double h_pred = -(0.4L * log2_(0.4L) + 0.6L * log2_(0.6L));
  long double h_ans = -(0.8L * log2_(0.4L) + 0.2L * log2_(0.2L));
  expect_close(eval.nmi_score, 2 * info / (h_pred + h_ans));
  expect_close(eval.vi_score, h_pred + h_ans - 2 * info);
  expect_close(eval.nvi_score, 1 - 2 * info / (h_pred + h_ans));
}

TEST_F(EvalTest, WeightsOfTheFMeasures) {
  set_up("p,A,3\nq,A,1\nr,B,2\ns,B,1\nt,C,1\n", 3, {0, 1, 1, 1, 0});
  settings.weight_purity = 2;
  settings.weight_wallance = 0.5L;
  compute_eval();
  expect_close(eval.purity_f, 5 * 1.2L * 1.4L / (4 * 1.2L + 1.4L));
  expect_close(eval.wallance_f, 1.25L * 1.5L * 3 / (0.25L * 1.5L + 3));
}

// Classes 0 0 1 1 against clusters 0 0 1 2: ARI 4/7, Fowlkes-Mallows
// 1 / sqrt(2) (one common pair, one predicted, two answer pairs).
TEST_F(EvalTest, SmallPublishedExample) {
  set_up_labels({0, 0, 1, 1}, {0, 0, 1, 2}, 3);
  expect_close(eval.adj_rand_index, 4.0L / 7);
  expect_close(eval.fowlkes_mallows, 1 / sqrtl(2.0L));
  expect_close(eval.rand_index, 5.0L / 6);
  expect_close(eval.jaccard, 0.5L);
}

TEST_F(EvalTest, PerfectClustering) {
  set_up_labels({0, 0, 1, 1, 2}, {2, 2, 0, 0, 1}, 3);
  for (long double v : {eval.purity, eval.purity_inv, eval.purity_f, eval.rand_index, eval.jaccard,
                        eval.fowlkes_mallows, eval.adj_rand_index, eval.nmi_score})
    expect_close(v, 1);
  expect_close(eval.vi_score, 0);
  expect_close(eval.mirkin, 0);
}

TEST_F(EvalTest, OneClusterAndOneClassGiveUndefinedNmi) {
  set_up_labels({0, 0, 0}, {0, 0, 0}, 1);
  EXPECT_TRUE(std::isnan(eval.nmi_score));
  EXPECT_TRUE(std::isnan(eval.nvi_score));
  expect_close(eval.vi_score, 0);
  expect_close(eval.rand_index, 1);
}

// One entry: no pairs (M = 0). With a count of 1 every pair count is 0 and
// the Rand family is 0/0; with a count of 3 TP = 3 and the Rand index is 6/0.
TEST_F(EvalTest, FewerThanTwoEntries) {
  set_up("p,A\n", 2, {1});
  EXPECT_TRUE(std::isnan(eval.rand_index));
  EXPECT_TRUE(std::isnan(eval.adj_rand_index));
  EXPECT_TRUE(std::isnan(eval.mirkin));
  release_eval();
  set_up("p,A,3\n", 2, {1});
  EXPECT_TRUE(std::isinf(eval.rand_index) && eval.rand_index > 0);
  EXPECT_TRUE(std::isnan(eval.mirkin));  // 0 * -inf
  expect_close(eval.purity, 3);
}

TEST_F(EvalTest, AllSingletonClusters) {
  set_up_labels({0, 0, 1}, {0, 1, 2}, 3);
  EXPECT_TRUE(std::isnan(eval.wallance1));  // 0 / 0
  expect_close(eval.wallance2, 0);
  expect_close(eval.purity, 1);
}

TEST_F(EvalTest, FileListsMeasuresAndEveryCellOfBothMatchSections) {
  set_up("p,A,3\nq,A,1\nr,B,2\ns,B,1\nt,C,1\n", 3, {0, 1, 1, 1, 0});
  FILE *fp = tmpfile();
  print_eval(fp);
  std::string text = stream_text(fp);
  fclose(fp);
  char nmi[64], vi[64], nvi[64];
  snprintf(nmi, sizeof nmi, "%.12Lg", eval.nmi_score);
  snprintf(vi, sizeof vi, "%.12Lg", eval.vi_score);
  snprintf(nvi, sizeof nvi, "%.12Lg", eval.nvi_score);
  EXPECT_EQ(text, std::string("#### ID:EVAL-PURITY\n#### Evaluation measure, Value\n"
                              "#### -- Weight in F-measure of Purity = 1\n####\n"
                              "Purity,1.2\nInverse Purity,1.4\nF-Purity,1.29230769231\n"
                              "#### ID:EVAL-RAND\n#### Evaluation measure, Value\n"
                              "#### -- Weight in F-measure of Wallance's measures = 1\n####\n"
                              "Rand index,1.6\nWallance's measure I,1.5\nWallance's measure II,3\n"
                              "F-measure of Wallance's measures,2\nFowlkes and Mallows index,2.12132034356\n"
                              "Adjusted Rand index,2.36363636364\nJaccard index,inf\nMirkin metric,-12\n"
                              "#### ID:EVAL-NMI\n#### Evaluation measure, Value\n####\n"
                              "Normalized mutual information,") +
                      nmi + "\nVariation of information," + vi + "\nNormalized variation of information," + nvi +
                      "\n#### ID:CLUSTER-MATCH-BY-PREDICTED\n"
                      "#### Cluster k [predicted], Answer class, Num. of matched cases\n####\n"
                      "0,A,3\n0,B,0\n0,C,1\n1,A,1\n1,B,3\n1,C,0\n2,A,0\n2,B,0\n2,C,0\n"
                      "#### ID:CLUSTER-MATCH-BY-ANSWER\n"
                      "#### Answer class, Cluster k [predicted], Num. of matched cases\n####\n"
                      "A,0,3\nA,1,1\nA,2,0\nB,0,0\nB,1,3\nB,2,0\nC,0,1\nC,1,0\nC,2,0\n");
}

TEST_F(EvalTest, MainFailsOnTheFileOpen) {
  set_up("p,A\nq,B\n", 2, {0, 1});
  release_eval();
  snprintf(settings.fname_eval, sizeof settings.fname_eval, "%s", path("none/t_eval.csv").c_str());
  settings.fp_msg = nullptr;
  EXPECT_EXIT(eval_main(), ::testing::ExitedWithCode(1), "^Couldn't open .*/none/t_eval\\.csv\n$");
}

}  // namespace
