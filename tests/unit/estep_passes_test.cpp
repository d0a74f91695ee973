// The E-step passes (prepared densities, cached logarithms, imputation per
// missing pattern, threads) against a plain one-case-at-a-time reference:
// every value must agree bit for bit, also after parameters are changed
// behind the passes' back, and failures must be the ones a sequential walk
// meets first.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "base/parallel.h"
#include "em_fixture.h"
#include "model/cluster.h"
#include "reference_estep.h"

namespace {

bool same_bits(long double a, long double b) { return memcmp(&a, &b, 10) == 0; }

// A deterministic pseudo-random stream in [0, 1).
struct Lcg {
  unsigned long long s;
  long double next() {
    s = s * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<long double>(s >> 11) / 9007199254740992.0L;
  }
};

// Two discrete attributes, a 4-d, a 2-d and a 1-d group; about 15% of every
// kind of value missing, so that many missing patterns occur. Large enough
// for the passes to use every thread.
std::string generated_table(int n) {
  Lcg r{12345};
  std::string text;
  for (int i = 0; i < n; i++) {
    int g = static_cast<int>(r.next() * 3);
    std::string line;
    for (int a = 0; a < 2; a++) line += (r.next() < 0.15L ? "?" : "v" + std::to_string((g + a + (r.next() < 0.3L)) % 3)) + ",";
    for (int j = 0; j < 7; j++) {
      char buf[32];
      snprintf(buf, sizeof buf, "%.3f", static_cast<double>(g * (j % 3 + 1) + 2 * r.next() - 1));
      line += (r.next() < 0.15L ? std::string("?") : std::string(buf)) + (j < 6 ? "," : "");
    }
    text += line + "," + std::to_string(1 + i % 3) + "\n";
  }
  return text;
}

class Passes : public ::testing::Test {
 protected:
  static const int kClasses = 3, kCases = 5000;

  void SetUp() override {
    em_fixture::load(kClasses, 9, "2-5#6-7#8", generated_table(kCases));
    set_params(1);
  }
  void TearDown() override { em_fixture::unload(); }

  // Parameters from a seed: covariances A A' + I, means near the data.
  void set_params(unsigned long long seed) {
    Lcg r{seed};
    long double sum = 0;
    for (int k = 0; k < kClasses; k++) sum += model.param_c[k] = 0.5L + r.next();
    for (int k = 0; k < kClasses; k++) model.param_c[k] /= sum;
    for (int k = 0; k < kClasses; k++)
      for (int a = 0; a < settings.tuple_size_d; a++) {
        long double t = 0;
        for (int v = 0; v < cases.num_word[a]; v++) t += model.param_w[k][a][v] = 0.2L + r.next();
        for (int v = 0; v < cases.num_word[a]; v++) model.param_w[k][a][v] /= t;
      }
    for (int k = 0; k < kClasses; k++)
      for (int g = 0; g < settings.gauss_size; g++) {
        int d = settings.gauss_attr_size[g];
        long double a[4][4];
        for (int i = 0; i < d; i++) {
          model.param_u[k][g][i] = k * (i % 3 + 1) + r.next() - 0.5L;
          for (int j = 0; j < d; j++) a[i][j] = r.next() - 0.5L;
        }
        for (int i = 0; i < d; i++)
          for (int j = 0; j < d; j++) {
            long double s = i == j ? 0.5L : 0.0L;
            for (int t = 0; t < d; t++) s += a[i][t] * a[j][t];
            model.param_s[k][g][i][j] = s;
          }
      }
    ASSERT_EQ(refresh_precisions(), 0);
  }

  void expect_complete_matches(bool log, bool tempered, long double beta, const char *what) {
    for (int k = 0; k < kClasses; k++)
      for (int e = 0; e < kCases; e++)
        ASSERT_TRUE(same_bits(model.prob_comp[k][e], reference::complete(k, e, log, tempered, beta)))
            << what << " k=" << k << " e=" << e;
  }

