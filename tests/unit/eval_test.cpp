// Evaluation measures: repeated cases worked out by hand with the file as
// written, and every measure of small clusterings and their NaN and infinite
// edge cases.
#include "analysis/eval.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "analysis_fixture.h"
#include "output/print.h"

namespace {

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

}  // namespace
