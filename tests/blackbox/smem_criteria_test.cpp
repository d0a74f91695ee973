// The merge and split criteria that a verbose split-and-merge run writes,
// recomputed in the test from the parameter file and the case file (discrete
// data with occurrence counts). Every candidate is rejected (the improvement
// limit is out of reach), so the parameter file holds the model the criteria
// were computed from.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

long double num(const std::string &s) { return strtold(s.c_str(), nullptr); }

TEST(SmemCriteriaFromFiles, DiscreteWithCounts) {
  for (bool norm : {false, true}) {
    TempDir dir;
    dir.copy_data("titanic_freq.txt");
    std::vector<std::string> args = {"-f", "titanic", "-x", "4", "-k", "4", "-n", "2", "-o", "1", "--verbose",
                                     "--min-sm-imp", "1e9", "-r", "3"};
    if (norm) args.push_back("--norm-jmerge");
    RunResult r = run_vesk(dir, args);
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(r.err.find("Accepted"), std::string::npos);
    // The model: class probabilities, and [class]["attribute:value"] probabilities.
    std::string param = dir.read("titanic_param.txt");
    std::vector<long double> c;
    for (const std::string &row : section_rows(param, "PARAM-CLASS")) c.push_back(num(split_fields(row, '\t')[1]));
    size_t nk = c.size();
    std::vector<std::map<std::string, long double>> w(nk);
    for (int a = 0; a < 4; a++)
      for (const std::string &row : section_rows(param, "PARAM-CAT" + std::to_string(a))) {
        std::vector<std::string> f = split_fields(row, '\t');
        w[std::stoi(f[1])][std::to_string(a) + ":" + f[2]] = num(f[3]);
      }
    // Per case: count, densities and posteriors; per class: count and squared norm.
    std::vector<long double> n_e, n_k(nk), sq(nk);
    std::vector<std::vector<long double>> dens, post;
    for (const std::string &line : split_lines(dir.read("titanic_freq.txt"))) {
      std::vector<std::string> f = split_fields(line, '\t');
      n_e.push_back(num(f[4]));
      dens.emplace_back(nk, 1.0L);
      post.emplace_back(nk);
      long double sum = 0;
      for (size_t k = 0; k < nk; k++) {
        for (int a = 0; a < 4; a++) dens.back()[k] *= w[k].at(std::to_string(a) + ":" + f[a]);
        sum += post.back()[k] = c[k] * dens.back()[k];
      }
      for (size_t k = 0; k < nk; k++) {
        long double p = post.back()[k] /= sum;
        n_k[k] += n_e.back() * p;
        sq[k] += n_e.back() * p * p;
      }
    }
    std::string log = dir.read("titanic_log.txt");
    std::vector<std::string> jm = section_rows(log, "JMERGE"), js = section_rows(log, "JSPLIT");
    ASSERT_EQ(jm.size(), nk * (nk - 1) / 2);
    ASSERT_EQ(js.size(), nk);
    for (const std::string &row : jm) {
      std::vector<std::string> f = split_fields(row, '\t');
      size_t i = std::stoul(f[0]), j = std::stoul(f[1]);
      long double want = 0;
      for (size_t e = 0; e < n_e.size(); e++) want += n_e[e] * post[e][i] * post[e][j];
      if (norm) want /= sqrtl(sq[i] * sq[j]);
      EXPECT_NEAR(num(f[2]), want, 1e-6L * fabsl(want)) << row;
    }
    for (const std::string &row : js) {
      std::vector<std::string> f = split_fields(row, '\t');
      size_t k = std::stoul(f[0]);
      long double want = 0;
      for (size_t e = 0; e < n_e.size(); e++) {
        long double share = fmaxl(n_e[e] * post[e][k] / n_k[k], 1e-60L), p = fmaxl(dens[e][k], 1e-60L);
        want += share * logl(share / p);
      }
      EXPECT_NEAR(num(f[1]), want, 1e-6L * fmaxl(fabsl(want), 1)) << row;
    }
  }
}

}  // namespace
