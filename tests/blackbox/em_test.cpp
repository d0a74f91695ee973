// Black-box runs of the EM fit: K ranges on the bundled data sets with the
// smoothing, log-scale and initialisation variants, the log sections of an
// annealed fit, and hyperparameter files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

struct FitCase {
  std::string name, file;
  std::vector<std::string> args;
  std::vector<int> ks;  // the K values the range must visit
  bool map;
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const FitCase &c, std::ostream *os) { *os << c.name; }

class KRangeFit : public ::testing::TestWithParam<FitCase> {};

TEST_P(KRangeFit, FitsEveryKAndKeepsTheBest) {
  const FitCase &tc = GetParam();
  TempDir dir;
  dir.copy_data(tc.file);
  RunResult r = run_vesk(dir, tc.args);
  ASSERT_EQ(r.status, 0) << r.err;
  std::string base = tc.file.substr(0, tc.file.find("_freq")), ext = tc.file.substr(tc.file.size() - 3);
  char d = ext == "csv" ? ',' : '\t';
  std::string log = dir.read(base + "_log." + ext);
  std::vector<std::string> score = section_rows(log, "SCORE");
  ASSERT_EQ(score.size(), tc.ks.size());
  for (size_t i = 0; i < tc.ks.size(); i++) {
    std::string k = std::to_string(tc.ks[i]);
    EXPECT_NE(r.err.find("|Classes| = " + k + ":\n"), std::string::npos) << k;
    EXPECT_EQ(split_fields(score[i], d)[0], k);
    std::vector<std::string> trace = section_rows(log, "LOGLIKE-K" + k);
    ASSERT_GE(trace.size(), 2u) << k;
    EXPECT_EQ(split_fields(trace.back(), d).size(), tc.map ? 5u : 3u) << k;  // MAP adds the prior and posterior
    EXPECT_EQ(section_rows(log, "SEED-K" + k).size(), 10u) << k;
    EXPECT_EQ(section_rows(log, "AUTO-SMOOTH-CLASS-K" + k).size(), tc.map ? 1u : 0u) << k;
  }
  // The parameter file holds the optimal K.
  size_t at = r.err.find("Optimal |Classes| = ");
  ASSERT_NE(at, std::string::npos);
  size_t kopt = strtoul(r.err.c_str() + at + 20, nullptr, 10);
  EXPECT_EQ(section_rows(dir.read(base + "_param." + ext), "PARAM-CLASS").size(), kopt);
}

const std::vector<std::string> kIris = {"-f", "iris", "-k", "2:6:1", "-x", "5", "-u", "0-3", "-n", "10", "-r", "7"};
const std::vector<std::string> kTitanic = {"-f", "titanic", "-x", "4", "-n", "10", "-r", "7"};
const std::vector<std::string> kAir = {"-f", "airquality", "-x", "5", "-u", "0-3", "-n", "10", "-r", "7"};

INSTANTIATE_TEST_SUITE_P(
    Variants, KRangeFit,
    ::testing::Values(
        FitCase{"IrisAutoClassLogScale", "iris_freq.csv", with(kIris, {"-A", "-J"}), {2, 3, 4, 5, 6}, true},
        FitCase{"TitanicStepValueFrequencyStart", "titanic_freq.txt",
                with(kTitanic, {"-k", "2:7:2", "--init-a", "v_freq"}), {2, 4, 6}, false},
        FitCase{"AirqualityMissingAutoClass", "airquality_freq.csv", with(kAir, {"-k", "2:6:1", "-A"}),
                {2, 3, 4, 5, 6}, true}),
    [](const ::testing::TestParamInfo<FitCase> &info) { return info.param.name; });

