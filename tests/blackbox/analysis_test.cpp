// The three analyses through the binary. A hand-written parameter file read
// with -R gives memberships known in closed form, so the evaluation, ranking
// and dissimilarity files are checked against values worked out by hand
// (including the failure on a zero membership). A fitted iris model is
// checked against its own membership and cluster files, printed with 25
// digits: divergences recomputed from the memberships, rankings from an
// independent stable sort, evaluation measures by pair enumeration and
// entropies (the standard definitions: every case occurs once).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

std::vector<std::vector<std::string>> table(const std::string &text, const std::string &id, char delim) {
  std::vector<std::vector<std::string>> rows;
  for (const std::string &l : section_rows(text, id)) rows.push_back(split_fields(l, delim));
  return rows;
}

long double num(const std::string &s) { return strtold(s.c_str(), nullptr); }

void expect_num(const std::string &field, long double want, long double tol = 1e-11L) {
  long double got = num(field);
  EXPECT_TRUE(fabsl(got - want) <= tol * (1 + fabsl(want))) << field << " vs " << static_cast<double>(want);
}

long double lg2(long double x) { return logl(x) / logl(2.0L); }

// Memberships (one discrete attribute, two equally likely classes):
// P(0|a) = 6/7, P(0|b) = 1/2, P(0|c) = 1/7. Entry a occurs twice, b twice
// (merged lines), c once; a is answer class x, b and c are y.
const char kToyCases[] = "a,x\na,x\nb,y\nc,y\nb,y\n";
const char kToyParam[] =
    "#### ID:PARAM-CLASS\n#### Class k, Class parameter P(k)\n####\n0,0.5\n1,0.5\n"
    "#### ID:PARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. parameter P(x0|k)\n####\n"
    "0,0,a,0.6\n0,0,b,0.3\n0,0,c,0.1\n0,1,a,0.1\n0,1,b,0.3\n0,1,c,0.6\n";
const std::vector<std::string> kToyRun = {"-f", "toy", "-x", "2", "-E", "1", "-R"};

TempDir *toy_dir(TempDir &dir, const char *param = kToyParam, const char *cases = kToyCases) {
  dir.write("toy_freq.csv", cases);
  dir.write("toy_param.csv", param);
  return &dir;
}

// Clusters: a -> 0, b -> 0 (a tie goes to class 0), c -> 1. Cells add
// occurrence counts: (0,x) = 2, (0,y) = 2, (1,y) = 1; N, the cluster sizes
// (2, 1) and the class sizes (1, 2) count entries.
TEST(AnalysisToy, EvaluationMixesOccurrenceCountsAndEntries) {
  TempDir dir;
  toy_dir(dir);
  RunResult r = run_vesk(dir, kToyRun);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("Clustering cases...done\nEvaluating clusters...done\n"), std::string::npos) << r.err;
  std::string text = dir.read("toy_eval.csv");
  std::map<std::string, std::string> v;
  for (const char *id : {"EVAL-PURITY", "EVAL-RAND", "EVAL-NMI"})
    for (const auto &row : table(text, id, ',')) v[row[0]] = row[1];
  ASSERT_EQ(v.size(), 14u);
  expect_num(v["Purity"], 1);                 // (2 + 1) / 3
  expect_num(v["Inverse Purity"], 4.0L / 3);  // (2 + 2) / 3
  expect_num(v["F-Purity"], 2 * (4.0L / 3) / (1 + 4.0L / 3));
  // TP = C(2) + C(2) = 2, S_pred = C(2) = 1, S_ans = C(2) = 1, M = C(3) = 3
  expect_num(v["Rand index"], 5.0L / 3);
  expect_num(v["Wallance's measure I"], 2);
  expect_num(v["Wallance's measure II"], 2);
  expect_num(v["F-measure of Wallance's measures"], 2);
  expect_num(v["Fowlkes and Mallows index"], 2);
  expect_num(v["Adjusted Rand index"], 2.5L);  // (2 - 1/3) / (1 - 1/3)
  EXPECT_EQ(v["Jaccard index"], "inf");
  expect_num(v["Mirkin metric"], -4);
  long double info = 2.0L / 3 * lg2(3) + 2.0L / 3 * lg2(1.5L) + 1.0L / 3 * lg2(1.5L);
  long double h = -(2.0L / 3 * lg2(2.0L / 3) + 1.0L / 3 * lg2(1.0L / 3));  // both sides
  expect_num(v["Normalized mutual information"], info / h);
  expect_num(v["Variation of information"], 2 * h - 2 * info);
  expect_num(v["Normalized variation of information"], 1 - info / h);
  EXPECT_EQ(section_rows(text, "CLUSTER-MATCH-BY-PREDICTED"),
            (std::vector<std::string>{"0,x,2", "0,y,2", "1,x,0", "1,y,1"}));
  EXPECT_EQ(section_rows(text, "CLUSTER-MATCH-BY-ANSWER"),
            (std::vector<std::string>{"x,0,2", "x,1,0", "y,0,2", "y,1,1"}));
}

