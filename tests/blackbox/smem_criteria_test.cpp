// The merge and split criteria that a verbose split-and-merge run writes,
// recomputed in the test from the parameter file and the case file: discrete
// data with occurrence counts, and a Gaussian pair with a discrete attribute.
// Every candidate is rejected (the improvement limit is out of reach), so the
// parameter file holds the model the criteria were computed from.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

const long double kPi = 3.14159265358979323846264338327950288L;

std::vector<std::string> cut(const std::string &row, char delim) {
  std::vector<std::string> out;
  std::stringstream ss(row);
  for (std::string f; std::getline(ss, f, delim);) out.push_back(f);
  return out;
}

long double num(const std::string &s) { return strtold(s.c_str(), nullptr); }

// A fitted model as the parameter file gives it.
struct FileModel {
  std::vector<long double> c;
  std::vector<std::map<int, std::map<std::string, long double>>> w;  // [k][column][value]
  std::vector<std::vector<long double>> mu;                          // [k][component]
  std::vector<std::vector<std::vector<long double>>> s;              // [k][r][q]
};

FileModel read_model(const std::string &text, char d, const std::vector<int> &discrete, int dim) {
  FileModel m;
  for (const std::string &row : section_rows(text, "PARAM-CLASS")) m.c.push_back(num(cut(row, d)[1]));
  size_t nk = m.c.size();
  m.w.resize(nk);
  m.mu.assign(nk, std::vector<long double>(dim));
  m.s.assign(nk, std::vector<std::vector<long double>>(dim, std::vector<long double>(dim)));
  for (int a : discrete)
    for (const std::string &row : section_rows(text, "PARAM-CAT" + std::to_string(a))) {
      std::vector<std::string> f = cut(row, d);
      m.w[std::stoi(f[1])][a][f[2]] = num(f[3]);
    }
  for (const std::string &row : section_rows(text, "PARAM-GAUSS-MEAN0")) {
    std::vector<std::string> f = cut(row, d);
    m.mu[std::stoi(f[1])][std::stoi(f[2])] = num(f[3]);
  }
  for (const std::string &row : section_rows(text, "PARAM-GAUSS-COVAR0")) {
    std::vector<std::string> f = cut(row, d);
    int k = std::stoi(f[1]), r = std::stoi(f[2]), q = std::stoi(f[3]);
    m.s[k][r][q] = m.s[k][q][r] = num(f[4]);
  }
  return m;
}

struct Case {
  std::map<int, std::string> value;  // discrete column -> value
  std::vector<long double> x;        // the Gaussian pair, when there is one
  int count;
};

// P(x | k): discrete probabilities times the bivariate normal density.
long double density(const FileModel &m, int k, const Case &c) {
  long double p = 1;
  for (const auto &v : c.value) p *= m.w[k].at(v.first).at(v.second);
  if (!c.x.empty()) {
    const std::vector<std::vector<long double>> &s = m.s[k];
    long double d0 = c.x[0] - m.mu[k][0], d1 = c.x[1] - m.mu[k][1];
    long double det = s[0][0] * s[1][1] - s[0][1] * s[0][1];
    long double q = (s[1][1] * d0 * d0 - 2 * s[0][1] * d0 * d1 + s[0][0] * d1 * d1) / det;
    p *= expl(-q / 2) / (2 * kPi * sqrtl(det));
  }
  return p;
}

// Checks the first JMERGE and JSPLIT sections of the log against sums over
// the cases.
void check_criteria(const std::string &log, char d, const FileModel &m, const std::vector<Case> &cases,
                    bool norm) {
  size_t nk = m.c.size();
  std::vector<std::vector<long double>> post(cases.size(), std::vector<long double>(nk));
  std::vector<long double> count(nk), sq(nk);
  for (size_t e = 0; e < cases.size(); e++) {
    long double sum = 0;
    for (size_t k = 0; k < nk; k++) sum += post[e][k] = m.c[k] * density(m, k, cases[e]);
    for (size_t k = 0; k < nk; k++) {
      post[e][k] /= sum;
      count[k] += cases[e].count * post[e][k];
      sq[k] += cases[e].count * post[e][k] * post[e][k];
    }
  }
  std::vector<std::string> jm = section_rows(log, "JMERGE"), js = section_rows(log, "JSPLIT");
  ASSERT_EQ(jm.size(), nk * (nk - 1) / 2);
  ASSERT_EQ(js.size(), nk);
  for (const std::string &row : jm) {
    std::vector<std::string> f = cut(row, d);
    size_t i = std::stoul(f[0]), j = std::stoul(f[1]);
    long double want = 0;
    for (size_t e = 0; e < cases.size(); e++) want += cases[e].count * post[e][i] * post[e][j];
    if (norm) want /= sqrtl(sq[i] * sq[j]);
    EXPECT_NEAR(num(f[2]), want, 1e-6L * fabsl(want)) << row;
  }
  for (const std::string &row : js) {
    std::vector<std::string> f = cut(row, d);
    size_t k = std::stoul(f[0]);
    long double want = 0;
    for (size_t e = 0; e < cases.size(); e++) {
      long double share = fmaxl(cases[e].count * post[e][k] / count[k], 1e-60L);
      long double p = fmaxl(density(m, k, cases[e]), 1e-60L);
      want += share * logl(share / p);
    }
    EXPECT_NEAR(num(f[1]), want, 1e-6L * fmaxl(fabsl(want), 1)) << row;
  }
}

const std::vector<std::string> kAllRejected = {"-o", "1", "--verbose", "--min-sm-imp", "1e9", "-r", "3"};

TEST(SmemCriteriaFromFiles, DiscreteWithCounts) {
  for (bool norm : {false, true}) {
    TempDir dir;
    dir.copy_data("titanic_freq.txt");
    std::vector<std::string> args = with({"-f", "titanic", "-x", "4", "-k", "4", "-n", "2"}, kAllRejected);
    if (norm) args.push_back("--norm-jmerge");
    RunResult r = run_vesk(dir, args);
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(r.err.find("Accepted"), std::string::npos);
    std::vector<Case> cases;
    for (const std::string &line : split_lines(dir.read("titanic_freq.txt"))) {
      std::vector<std::string> f = cut(line, '\t');
      cases.push_back(Case{{{0, f[0]}, {1, f[1]}, {2, f[2]}, {3, f[3]}}, {}, std::stoi(f[4])});
    }
    FileModel m = read_model(dir.read("titanic_param.txt"), '\t', {0, 1, 2, 3}, 0);
    check_criteria(dir.read("titanic_log.txt"), '\t', m, cases, norm);
  }
}

TEST(SmemCriteriaFromFiles, GaussianPairWithDiscreteAttribute) {
  TempDir dir;
  dir.copy_data("iris_freq.csv");
  RunResult r = run_vesk(dir, with({"-f", "iris", "-x", "5", "-u", "0-1", "-y", "2-3", "-k", "3", "-n", "1"},
                                   kAllRejected));
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<Case> cases;
  for (const std::string &line : split_lines(dir.read("iris_freq.csv"))) {
    std::vector<std::string> f = cut(line, ',');
    cases.push_back(Case{{{4, f[4]}}, {num(f[0]), num(f[1])}, 1});
  }
  FileModel m = read_model(dir.read("iris_param.csv"), ',', {4}, 2);
  check_criteria(dir.read("iris_log.csv"), ',', m, cases, false);
}

}  // namespace
