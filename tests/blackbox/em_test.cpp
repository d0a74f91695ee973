// Black-box runs of the EM fit: K ranges on the bundled data sets with the
// smoothing, log-scale, annealing and initialisation variants, the log
// sections of the fit, and the parameter file.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

std::vector<std::string> fields(const std::string &row, char delim) {
  std::vector<std::string> out;
  std::stringstream ss(row);
  for (std::string f; std::getline(ss, f, delim);) out.push_back(f);
  return out;
}

long double num(const std::string &s) { return strtold(s.c_str(), nullptr); }

std::vector<std::string> with(std::vector<std::string> base, const std::vector<std::string> &more) {
  base.insert(base.end(), more.begin(), more.end());
  return base;
}

// The objective column of a LOGLIKE-K section never falls at a fixed temperature.
void expect_monotone_trace(const std::string &log, int k, char d, bool map, bool daem) {
  std::vector<std::string> rows = section_rows(log, "LOGLIKE-K" + std::to_string(k));
  ASSERT_GE(rows.size(), 2u) << k;
  long double prev = -INFINITY, prev_beta = -1;
  for (const std::string &r : rows) {
    std::vector<std::string> f = fields(r, d);
    ASSERT_EQ(f.size(), (map ? 5u : 3u) + (daem ? 1u : 0u)) << r;
    long double beta = daem ? num(f.back()) : 1;
    if (beta == prev_beta) {
      EXPECT_GE(num(f[map ? 4 : 2]), prev - 1e-6L) << k << ": " << r;
    }
    prev = num(f[map ? 4 : 2]);
    prev_beta = beta;
  }
  if (daem) {
    EXPECT_EQ(num(fields(rows.back(), d).back()), 1.0L);
  }
}

struct FitCase {
  std::string name, base, ext;
  std::vector<std::string> args;
  int kmin, kmax;
  bool map, daem;
};

class KRangeFit : public ::testing::TestWithParam<FitCase> {};

TEST_P(KRangeFit, FitsEveryKAndWritesResults) {
  const FitCase &tc = GetParam();
  TempDir dir;
  dir.copy_data(tc.base + "_freq." + tc.ext);
  RunResult r = run_vesk(dir, tc.args);
  ASSERT_EQ(r.status, 0) << r.err;
  char d = tc.ext == "csv" ? ',' : '\t';
  for (int k = tc.kmin; k <= tc.kmax; k++)
    EXPECT_NE(r.err.find("|Classes| = " + std::to_string(k) + ":\n"), std::string::npos) << k;
  size_t at = r.err.find("Optimal |Classes| = ");
  ASSERT_NE(at, std::string::npos);
  int kopt = atoi(r.err.c_str() + at + 20);
  std::string log = dir.read(tc.base + "_log." + tc.ext);
  ASSERT_EQ(section_rows(log, "SCORE").size(), static_cast<size_t>(tc.kmax - tc.kmin + 1));
  for (int k = tc.kmin; k <= tc.kmax; k++) {
    expect_monotone_trace(log, k, d, tc.map, tc.daem);
    EXPECT_EQ(section_rows(log, "SEED-K" + std::to_string(k)).size(), 10u) << k;
    if (tc.map) {
      EXPECT_EQ(section_rows(log, "AUTO-SMOOTH-CLASS-K" + std::to_string(k)).size(), 1u) << k;
    }
  }
  // The parameter file holds the optimal K with class probabilities summing to 1.
  std::vector<std::string> pc = section_rows(dir.read(tc.base + "_param." + tc.ext), "PARAM-CLASS");
  ASSERT_EQ(pc.size(), static_cast<size_t>(kopt));
  long double sum = 0;
  for (const std::string &row : pc) sum += num(fields(row, d)[1]);
  EXPECT_NEAR(sum, 1.0L, 1e-9L);
}

const std::vector<std::string> kIris = {"-f", "iris", "-k", "2:6:1", "-x", "5", "-u", "0-3", "-n", "10", "-r", "7"};
const std::vector<std::string> kTitanic = {"-f", "titanic", "-k", "2:6:1", "-x", "4", "-n", "10", "-r", "7"};
const std::vector<std::string> kAir = {"-f", "airquality", "-x", "5", "-u", "0-3", "-n", "10", "-r", "7"};

INSTANTIATE_TEST_SUITE_P(
    Variants, KRangeFit,
    ::testing::Values(
        FitCase{"IrisMlSmallRange", "iris", "csv", with(kIris, {"-k", "2:4:1"}), 2, 4, false, false},
        FitCase{"IrisAutoClass", "iris", "csv", with(kIris, {"-A"}), 2, 6, true, false},
        FitCase{"IrisAutoClassLogScale", "iris", "csv", with(kIris, {"-A", "-J"}), 2, 6, true, false},
        FitCase{"IrisDaem", "iris", "csv", with(kIris, {"-b"}), 2, 6, false, true},
        FitCase{"IrisAutoClassDaem", "iris", "csv", with(kIris, {"-A", "-b"}), 2, 6, true, true},
        FitCase{"TitanicDiscrete", "titanic", "txt", kTitanic, 2, 6, false, false},
        FitCase{"TitanicValueFrequencyStart", "titanic", "txt", with(kTitanic, {"--init-a", "v_freq"}), 2, 6, false,
                false},
        FitCase{"AirqualityMissing", "airquality", "csv", with(kAir, {"-k", "2:4:1"}), 2, 4, false, false},
        FitCase{"AirqualityMissingAutoClass", "airquality", "csv", with(kAir, {"-k", "2:6:1", "-A"}), 2, 6, true,
                false}),
    [](const ::testing::TestParamInfo<FitCase> &info) { return info.param.name; });