TEST(AnalysisToy, RankingTopEntriesAndPhaseTimes) {
  TempDir dir;
  toy_dir(dir);
  RunResult r = run_vesk(dir, with(kToyRun, {"-z", "1", "--dissim"}));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("Evaluating clusters...done\nRanking relevant cases/attvals...done\n"
                       "Computing dissimilarities between attribute values...done\n"),
            std::string::npos)
      << r.err;
  std::string rank = dir.read("toy_rank.csv");
  // Equal class probabilities keep class order; one entry per class.
  EXPECT_EQ(section_rows(rank, "RANK-CASE"),
            (std::vector<std::string>{"0,x,0,a,0.5,0.857142857143", "1,y,2,c,0.5,0.857142857143"}));
  EXPECT_EQ(section_rows(rank, "RANK-CAT0"),
            (std::vector<std::string>{"0,0,a,0.5,0.857142857143", "0,1,c,0.5,0.857142857143"}));
  EXPECT_EQ(section_rows(dir.read("toy_dissim.csv"), "DISSIM-CASE").size(), 9u);
  std::vector<std::string> cpu = section_rows(dir.read("toy_log.csv"), "CPUTIME");
  ASSERT_EQ(cpu.size(), 5u);
  const char *labels[5] = {"Reading cases,", "Computing clusters,", "Evaluation,", "Relevance analysis,",
                           "Computing dissimilarities,"};
  for (int i = 0; i < 5; i++) EXPECT_EQ(cpu[i].rfind(labels[i], 0), 0u) << cpu[i];
}

// P(0|c) = 0: the divergence of a from c is undefined. The run stops there;
// the cluster, evaluation and rank files and every dissimilarity row before
// the pair stay complete.
TEST(AnalysisToy, ZeroMembershipStopsTheDissimilarities) {
  TempDir dir;
  toy_dir(dir,
          "#### ID:PARAM-CLASS\n####\n0,0.5\n1,0.5\n#### ID:PARAM-CAT0\n####\n"
          "0,0,a,0.6\n0,0,b,0.4\n0,0,c,0\n0,1,a,0.2\n0,1,b,0.3\n0,1,c,0.5\n",
          "a,x\nb,y\n");
  RunResult r = run_vesk(dir, with(kToyRun, {"-z", "0", "--dissim"}));
  EXPECT_EQ(r.status, 1);
  const std::string msg = "Couldn't compute KL div. since P(Class=0|c) = 0 (smoothing may be required)\n";
  ASSERT_GE(r.err.size(), msg.size());
  EXPECT_EQ(r.err.substr(r.err.size() - msg.size()), msg);
  std::string log = dir.read("toy_log.csv");
  EXPECT_EQ(log.substr(log.size() - msg.size()), msg);
  std::string dissim = dir.read("toy_dissim.csv");
  EXPECT_EQ(table(dissim, "DISSIM-CASE", ',').size(), 4u);
  auto values = table(dissim, "DISSIM-CAT0", ',');
  ASSERT_EQ(values.size(), 2u);  // (a, a) and (a, b)
  // P(.|a) = (3/4, 1/4), P(.|b) = (4/7, 3/7)
  expect_num(values[1][3], 0.75L * logl(0.75L / (4.0L / 7)) + 0.25L * logl(0.25L / (3.0L / 7)), 1e-10L);
  EXPECT_EQ(dissim.back(), '\n');
  EXPECT_NE(dir.read("toy_eval.csv").find("#### ID:CLUSTER-MATCH-BY-ANSWER\n"), std::string::npos);
  EXPECT_EQ(section_rows(dir.read("toy_rank.csv"), "RANK-CAT0").size(), 6u);  // three values, two classes
}