  void set_scale(bool log) {
    settings.mode_log_scale = log;
    settings.mode_smooth_strict = log;
  }
};

TEST_F(Passes, CompleteProbabilitiesOnBothScalesAndTemperatures) {
  for (bool log : {false, true}) {
    set_scale(log);
    compute_complete_prob();
    expect_complete_matches(log, false, 1, log ? "log" : "plain");
    model.itemp = 0.37L;
    compute_complete_prob_daem();
    expect_complete_matches(log, true, 0.37L, log ? "log tempered" : "plain tempered");
  }
}

// Whatever changes the parameters (another algorithm re-initialising a
// class, a restore) the next pass sees it without being told.
TEST_F(Passes, ParametersChangedDirectlyAreSeenByTheNextPass) {
  for (bool log : {false, true}) {
    set_scale(log);
    compute_complete_prob();
    model.param_c[0] *= 0.5L;
    model.param_c[2] += model.param_c[0];
    model.param_w[1][0][1] *= 0.25L;
    model.param_u[2][0][3] += 0.75L;
    model.param_s[1][0][2][2] *= 2;
    model.param_s[0][1][0][1] = model.param_s[0][1][1][0] = 0.1L;
    ASSERT_EQ(refresh_precisions(), 0);
    compute_complete_prob();
    expect_complete_matches(log, false, 1, "after the change");
    set_params(99);  // a whole new parameter set
    compute_complete_prob();
    expect_complete_matches(log, false, 1, "new set");
  }
}

TEST_F(Passes, PosteriorsLikelihoodAndExpectations) {
  for (bool log : {false, true}) {
    set_scale(log);
    compute_complete_prob();
    compute_incomplete_prob();
    compute_conditional_prob();
    compute_expect();
    long double ll = 0;
    for (int e = 0; e < kCases; e++) {
      long double px = 0, mx = model.prob_comp[0][e];
      for (int k = 1; k < kClasses; k++) mx = model.prob_comp[k][e] > mx ? model.prob_comp[k][e] : mx;
      for (int k = 0; k < kClasses; k++) px += log ? expl(model.prob_comp[k][e] - mx) : model.prob_comp[k][e];
      if (log) px = mx + logl(px);
      ASSERT_TRUE(same_bits(model.prob_incomp[e], px)) << e;
      for (int k = 0; k < kClasses; k++) {
        long double r = log ? expl(model.prob_comp[k][e] - px) : model.prob_comp[k][e] / px;
        ASSERT_TRUE(same_bits(model.prob_cond[k][e], r)) << k << " " << e;
      }
      ll += cases.freq_list[e].count * (log ? px : logl(px));
    }
    EXPECT_TRUE(same_bits(compute_loglike(), ll));
    for (int k = 0; k < kClasses; k++) {
      long double c = 0, w[2][3] = {};
      Vector u[3];
      Matrix q[3];
      for (int g = 0; g < 3; g++) {
        u[g] = alloc_clear_vector(settings.gauss_attr_size[g]);
        q[g] = alloc_clear_matrix(settings.gauss_attr_size[g], settings.gauss_attr_size[g]);
      }
      for (int e = 0; e < kCases; e++) {
        const CaseRecord &rec = cases.freq_list[e];
        long double we = model.prob_cond[k][e] * rec.count;
        c += we;
        for (int a = 0; a < 2; a++)
          if (!rec.miss_w[a]) w[a][rec.word[a]] += we;
        reference::add_gauss(k, e, u, q);
      }
      EXPECT_TRUE(same_bits(model.expect_c[k], c));
      for (int a = 0; a < 2; a++)
        for (int v = 0; v < cases.num_word[a]; v++) EXPECT_TRUE(same_bits(model.expect_w[k][a][v], w[a][v]));
      for (int g = 0; g < 3; g++) {
        int d = settings.gauss_attr_size[g];
        for (int i = 0; i < d; i++) {
          EXPECT_TRUE(same_bits(model.expect_u[k][g][i], u[g][i])) << k << g << i;
          for (int j = 0; j < d; j++) EXPECT_TRUE(same_bits(model.expect_s[k][g][i][j], q[g][i][j])) << k << g << i << j;
        }
        release_vector0(u[g]);
        release_matrix0(q[g]);
      }
    }
  }
}

// The per-case public building block adds exactly what the pass adds.
TEST_F(Passes, PerCaseExpectationEqualsThePass) {
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  compute_expect_gauss();
  Vector u[3][3];
  Matrix q[3][3];
  for (int k = 0; k < kClasses; k++)
    for (int g = 0; g < 3; g++) {
      u[k][g] = dup_vector(model.expect_u[k][g]);
      q[k][g] = dup_matrix(model.expect_s[k][g]);
      clear_vector(model.expect_u[k][g]);
      clear_matrix(model.expect_s[k][g]);
    }
  for (int k = 0; k < kClasses; k++)
    for (int e = 0; e < kCases; e++) compute_expect_gauss0(k, e);
  for (int k = 0; k < kClasses; k++)
    for (int g = 0; g < 3; g++) {
      int d = settings.gauss_attr_size[g];
      for (int i = 0; i < d; i++) {
        EXPECT_TRUE(same_bits(model.expect_u[k][g][i], u[k][g][i]));
        for (int j = 0; j < d; j++) EXPECT_TRUE(same_bits(model.expect_s[k][g][i][j], q[k][g][i][j]));
      }
      release_vector0(u[k][g]);
      release_matrix0(q[k][g]);
    }
}

// The per-class building blocks give the listed classes exactly what the
// whole passes give them, and leave the other classes alone.
TEST_F(Passes, ListedClassesOnly) {
  const int listed[2] = {2, 0};
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  compute_expect();
  std::vector<long double> comp, sums;
  for (int k : listed) {
    for (int e = 0; e < kCases; e++) comp.push_back(model.prob_comp[k][e]);
    sums.push_back(model.expect_c[k]);
    sums.push_back(model.expect_w[k][1][2]);
    sums.push_back(model.expect_u[k][0][3]);
    sums.push_back(model.expect_s[k][0][1][3]);
  }
  for (int k = 0; k < kClasses; k++) {
    for (int e = 0; e < kCases; e++) model.prob_comp[k][e] = -7;
    model.expect_c[k] = model.expect_w[k][1][2] = model.expect_u[k][0][3] = model.expect_s[k][0][1][3] = -7;
  }
  compute_complete_prob_classes(listed, 2);
  compute_expect_classes(listed, 2);
  size_t i = 0, j = 0;
  for (int k : listed) {
    for (int e = 0; e < kCases; e++) ASSERT_TRUE(same_bits(model.prob_comp[k][e], comp[i++])) << k << " " << e;
    EXPECT_TRUE(same_bits(model.expect_c[k], sums[j++]));
    EXPECT_TRUE(same_bits(model.expect_w[k][1][2], sums[j++]));
    EXPECT_TRUE(same_bits(model.expect_u[k][0][3], sums[j++]));
    EXPECT_TRUE(same_bits(model.expect_s[k][0][1][3], sums[j++]));
  }
  EXPECT_EQ(model.prob_comp[1][17], -7);
  EXPECT_EQ(model.expect_c[1], -7);
  EXPECT_EQ(model.expect_s[1][0][1][3], -7);
}

TEST_F(Passes, MissingPatternsOfTheCaseTable) {
  compute_complete_prob();
  const DerivedValues &dv = model.derived;
  ASSERT_EQ(dv.patterns.size(), 3u);
  // A 4-d group has 14 partly observed patterns, a 2-d group 2, a 1-d none;
  // 5000 cases with 15% missing meet them all.
  EXPECT_EQ(dv.patterns[0].size(), 14u);
  EXPECT_EQ(dv.patterns[1].size(), 2u);
  EXPECT_EQ(dv.patterns[2].size(), 0u);
  for (int g = 0; g < 3; g++)
    for (int e = 0; e < kCases; e++) {
      const CaseRecord &rec = cases.freq_list[e];
      int d = settings.gauss_attr_size[g], p = dv.case_pattern[g][e];
      if (rec.num_miss_gauss[g] == 0 || rec.num_miss_gauss[g] == d) {
        EXPECT_EQ(p, -1);
        continue;
      }
      ASSERT_GE(p, 0);
      for (int i = 0; i < d; i++) EXPECT_EQ(dv.patterns[g][p].observed[i], rec.miss_g[g][i] ? 0 : 1);
    }
}

// With a class whose 1-d density is infinite only for the last case and a
// later class whose density is not a number everywhere, a sequential walk
// (class by class, case by case) meets the infinite one first.
TEST_F(Passes, FirstFailureInSequentialOrder) {
  // The checks run in a fresh process: one forked from a process whose
  // worker threads exist cannot start threads under the thread sanitizer.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  int last = kCases - 1;
  for (int k = 0; k < kClasses; k++) model.param_u[k][2][0] = 0;
  for (int e = 0; e < kCases; e++) {
    cases.freq_list[e].gauss[2][0] = e == last ? 1000 : 1;
    cases.freq_list[e].miss_g[2][0] = 0;
    cases.freq_list[e].num_miss_gauss[2] = 0;
  }
  model.param_s[0][2][0][0] = 1e-4930L;
  model.param_s[1][2][0][0] = -1;
  EXPECT_EXIT(compute_complete_prob(), ::testing::ExitedWithCode(1),
              "Numerical error \\(check_gauss\\): Computed Gaussian p.d.f. is not finite");
  model.param_s[0][2][0][0] = 1;
  EXPECT_EXIT(compute_complete_prob(), ::testing::ExitedWithCode(1),
              "Numerical error \\(check_gauss\\): Computed Gaussian p.d.f. is not a number");
}

// Group memberships use the same densities as the E-step.
TEST_F(Passes, GroupMembershipDensities) {
  alloc_prob_mem();
  compute_attr_member_prob();
  for (int k = 0; k < kClasses; k++)
    for (int e = 0; e < kCases; e += 7) {
      const CaseRecord &rec = cases.freq_list[e];
      int d = settings.gauss_attr_size[0];
      if (rec.num_miss_gauss[0] == d) continue;
      std::vector<int> obs(d);
      for (int i = 0; i < d; i++) obs[i] = rec.miss_g[0][i] ? 0 : 1;
      long double lg = reference::lgauss_marginal(rec.gauss[0], model.param_u[k][0], model.param_s[k][0], obs.data());
      if (rec.num_miss_gauss[0] == 0)
        lg = reference::lgauss_prec(rec.gauss[0], model.param_u[k][0], model.param_s[k][0], model.param_p[k][0],
                                    model.param_sdet[k][0], d);
      EXPECT_TRUE(same_bits(member.prob_compo_g[k][0][e], expl(lg))) << k << " " << e;
    }
  release_prob_mem();
}

}  // namespace