// Plain ML on iris reaches K = 5 with a class of three cases, whose 4x4
// covariance has rank 2: the M-step cannot invert it and the run stops.
TEST(EmRun, DegenerateClassStopsTheMlFit) {
  TempDir dir;
  dir.copy_data("iris_freq.csv");
  RunResult r = run_vesk(dir, kIris);
  EXPECT_EQ(r.status, 1);
  const std::string tail = "|Classes| = 5:\n  [0] #iters 0Numerical error (update_param): Failed to invert covariances\n";
  EXPECT_EQ(r.err.rfind(tail), r.err.size() - tail.size()) << r.err;
  EXPECT_FALSE(dir.exists("iris_param.csv"));
  // The failing parameters go to the log just before the message.
  std::string log = dir.read("iris_log.csv");
  const std::string msg = "Numerical error (update_param): Failed to invert covariances\n";
  ASSERT_GE(log.size(), msg.size());
  EXPECT_EQ(log.substr(log.size() - msg.size()), msg);
  size_t last_class = log.rfind("#### ID:PARAM-CLASS\n");
  ASSERT_NE(last_class, std::string::npos);
  EXPECT_GT(last_class, log.find("#### ID:LOGLIKE-K4"));
  EXPECT_EQ(section_rows(log.substr(last_class), "PARAM-CLASS").size(), 5u);
}

TEST(EmRun, LogScaleAgreesWithPlainScale) {
  TempDir a, b;
  std::vector<std::string> args = {"-f", "titanic", "-k", "3", "-x", "4", "-n", "3", "-r", "5", "-c", "1", "-w", "1"};
  a.copy_data("titanic_freq.txt");
  b.copy_data("titanic_freq.txt");
  ASSERT_EQ(run_vesk(a, args).status, 0);
  ASSERT_EQ(run_vesk(b, with(args, {"-J"})).status, 0);
  std::vector<std::string> ra = section_rows(a.read("titanic_param.txt"), "PARAM-CAT0");
  std::vector<std::string> rb = section_rows(b.read("titanic_param.txt"), "PARAM-CAT0");
  ASSERT_EQ(ra.size(), rb.size());
  ASSERT_FALSE(ra.empty());
  for (size_t i = 0; i < ra.size(); i++)
    EXPECT_NEAR(num(fields(ra[i], '\t')[3]), num(fields(rb[i], '\t')[3]), 1e-8L) << ra[i];
}

TEST(EmRun, SingleKWritesScoreSeedAndBicAndSizes) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  RunResult r = run_vesk(dir, {"-f", "titanic", "-k", "3", "-x", "4", "-n", "2", "-r", "5"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("#classes = 3:\n  [0] #iters 0"), std::string::npos);
  EXPECT_NE(r.err.find("  <<Resumed best parameter set #"), std::string::npos);
  std::string log = dir.read("titanic_log.txt");
  std::vector<std::string> seed = section_rows(log, "SEED");
  ASSERT_EQ(seed.size(), 2u);
  EXPECT_EQ(fields(seed[0], '\t')[2], "N/A");  // the run seed was given
  // BIC = final log-likelihood - P/2 ln N, P = 2 + 3 (3 + 1 + 1 + 1) from the
  // value counts 4, 2, 2, 2, and N = 2201 cases merged into 24 entries.
  std::vector<std::string> trace = section_rows(log, "LOGLIKE-K3"), score = section_rows(log, "SCORE");
  std::vector<std::string> psize = section_rows(log, "PARAMSIZE"), dsize = section_rows(log, "DATASIZE");
  ASSERT_TRUE(!trace.empty() && score.size() == 1 && psize.size() == 1 && dsize.size() == 1);
  EXPECT_EQ(psize[0], "3\t2\t18\t0\t20");
  EXPECT_EQ(dsize[0], "2201\t24\t24");
  long double ll = num(fields(trace.back(), '\t')[2]);
  EXPECT_NEAR(num(fields(score[0], '\t')[1]), ll - 0.5L * 20 * logl(2201.0L), 1e-6L);
  EXPECT_EQ(fields(score[0], '\t')[2], "N/A");
  // Reading the parameters back sizes the model read, whatever range is given.
  ASSERT_EQ(run_vesk(dir, {"-f", "titanic", "-k", "2:4:1", "-x", "4", "-R"}).status, 0);
  EXPECT_EQ(section_rows(dir.read("titanic_log.txt"), "PARAMSIZE"), psize);
}

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
  EXPECT_EQ(fields(section_rows(log, "COND")[0], ',').size(), 5u);  // case ID and two (k, P) pairs
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

TEST(EmRun, HyperparameterFileGivesMapFit) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  dir.write("titanic_hparam.txt", titanic_hparam("1.5"));
  RunResult r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-H", "-n", "2", "-r", "3"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("#classes = 2:\n"), std::string::npos);
  std::string log = dir.read("titanic_log.txt");
  EXPECT_EQ(section_rows(log, "SEED").size(), 2u);
  expect_monotone_trace(log, 2, '\t', true, false);
}

TEST(EmRun, HyperparameterOfOneIsRejected) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  dir.write("titanic_hparam.txt", titanic_hparam("1"));
  RunResult r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-H", "-r", "3"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Pseudo counts read from titanic_hparam.txt should be all positive\n"), std::string::npos);
}

}  // namespace