TEST(AnalysisToy, UnwritableResultFilesFailWithTheirName) {
  for (const char *file : {"toy_eval.csv", "toy_rank.csv", "toy_dissim.csv"}) {
    TempDir dir;
    toy_dir(dir);
    ASSERT_EQ(mkdir(dir.file(file).c_str(), 0755), 0);
    RunResult r = run_vesk(dir, with(kToyRun, {"-z", "2", "--dissim"}));
    EXPECT_EQ(r.status, 1);
    std::string msg = std::string("Couldn't open ") + file + "\n";
    EXPECT_EQ(r.err.substr(r.err.size() - msg.size()), msg) << r.err;
  }
}

// ---- a fitted model, checked against its own membership and cluster files ----

struct IrisRun {
  TempDir dir;
  RunResult result;
  std::string memp, cluster, rank, dissim, eval, log;
  IrisRun() {
    dir.copy_data("iris_freq.csv");
    result = run_vesk(dir, {"-f", "iris", "-x", "5", "-u", "0-3", "-E", "4", "-k", "3", "-A", "-n", "2", "-r", "7",
                            "-z", "0", "--dissim", "-D", "--show-attr-memp", "--prec-out", "25", "--output", "txt"});
    memp = dir.read("iris_memp.txt");
    cluster = dir.read("iris_cluster.txt");
    rank = dir.read("iris_rank.txt");
    dissim = dir.read("iris_dissim.txt");
    eval = dir.read("iris_eval.txt");
    log = dir.read("iris_log.txt");
  }
};

IrisRun &iris() {
  static IrisRun run;
  return run;
}

// Memberships per class from a MEMBER section: [k][entry], and P(k).
struct Members {
  std::vector<std::vector<long double>> p;
  std::vector<long double> c;
};

Members members_of(const std::string &text, const std::string &id) {
  Members m;
  for (const auto &row : table(text, id, '\t')) {
    size_t n = row.size();
    int k = std::stoi(row[n - 5]);
    if (static_cast<int>(m.p.size()) <= k) m.p.resize(k + 1), m.c.resize(k + 1);
    m.p[k].push_back(num(row[n - 1]));
    m.c[k] = num(row[n - 4]);
  }
  return m;
}

TEST(AnalysisIris, RunsEveryPhaseInOrder) {
  const IrisRun &run = iris();
  ASSERT_EQ(run.result.status, 0) << run.result.err;
  EXPECT_NE(run.result.err.find("Computing membership distributions...done\n"
                                "Computing dissimilarities between attribute values...done\n"
                                "Ranking relevant cases/attvals...done\nClustering cases...done\n"
                                "Evaluating clusters...done\n"),
            std::string::npos)
      << run.result.err;
  std::vector<std::string> cpu = section_rows(run.log, "CPUTIME"), lap = section_rows(run.log, "LAPTIME");
  const char *labels[7] = {"Reading cases\t", "EM\t", "Computing membership probs\t", "Computing clusters\t",
                           "Evaluation\t", "Relevance analysis\t", "Computing dissimilarities\t"};
  ASSERT_EQ(cpu.size(), 7u);
  ASSERT_EQ(lap.size(), 7u);
  for (int i = 0; i < 7; i++) {
    EXPECT_EQ(cpu[i].rfind(labels[i], 0), 0u) << cpu[i];
    EXPECT_EQ(lap[i].rfind(labels[i], 0), 0u) << lap[i];
  }
}

