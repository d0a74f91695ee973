// The three analyses through the binary: a parameter file read with -R gives
// memberships known in closed form, worked out by hand; a fitted iris model
// runs every phase in order.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

bool ends_with(const std::string &text, const std::string &end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Memberships (one discrete attribute, two equally likely classes):
// P(0|a) = 6/7, P(0|b) = 1/2, P(0|c) = 1/7. Entry a occurs twice, b twice
// (merged lines), c once; a is answer class x, b and c are y.
const char kToyParam[] =
    "#### ID:PARAM-CLASS\n#### Class k, Class parameter P(k)\n####\n0,0.5\n1,0.5\n"
    "#### ID:PARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. parameter P(x0|k)\n####\n"
    "0,0,a,0.6\n0,0,b,0.3\n0,0,c,0.1\n0,1,a,0.1\n0,1,b,0.3\n0,1,c,0.6\n";
const std::vector<std::string> kToyRun = {"-f", "toy", "-x", "2", "-E", "1", "-R", "--dissim", "-z"};

void toy_dir(TempDir &dir, const char *param = kToyParam, const char *cases = "a,x\na,x\nb,y\nc,y\nb,y\n") {
  dir.write("toy_freq.csv", cases);
  dir.write("toy_param.csv", param);
}

// Clusters: a -> 0, b -> 0 (a tie goes to class 0), c -> 1. Cells add
// occurrence counts: (0,x) = 2, (0,y) = 2, (1,y) = 1; N, the cluster sizes
// (2, 1) and the class sizes (1, 2) count entries. Purity (2 + 1) / 3,
// inverse (2 + 2) / 3, F 8/7; TP = C(2) + C(2) = 2, S_pred = S_ans = C(2) = 1,
// M = C(3) = 3: Rand 5/3, ARI (2 - 1/3) / (1 - 1/3), Jaccard 2/0, Mirkin
// 6 (1 - 5/3). I = 2/3 lg 3 + lg 1.5 and H = H(2/3, 1/3) on both sides:
// NMI I / H, VI 2 (H - I), NVI 1 - I / H. Ranking with a count of 1: equal
// class probabilities keep class order.
TEST(AnalysisToy, EvaluationRankingAndPhasesWorkedByHand) {
  TempDir dir;
  toy_dir(dir);
  RunResult r = run_vesk(dir, with(kToyRun, {"1"}));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("Clustering cases...done\nEvaluating clusters...done\nRanking relevant cases/attvals...done\n"
                       "Computing dissimilarities between attribute values...done\n"),
            std::string::npos)
      << r.err;
  std::string rows;
  for (const std::string &l : split_lines(dir.read("toy_eval.csv")))
    if (l.rfind("####", 0) != 0) rows += l + "\n";
  EXPECT_EQ(rows,
            "Purity,1\nInverse Purity,1.33333333333\nF-Purity,1.14285714286\nRand index,1.66666666667\n"
            "Wallance's measure I,2\nWallance's measure II,2\nF-measure of Wallance's measures,2\n"
            "Fowlkes and Mallows index,2\nAdjusted Rand index,2.5\nJaccard index,inf\nMirkin metric,-4\n"
            "Normalized mutual information,1.78766374298\nVariation of information,-1.44661666763\n"
            "Normalized variation of information,-0.78766374298\n"
            "0,x,2\n0,y,2\n1,x,0\n1,y,1\nx,0,2\nx,1,0\ny,0,2\ny,1,1\n");
  std::string rank = dir.read("toy_rank.csv");
  EXPECT_EQ(section_rows(rank, "RANK-CASE"),
            (std::vector<std::string>{"0,x,0,a,0.5,0.857142857143", "1,y,2,c,0.5,0.857142857143"}));
  EXPECT_EQ(section_rows(rank, "RANK-CAT0"),
            (std::vector<std::string>{"0,0,a,0.5,0.857142857143", "0,1,c,0.5,0.857142857143"}));
  EXPECT_EQ(section_rows(dir.read("toy_dissim.csv"), "DISSIM-CASE").size(), 9u);
  std::vector<std::string>
      cpu = section_rows(dir.read("toy_log.csv"), "CPUTIME"),
      labels = split_fields(
          "Reading cases,|Computing clusters,|Evaluation,|Relevance analysis,|Computing dissimilarities,", '|');
  ASSERT_EQ(cpu.size(), labels.size());
  for (size_t i = 0; i < cpu.size(); i++) EXPECT_EQ(cpu[i].rfind(labels[i], 0), 0u) << cpu[i];
}

