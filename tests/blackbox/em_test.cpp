// Black-box runs of the EM fit: K ranges on the bundled data sets with the
// smoothing, log-scale, annealing and initialisation variants, checking the
// messages, the log sections and the parameter file.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

std::vector<std::string> fields(const std::string &row, char delim) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : row) {
    if (c == delim) {
      out.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  out.push_back(cur);
  return out;
}

long double num(const std::string &s) { return strtold(s.c_str(), nullptr); }

struct FitCase {
  std::string name;
  std::string base, ext;
  std::vector<std::string> args;
  int kmin, kmax;
  bool map, daem;
};

class KRangeFit : public ::testing::TestWithParam<FitCase> {};

// The objective column of every LOGLIKE-K section never falls.
void expect_monotone_trace(const std::string &log, int k, char d, bool map, bool daem) {
  std::vector<std::string> rows = section_rows(log, "LOGLIKE-K" + std::to_string(k));
  ASSERT_GE(rows.size(), 2u) << k;
  size_t col = map ? 4 : 2;
  long double prev = -INFINITY, prev_beta = -1;
  for (const std::string &r : rows) {
    std::vector<std::string> f = fields(r, d);
    ASSERT_EQ(f.size(), (map ? 5u : 3u) + (daem ? 1u : 0u)) << r;
    long double beta = daem ? num(f.back()) : 1;
    if (beta == prev_beta) {
      EXPECT_GE(num(f[col]), prev - 1e-6L) << k << ": " << r;
    }
    prev = num(f[col]);
    prev_beta = beta;
  }
  if (daem) {
    EXPECT_EQ(num(fields(rows.back(), d).back()), 1.0L);
  }
}

TEST_P(KRangeFit, FitsEveryKAndWritesResults) {
  const FitCase &tc = GetParam();
  TempDir dir;
  dir.copy_data(tc.base + "_freq." + tc.ext);
  RunResult r = run_vesk(dir, tc.args);
  ASSERT_EQ(r.status, 0) << r.err;
  char d = tc.ext == "csv" ? ',' : '\t';
  for (int k = tc.kmin; k <= tc.kmax; k++)
    EXPECT_NE(r.err.find("|Classes| = " + std::to_string(k) + ":\n"), std::string::npos) << k;
  ASSERT_NE(r.err.find("Optimal |Classes| = "), std::string::npos);
  int kopt = atoi(r.err.c_str() + r.err.find("Optimal |Classes| = ") + 20);

  std::string log = dir.read(tc.base + "_log." + tc.ext);
  std::vector<std::string> score = section_rows(log, "SCORE");
  ASSERT_EQ(score.size(), static_cast<size_t>(tc.kmax - tc.kmin + 1));
  for (int k = tc.kmin; k <= tc.kmax; k++) {
    expect_monotone_trace(log, k, d, tc.map, tc.daem);
    std::vector<std::string> seeds = section_rows(log, "SEED-K" + std::to_string(k));
    EXPECT_EQ(seeds.size(), 10u) << k;
    if (tc.map) {
      EXPECT_EQ(section_lines(log, "AUTO-SMOOTH-CLASS-K" + std::to_string(k)).size(), 4u) << k;
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

std::vector<std::string> with(std::vector<std::string> base, const std::vector<std::string> &more) {
  base.insert(base.end(), more.begin(), more.end());
  return base;
}

INSTANTIATE_TEST_SUITE_P(
    Variants, KRangeFit,
    ::testing::Values(
        FitCase{"IrisMlSmallRange", "iris", "csv",
                {"-f", "iris", "-k", "2:4:1", "-x", "5", "-u", "0-3", "-n", "10", "-r", "7"}, 2, 4, false, false},
        FitCase{"IrisAutoClass", "iris", "csv", with(kIris, {"-A"}), 2, 6, true, false},
        FitCase{"IrisAutoClassLogScale", "iris", "csv", with(kIris, {"-A", "-J"}), 2, 6, true, false},
        FitCase{"IrisDaem", "iris", "csv", with(kIris, {"-b"}), 2, 6, false, true},
        FitCase{"IrisAutoClassDaem", "iris", "csv", with(kIris, {"-A", "-b"}), 2, 6, true, true},
        FitCase{"TitanicDiscrete", "titanic", "txt",
                {"-f", "titanic", "-k", "2:6:1", "-x", "4", "-n", "10", "-r", "7"}, 2, 6, false, false},
        FitCase{"TitanicValueFrequencyStart", "titanic", "txt",
                {"-f", "titanic", "-k", "2:6:1", "-x", "4", "-n", "10", "-r", "7", "--init-a", "v_freq"}, 2, 6,
                false, false},
        FitCase{"AirqualityMissing", "airquality", "csv",
                {"-f", "airquality", "-k", "2:4:1", "-x", "5", "-u", "0-3", "-n", "10", "-r", "7"}, 2, 4, false,
                false},
        FitCase{"AirqualityMissingAutoClass", "airquality", "csv",
                {"-f", "airquality", "-k", "2:6:1", "-x", "5", "-u", "0-3", "-n", "10", "-r", "7", "-A"}, 2, 6,
                true, false}),
    [](const ::testing::TestParamInfo<FitCase> &info) { return info.param.name; });

TEST(EmRun, SameSeedGivesIdenticalParameterFiles) {
  TempDir a, b;
  for (const TempDir *dir : {&a, &b}) dir->copy_data("iris_freq.csv");
  std::vector<std::string> args = with(kIris, {"-A"});
  ASSERT_EQ(run_vesk(a, args).status, 0);
  ASSERT_EQ(run_vesk(b, args).status, 0);
  std::string pa = a.read("iris_param.csv");
  EXPECT_FALSE(pa.empty());
  EXPECT_EQ(pa, b.read("iris_param.csv"));
}

TEST(EmRun, LogScaleAgreesWithPlainScale) {
  TempDir a, b;
  for (const TempDir *dir : {&a, &b}) dir->copy_data("titanic_freq.txt");
  std::vector<std::string> args = {"-f", "titanic", "-k", "3", "-x", "4", "-n", "3", "-r", "5", "-c", "1", "-w", "1"};
  ASSERT_EQ(run_vesk(a, args).status, 0);
  ASSERT_EQ(run_vesk(b, with(args, {"-J"})).status, 0);
  std::vector<std::string> ra = section_rows(a.read("titanic_param.txt"), "PARAM-CAT0");
  std::vector<std::string> rb = section_rows(b.read("titanic_param.txt"), "PARAM-CAT0");
  ASSERT_EQ(ra.size(), rb.size());
  ASSERT_FALSE(ra.empty());
  for (size_t i = 0; i < ra.size(); i++)
    EXPECT_NEAR(num(fields(ra[i], '\t')[3]), num(fields(rb[i], '\t')[3]), 1e-8L) << ra[i];
}

TEST(EmRun, SingleKWritesScoreSeedAndBic) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  RunResult r = run_vesk(dir, {"-f", "titanic", "-k", "3", "-x", "4", "-n", "2", "-r", "5"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("#classes = 3:\n"), std::string::npos);
  EXPECT_NE(r.err.find("  [0] #iters "), std::string::npos);
  EXPECT_NE(r.err.find("  <<Resumed best parameter set #"), std::string::npos);
  std::string log = dir.read("titanic_log.txt");
  std::vector<std::string> seed = section_rows(log, "SEED");
  ASSERT_EQ(seed.size(), 2u);
  EXPECT_EQ(fields(seed[0], '\t')[2], "N/A");  // the run seed was given
  // BIC = final log-likelihood - P/2 ln N, with P from PARAMSIZE and N from DATASIZE.
  std::vector<std::string> trace = section_rows(log, "LOGLIKE-K3");
  std::vector<std::string> score = section_rows(log, "SCORE");
  std::vector<std::string> psize = section_rows(log, "PARAMSIZE");
  std::vector<std::string> dsize = section_rows(log, "DATASIZE");
  ASSERT_FALSE(trace.empty());
  ASSERT_EQ(score.size(), 1u);
  ASSERT_EQ(psize.size(), 1u);
  ASSERT_EQ(dsize.size(), 1u);
  long double ll = num(fields(trace.back(), '\t')[2]);
  long double p = num(fields(psize[0], '\t')[4]), n = num(fields(dsize[0], '\t')[0]);
  EXPECT_EQ(p, 2 + 3 * (3 + 1 + 1 + 1));  // class values 4, 2, 2, 2
  EXPECT_EQ(n, 2201);
  EXPECT_NEAR(num(fields(score[0], '\t')[1]), ll - 0.5L * p * logl(n), 1e-6L);
  EXPECT_EQ(fields(score[0], '\t')[2], "N/A");
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