// The headers of the fit's log sections, in a MAP run with annealing, a K
// range, verbose dumps and hidden attribute values.
TEST(EmRun, LogSectionHeaders) {
  TempDir dir;
  dir.copy_data("airquality_freq.csv");
  RunResult r = run_vesk(dir, with(kAir, {"-k", "2:3:1", "-n", "2", "-m", "3", "-A", "-b", "--verbose",
                                          "--hide-attr"}));
  ASSERT_EQ(r.status, 0) << r.err;
  std::string log = dir.read("airquality_log.csv"), kopt = r.err.substr(r.err.find("Optimal |Classes| = ") + 20, 1);
  const std::vector<std::vector<std::string>> expect = {
      {"DATASIZE", "Total num. of cases, Num. of entries [original]"},
      {"PARAMSIZE", "Num. of classes, Num. of class params, Num. of params for discrete attrs, "
                    "Num. of params for continuous attrs, Total num. of params"},
      {"NUM-MISSING-CAT", "Attr. ID, Num. of missing values, Ratio of missing values"},
      {"NUM-MISSING-GAUSS", "Attr. ID, Num. of missing values, Ratio of missing values"},
      {"AUTO-SMOOTH-CLASS-K2", "Num. of classes, Class smoothing constant [based on AutoClass]"},
      {"AUTO-SMOOTH-CAT-K3", "Num. of classes, Attr. ID, Attr. smoothing constant [based on AutoClass]"},
      {"SEED-K2", "Num. of classes, Restart, Random seed, Num. of updates, Log a posteriori prob.",
       "-- Best seed = 0"},
      {"SCORE", "Num. of classes, BIC, AUTOCLASS", "-- Selected criterion = Cheeseman-Stutz score",
       "-- Optimal num. of classes = " + kopt},
      {"LOGLIKE-K3", "Num. of classes, Num. of updates, Log likelihood, Log prior prob., Log a posteriori prob., "
                     "Inverse temperature"},
      {"EXPECT-CLASS", "Class k, Expected occurrences E[k]"},
      {"EXPECT-CAT4", "Attr ID., Class k, Attr. value x4, Expected occurrences E[x4|k]"},
      {"EXPECT-GAUSS-MEAN0", "Class k, Gauss ID, Attr. ID, Mean"},
      {"EXPECT-GAUSS-COVAR0", "Class k, Gauss ID, Attr. ID, Attr. ID, (Co)Variance"},
      {"COND", "Case ID, Class k, Conditional prob. P(k|x)"},
      {"INCOMP", "Case ID, Incomplete data prob. P(x)"},
      {"COMP", "Class k, Case ID, Complete data prob. P(k,x)"}};
  for (const std::vector<std::string> &e : expect) {
    std::vector<std::string> want = {"#### ID:" + e[0]}, got = section_lines(log, e[0]);
    for (size_t i = 1; i < e.size(); i++) want.push_back("#### " + e[i]);
    want.push_back("####");
    got.resize(std::min(got.size(), want.size()));
    EXPECT_EQ(got, want);
  }
  EXPECT_EQ(section_rows(log, "NUM-MISSING-GAUSS")[0], "0,37,0.241830065359");  // 37 of 153 missing
  EXPECT_EQ(split_fields(section_rows(log, "COND")[0], ',').size(), 5u);  // case ID and two (k, P) pairs
}

// A hyperparameter file for titanic with two classes, every attribute pseudo
// count set to `w`.
std::string titanic_hparam(const std::string &w) {
  const std::vector<std::vector<std::string>> vals = {
      {"1st", "2nd", "3rd", "Crew"}, {"Female", "Male"}, {"Adult", "Child"}, {"No", "Yes"}};
  std::string t = "#### ID:HPARAM-CLASS\n####\n0\t2\n1\t3\n";
  for (size_t a = 0; a < vals.size(); a++) {
    t += "#### ID:HPARAM-CAT" + std::to_string(a) + "\n####\n";
    for (int k = 0; k < 2; k++)
      for (const std::string &v : vals[a]) t += std::to_string(a) + "\t" + std::to_string(k) + "\t" + v + "\t" + w + "\n";
  }
  return t;
}

// A single K from a hyperparameter file: pseudo counts of exactly one are
// rejected; above one the run is a MAP fit with its seeds, sizes and score.
TEST(EmRun, SingleKFromHyperparameterFile) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  const std::vector<std::string> args = {"-f", "titanic", "-x", "4", "-H", "-n", "2", "-r", "3"};
  dir.write("titanic_hparam.txt", titanic_hparam("1"));
  RunResult r = run_vesk(dir, args);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Pseudo counts read from titanic_hparam.txt should be all positive\n"), std::string::npos);
  dir.write("titanic_hparam.txt", titanic_hparam("1.5"));
  r = run_vesk(dir, args);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("#classes = 2:\n  [0] #iters 0"), std::string::npos);
  EXPECT_NE(r.err.find("  <<Resumed best parameter set #"), std::string::npos);
  std::string log = dir.read("titanic_log.txt");
  std::vector<std::string> seed = section_rows(log, "SEED"), trace = section_rows(log, "LOGLIKE-K2");
  ASSERT_EQ(seed.size(), 2u);
  EXPECT_EQ(split_fields(seed[0], '\t')[2], "N/A");  // the run seed was given
  ASSERT_FALSE(trace.empty());
  EXPECT_EQ(split_fields(trace.back(), '\t').size(), 5u);  // a MAP trace
  // P = 1 + 2 (3 + 1 + 1 + 1) from the value counts 4, 2, 2, 2; 2201 cases
  // merged into 24 entries.
  EXPECT_EQ(section_rows(log, "PARAMSIZE"), std::vector<std::string>{"2\t1\t12\t0\t13"});
  EXPECT_EQ(section_rows(log, "DATASIZE"), std::vector<std::string>{"2201\t24\t24"});
  EXPECT_EQ(split_fields(section_rows(log, "SCORE").at(0), '\t')[2], "N/A");
}

}  // namespace