TEST(AnalysisIris, DivergencesFromTheMembershipFile) {
  const IrisRun &run = iris();
  ASSERT_EQ(run.result.status, 0);
  for (const char *kind : {"CASE", "GAUSS0"}) {
    SCOPED_TRACE(kind);
    Members m = members_of(run.memp, std::string("MEMBER-") + kind);
    ASSERT_EQ(m.p.size(), 3u);
    size_t n = m.p[0].size();
    ASSERT_EQ(n, 150u);
    auto rows = table(run.dissim, std::string("DISSIM-") + kind, '\t');
    ASSERT_EQ(rows.size(), n * n);
    int checked = 0;
    for (size_t x = 0; x < n; x++)
      for (size_t y = 0; y < n; y++) {
        long double d = 0;
        for (int k = 0; k < 3; k++)
          if (m.p[k][x] > 0) d += m.p[k][x] * logl(m.p[k][x] / m.p[k][y]);
        const auto &row = rows[x * n + y];
        if (fabsl(num(row.back()) - d) > 1e-15L + 1e-12L * fabsl(d)) {
          if (checked++ < 5) ADD_FAILURE() << x << " " << y << ": " << row.back() << " vs " << static_cast<double>(d);
        }
        if (x == y && row.back() != "0") ADD_FAILURE() << "D(x||x) = " << row.back();
      }
    EXPECT_EQ(checked, 0);
  }
  auto first = table(run.dissim, "DISSIM-GAUSS0", '\t')[1];
  EXPECT_EQ(first.size(), 12u);  // group, ID and four values of each side, D
  EXPECT_EQ(first[0] + "|" + first[1] + "|" + first[6], "0|0|1");
}

// Entries of each class by decreasing membership, equal ones (iris repeats
// some cases) in entry order; classes by decreasing P(k).
std::vector<std::string> expected_ranking(const Members &m) {
  std::vector<int> classes(m.c.size());
  for (size_t k = 0; k < classes.size(); k++) classes[k] = static_cast<int>(k);
  std::sort(classes.begin(), classes.end(), [&m](int a, int b) { return m.c[a] != m.c[b] ? m.c[a] > m.c[b] : a < b; });
  std::vector<std::string> out;
  for (int k : classes) {
    const std::vector<long double> &p = m.p[k];
    std::vector<int> idx(p.size());
    for (size_t i = 0; i < idx.size(); i++) idx[i] = static_cast<int>(i);
    std::sort(idx.begin(), idx.end(), [&p](int a, int b) { return p[a] != p[b] ? p[a] > p[b] : a < b; });
    for (int i : idx) out.push_back(std::to_string(k) + ":" + std::to_string(i));
  }
  return out;
}

TEST(AnalysisIris, RankingIsAStableSortOfTheMembershipFile) {
  const IrisRun &run = iris();
  ASSERT_EQ(run.result.status, 0);
  const std::pair<const char *, const char *> pairs[] = {{"MEMBER-CASE", "RANK-CASE"},
                                                         {"MEMBER-GAUSS0", "RANK-GAUSS0"}};
  for (const auto &pr : pairs) {
    SCOPED_TRACE(pr.second);
    Members m = members_of(run.memp, pr.first);
    std::vector<std::string> got;
    bool case_section = std::string(pr.second) == "RANK-CASE";
    for (const auto &row : table(run.rank, pr.second, '\t'))
      got.push_back(row[case_section ? 0 : 1] + ":" + row[2]);
    std::vector<std::string> want = expected_ranking(m);
    EXPECT_EQ(got, want);
  }
  int ties = 0;  // the data has equal memberships, so the tie rule is exercised
  Members m = members_of(run.memp, "MEMBER-CASE");
  for (size_t i = 0; i < m.p[0].size(); i++)
    for (size_t j = i + 1; j < m.p[0].size(); j++) ties += m.p[0][i] == m.p[0][j];
  EXPECT_GT(ties, 0);
}