// P(0|c) = 0: the divergence of a from c is undefined. The run stops there;
// the cluster, evaluation and rank files stay complete, and the unfinished
// dissimilarity file is not left behind.
TEST(AnalysisToy, ZeroMembershipStopsTheDissimilarities) {
  TempDir dir;
  toy_dir(dir,
          "#### ID:PARAM-CLASS\n####\n0,0.5\n1,0.5\n#### ID:PARAM-CAT0\n####\n"
          "0,0,a,0.6\n0,0,b,0.4\n0,0,c,0\n0,1,a,0.2\n0,1,b,0.3\n0,1,c,0.5\n",
          "a,x\nb,y\n");
  RunResult r = run_vesk(dir, with(kToyRun, {"0"}));
  EXPECT_EQ(r.status, 1);
  const std::string msg = "Couldn't compute KL div. since P(Class=0|c) = 0 (smoothing may be required)\n";
  EXPECT_TRUE(ends_with(r.err, msg)) << r.err;
  EXPECT_TRUE(ends_with(dir.read("toy_log.csv"), msg));
  EXPECT_FALSE(dir.exists("toy_dissim.csv"));
  EXPECT_NE(dir.read("toy_eval.csv").find("#### ID:CLUSTER-MATCH-BY-ANSWER\n"), std::string::npos);
  EXPECT_EQ(section_rows(dir.read("toy_rank.csv"), "RANK-CAT0").size(), 6u);  // three values, two classes
}

TEST(AnalysisToy, UnwritableResultFilesFailWithTheirName) {
  for (const char *file : {"toy_eval.csv", "toy_rank.csv", "toy_dissim.csv"}) {
    TempDir dir;
    toy_dir(dir);
    ASSERT_EQ(mkdir(dir.file(file).c_str(), 0755), 0);
    RunResult r = run_vesk(dir, with(kToyRun, {"2"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(ends_with(r.err, std::string("Couldn't open ") + file + "\n")) << r.err;
  }
}

// ---- a fitted model, checked against its own membership and cluster files ----

struct IrisRun {
  TempDir dir;
  RunResult result;
  IrisRun() {
    dir.copy_data("iris_freq.csv");
    result = run_vesk(dir, split_fields("-f iris -x 5 -u 0-3 -E 4 -k 3 -A -n 2 -r 7 -z 0 --dissim -D "
                                        "--show-attr-memp --prec-out 25 --output txt",
                                        ' '));
  }
};

const IrisRun &iris() {
  static IrisRun run;
  return run;
}

TEST(AnalysisIris, RunsEveryPhaseInOrder) {
  const RunResult &r = iris().result;
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("Computing membership distributions...done\n"
                       "Computing dissimilarities between attribute values...done\n"
                       "Ranking relevant cases/attvals...done\nClustering cases...done\nEvaluating clusters...done\n"),
            std::string::npos)
      << r.err;
  std::string log = iris().dir.read("iris_log.txt");
  std::vector<std::string> labels = split_fields(
      "Reading cases\t|EM\t|Computing membership probs\t|Computing clusters\t|Evaluation\t|Relevance analysis\t|"
      "Computing dissimilarities\t",
      '|');
  for (const char *id : {"CPUTIME", "LAPTIME"}) {
    std::vector<std::string> rows = section_rows(log, id);
    ASSERT_EQ(rows.size(), 7u) << id;
    for (int i = 0; i < 7; i++) EXPECT_EQ(rows[i].rfind(labels[i], 0), 0u) << rows[i];
  }
}

}  // namespace
