// Model scores: the BIC parameter count and formula, and the log-likelihood
// of the iris data under one class against the closed form.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/ic.h"

// The in-memory data fixture defined in estep_test.cpp.
namespace em_fixture {
struct Row {
  std::vector<int> words;
  std::vector<std::vector<long double>> gauss;
  int count;
};
void load(int k, const std::vector<int> &num_word, const std::vector<int> &dims, const std::vector<Row> &rows);
void unload();
}  // namespace em_fixture

namespace {

using em_fixture::Row;

const long double kPi = 3.14159265358979323846264338327950288L;

TEST(Bic, FreeParameterCount) {
  // One discrete attribute with 3 values, one 2-d group, K = 4: 3 + 8 + 12.
  em_fixture::load(4, {3}, {2}, {{{0}, {{0, 1}}, 1}, {{1}, {{1, 0}}, 1}, {{2}, {{2, 2}}, 1}});
  EXPECT_EQ(count_free_params(), 23);
  EXPECT_EQ(count_class_params(4), 3);
  EXPECT_EQ(count_discrete_params(4), 8);
  EXPECT_EQ(count_gauss_params(4), 12);
  em_fixture::unload();
}

TEST(Bic, ScoreIsLogLikelihoodMinusPenalty) {
  // Two discrete attributes, counts 3 + 2 + 5 = 10 cases, K = 2.
  em_fixture::load(2, {2, 3}, {}, {{{0, 0}, {}, 3}, {{1, 2}, {}, 2}, {{0, 1}, {}, 5}});
  const long double w0[2][2] = {{0.6L, 0.4L}, {0.1L, 0.9L}};
  const long double w1[2][3] = {{0.2L, 0.3L, 0.5L}, {0.7L, 0.2L, 0.1L}};
  model.param_c[0] = 0.3L;
  model.param_c[1] = 0.7L;
  for (int k = 0; k < 2; k++) {
    for (int v = 0; v < 2; v++) model.param_w[k][0][v] = w0[k][v];
    for (int v = 0; v < 3; v++) model.param_w[k][1][v] = w1[k][v];
  }
  const int v0[3] = {0, 1, 0}, v1[3] = {0, 2, 1}, n[3] = {3, 2, 5};
  long double ll = 0;
  for (int e = 0; e < 3; e++) {
    long double px = 0;
    for (int k = 0; k < 2; k++) px += model.param_c[k] * w0[k][v0[e]] * w1[k][v1[e]];
    ll += n[e] * logl(px);
  }
  // P = 1 + 2 + 4 = 7.
  EXPECT_NEAR(compute_bic(), ll - 0.5L * 7 * logl(10.0L), 1e-14L);
  em_fixture::unload();
}

TEST(CheesemanStutz, OneClassEqualsDirichletMultinomialMarginal) {
  // With one class nothing is latent: L = C, so the score is the exact log
  // marginal likelihood of the value counts (4, 1, 2) and (3, 4).
  em_fixture::load(1, {3, 2}, {}, {{{0, 0}, {}, 3}, {{1, 1}, {}, 1}, {{2, 1}, {}, 2}, {{0, 1}, {}, 1}});
  settings.smooth_c = 0.5L;
  settings.smooth_w[0] = 0.25L;
  settings.smooth_w[1] = 1.5L;
  model.param_c[0] = 1;
  const long double w0[3] = {4 / 7.0L, 1 / 7.0L, 2 / 7.0L}, w1[2] = {3 / 7.0L, 4 / 7.0L};
  for (int v = 0; v < 3; v++) model.param_w[0][0][v] = w0[v];
  for (int v = 0; v < 2; v++) model.param_w[0][1][v] = w1[v];
  auto dm = [](const std::vector<double> &n, double b) {
    double total = 0, r = 0;
    for (double x : n) total += x, r += std::lgamma(b + x) - std::lgamma(b);
    return r + std::lgamma(n.size() * b) - std::lgamma(total + n.size() * b);
  };
  long double expect = dm({4, 1, 2}, 1.25) + dm({3, 4}, 2.5) + dm({7}, 1.5);
  EXPECT_NEAR(compute_cs(), expect, 1e-12L);
  em_fixture::unload();
}

// The four measurements of the iris data shipped with the program.
std::vector<Row> read_iris() {
  std::vector<Row> rows;
  std::string here = __FILE__;
  std::string data = here.substr(0, here.rfind("/tests/")) + "/data/iris_freq.csv";
  FILE *fp = fopen(data.c_str(), "rb");
  if (fp == nullptr) return rows;
  char line[256];
  while (fgets(line, sizeof line, fp) != nullptr) {
    std::vector<long double> x(4);
    char *p = line;
    for (int i = 0; i < 4; i++) x[i] = strtold(p, &p), p++;
    rows.push_back({{}, {x}, 1});
  }
  fclose(fp);
  return rows;
}

// Determinant by Gaussian elimination with partial pivoting.
long double det4(long double a[4][4]) {
  long double det = 1;
  for (int c = 0; c < 4; c++) {
    int p = c;
    for (int r = c + 1; r < 4; r++)
      if (fabsl(a[r][c]) > fabsl(a[p][c])) p = r;
    if (p != c) {
      for (int j = 0; j < 4; j++) std::swap(a[p][j], a[c][j]);
      det = -det;
    }
    det *= a[c][c];
    for (int r = c + 1; r < 4; r++) {
      long double f = a[r][c] / a[c][c];
      for (int j = c; j < 4; j++) a[r][j] -= f * a[c][j];
    }
  }
  return det;
}

TEST(IrisOneClass, LogLikelihoodMatchesClosedForm) {
  std::vector<Row> rows = read_iris();
  ASSERT_EQ(rows.size(), 150u);
  em_fixture::load(1, {}, {4}, rows);
  em_iterate(0);
  // ML Gaussian: L = -N/2 (d log 2 pi + log det S + d) at the ML mean and covariance.
  long double n = 150, m[4] = {0, 0, 0, 0}, s[4][4] = {};
  for (const Row &r : rows)
    for (int i = 0; i < 4; i++) m[i] += r.gauss[0][i] / n;
  for (const Row &r : rows)
    for (int i = 0; i < 4; i++)
      for (int j = 0; j < 4; j++) s[i][j] += (r.gauss[0][i] - m[i]) * (r.gauss[0][j] - m[j]) / n;
  long double expect = -n / 2 * (4 * logl(2 * kPi) + logl(det4(s)) + 4);
  EXPECT_NEAR(model.final_loglike, expect, 1e-9L);
  em_fixture::unload();
}

}  // namespace