TEST(AnalysisIris, EvaluationByPairEnumerationOfTheClusterFile) {
  const IrisRun &run = iris();
  ASSERT_EQ(run.result.status, 0);
  std::vector<int> pred;
  std::vector<std::string> ans;
  for (const auto &row : table(run.cluster, "CLUSTER-CASE-BY-CASE", '\t')) {
    ans.push_back(row[1]);
    pred.push_back(std::stoi(row[2]));
  }
  ASSERT_EQ(pred.size(), 150u);
  long double both = 0, same_pred = 0, same_ans = 0, pairs = 0;
  for (size_t i = 0; i < pred.size(); i++)
    for (size_t j = i + 1; j < pred.size(); j++) {
      pairs++;
      same_pred += pred[i] == pred[j];
      same_ans += ans[i] == ans[j];
      both += pred[i] == pred[j] && ans[i] == ans[j];
    }
  std::map<std::string, std::string> v;
  for (const char *id : {"EVAL-PURITY", "EVAL-RAND", "EVAL-NMI"})
    for (const auto &row : table(run.eval, id, '\t')) v[row[0]] = row[1];
  expect_num(v["Rand index"], (pairs - same_pred - same_ans + 2 * both) / pairs, 1e-15L);
  expect_num(v["Jaccard index"], both / (same_pred + same_ans - both), 1e-15L);
  expect_num(v["Fowlkes and Mallows index"], both / sqrtl(same_pred * same_ans), 1e-15L);
  long double e = same_pred * same_ans / pairs;
  expect_num(v["Adjusted Rand index"], (both - e) / ((same_pred + same_ans) / 2 - e), 1e-15L);
  std::map<std::string, int> joint, by_pred, by_ans;
  for (size_t i = 0; i < pred.size(); i++) {
    joint[std::to_string(pred[i]) + "," + ans[i]]++;
    by_pred[std::to_string(pred[i])]++;
    by_ans[ans[i]]++;
  }
  auto entropy = [](const std::map<std::string, int> &count) {
    long double h = 0;
    for (const auto &c : count) h -= c.second / 150.0L * lg2(c.second / 150.0L);
    return h;
  };
  long double hp = entropy(by_pred), ha = entropy(by_ans), hj = entropy(joint);
  expect_num(v["Normalized mutual information"], 2 * (hp + ha - hj) / (hp + ha), 1e-15L);
  expect_num(v["Variation of information"], 2 * hj - hp - ha, 1e-15L);
  auto purity = [&joint](bool by_cluster) {
    std::map<std::string, int> best;
    for (const auto &cell : joint) {
      size_t comma = cell.first.find(',');
      std::string side = by_cluster ? cell.first.substr(0, comma) : cell.first.substr(comma + 1);
      best[side] = std::max(best[side], cell.second);
    }
    long double sum = 0;
    for (const auto &b : best) sum += b.second;
    return sum / 150;
  };
  expect_num(v["Purity"], purity(true), 1e-15L);
  expect_num(v["Inverse Purity"], purity(false), 1e-15L);
  for (const auto &row : table(run.eval, "CLUSTER-MATCH-BY-ANSWER", '\t'))
    EXPECT_EQ(std::stoi(row[2]), joint[row[1] + "," + row[0]]) << row[0] << " " << row[1];
}

}  // namespace
