// The E-step: the 1e-60 floor, singular blocks, and the passes against the reference E-step.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "base/matrix.h"
#include "base/random.h"
#include "em_fixture.h"
#include "model/cluster.h"
#include "reference_estep.h"

namespace {

// Two classes, one discrete attribute (values a, b) and one 1-d Gaussian.
class TinyMixed : public ::testing::Test {
 protected:
  void SetUp() override {
    em_fixture::load(2, 2, "1", "a,0,2\nb,1,1\na,3,1\n");
    long double c[2] = {0.6L, 0.4L}, w[2][2] = {{0.7L, 0.3L}, {0.2L, 0.8L}}, mu[2] = {0, 2}, var[2] = {1, 4};
    for (int k = 0; k < 2; k++) {
      model.param_c[k] = c[k];
      model.param_w[k][0][0] = w[k][0];
      model.param_w[k][0][1] = w[k][1];
      model.param_u[k][0][0] = mu[k];
      model.param_s[k][0][0][0] = var[k];
    }
    ASSERT_EQ(refresh_precisions(), 0);
  }
  void TearDown() override { em_fixture::unload(); }
};

// The floor of 1e-60: an incomplete probability at or below it gives no
// posterior (and nothing to the expected counts), one just above it does.
TEST_F(TinyMixed, TinyIncompleteProbabilityGivesNoPosterior) {
  const struct {
    long double px;
    bool posterior;
  } table[] = {{1e-61L, false}, {1e-60L, false}, {nextafterl(1e-60L, 1), true}, {1e-52L, true}};
  for (const auto &row : table) {
    compute_complete_prob();
    model.prob_comp[0][1] = row.px;
    model.prob_comp[1][1] = 0;
    compute_incomplete_prob();
    EXPECT_EQ(model.prob_incomp[1], row.px);
    compute_conditional_prob();
    EXPECT_EQ(model.prob_cond[0][1], row.posterior ? 1.0L : 0.0L) << static_cast<double>(row.px);
    EXPECT_EQ(model.prob_cond[1][1], 0.0L);
    compute_expect();
    if (!row.posterior) {
      EXPECT_EQ(model.expect_w[0][0][1] + model.expect_w[1][0][1], 0.0L);
    }
  }
}

// A singular observed block (1x1 of the scalar form, 2x2 of the general one)
// stops the imputation instead of spreading infinities.
TEST(EStepMissing, SingularObservedBlockStops) {
  for (const std::string x : {"1,?", "1,2,?"}) {
    int d = x == "1,?" ? 2 : 3;
    em_fixture::load(1, d, "-", x + "\n");
    Matrix s = model.param_s[0][0];
    s[d - 1][d - 1] = 1;
    if (d == 3) s[0][0] = s[0][1] = s[1][0] = s[1][1] = 1;
    model.prob_cond[0][0] = 1;
    EXPECT_EXIT(compute_expect_gauss(), ::testing::ExitedWithCode(1),
                "Numerical error \\(compute_expect_gauss0\\): Failed to invert covariances\n") << d;
    em_fixture::unload();
  }
}

// The E-step passes (prepared densities, cached logarithms, imputation per
// missing pattern, threads) against the plain reference: every value agrees
// bit for bit, also after parameters change behind the passes' back, and
// failures are the ones a sequential walk meets first.
using reference::same_bits;

// Two discrete attributes, a 4-d, a 2-d and a 1-d group and a count; about
// 15% of every kind of value missing, so that every missing pattern occurs.
// Large enough for the passes to use every thread.
std::string generated_table(int n) {
  reference::Lcg r{12345};
  std::string text;
  for (int i = 0; i < n; i++) {
    int g = static_cast<int>(r.next() * 3);
    std::string line;
    for (int a = 0; a < 2; a++) line += (r.next() < 0.15L ? "?" : "v" + std::to_string((g + a + (r.next() < 0.3L)) % 3)) + ",";
    for (int j = 0; j < 7; j++) {
      char buf[32];
      snprintf(buf, sizeof buf, "%.3f", static_cast<double>(g * (j % 3 + 1) + 2 * r.next() - 1));
      line += (r.next() < 0.15L ? std::string("?") : std::string(buf)) + ",";
    }
    text += line + std::to_string(1 + i % 3) + "\n";
  }
  return text;
}

class Passes : public ::testing::Test {
 protected:
  static const int kClasses = 3, kCases = 5000;

  void SetUp() override {
    em_fixture::load(kClasses, 9, "2-5#6-7#8", generated_table(kCases));
    // Parameters as a fit meets them: a random start and an EM iteration,
    // which gives every class its own full covariances.
    init_genrand(7);
    initialize_param();
    em_iterate_body(0, 0, 1, 1);
  }
  void TearDown() override { em_fixture::unload(); }

  void set_scale(bool log) { settings.mode_log_scale = model.smooth.strict = log; }

  void expect_complete(int k, bool log, bool tempered, long double beta, const std::string &what) {
    for (int e = 0; e < kCases; e++)
      ASSERT_TRUE(same_bits(model.prob_comp[k][e], reference::complete(k, e, log, tempered, beta)))
          << what << " k=" << k << " e=" << e;
  }

  // Class k's expected statistics against sums formed case by case (only the
  // Gaussian ones when `gauss_only`).
  void expect_sums(int k, bool gauss_only) {
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
    if (!gauss_only) {
      EXPECT_TRUE(same_bits(model.expect_c[k], c)) << k;
      for (int a = 0; a < 2; a++)
        for (int v = 0; v < cases.num_word[a]; v++) EXPECT_TRUE(same_bits(model.expect_w[k][a][v], w[a][v])) << k;
    }
    for (int g = 0; g < 3; g++) {
      for (int i = 0; i < settings.gauss_attr_size[g]; i++) {
        EXPECT_TRUE(same_bits(model.expect_u[k][g][i], u[g][i])) << k << g << i;
        for (int j = 0; j < settings.gauss_attr_size[g]; j++)
          EXPECT_TRUE(same_bits(model.expect_s[k][g][i][j], q[g][i][j])) << k << g << i << j;
      }
      release_vector0(u[g]);
      release_matrix0(q[g]);
    }
  }
};

// Whatever changes the parameters (a restore, another algorithm re-initialising
// a class) or the scale, the next pass sees it without being told. The cases
// share one prepared form per missing pattern: a 4-d group has 14 partly
// observed patterns, a 2-d group 2, a 1-d none, and these cases meet them all.
TEST_F(Passes, CompleteProbabilitiesFollowEveryChange) {
  std::vector<size_t> patterns;
  for (const std::vector<MissPattern> &p : model.derived.patterns) patterns.push_back(p.size());
  EXPECT_EQ(patterns, (std::vector<size_t>{14, 2, 0}));
  const std::vector<std::function<void()>> changes = {
      [] {
        model.param_c[0] *= 0.5L;
        model.param_c[2] += model.param_c[0];
      },
      [] { model.param_w[1][0][1] *= 0.25L; },
      [] { model.param_u[2][0][3] += 0.75L; },
      [] { model.param_s[1][0][2][2] *= 2; },
      [] { model.param_s[0][1][0][1] = model.param_s[0][1][1][0] = 0.1L; },
      [] { em_iterate_body(0, 0, 1, 1); }};
  for (bool log : {false, true}) {
    set_scale(log);
    compute_complete_prob();
    for (int k = 0; k < kClasses; k++) expect_complete(k, log, false, 1, log ? "log" : "plain");
    model.itemp = 0.37L;
    compute_complete_prob_daem();
    for (int k = 0; k < kClasses; k++) expect_complete(k, log, true, 0.37L, "tempered");
    for (size_t i = 0; i < changes.size(); i++) {
      changes[i]();
      ASSERT_EQ(refresh_precisions(), 0);
      compute_complete_prob();
      for (int k = 0; k < kClasses; k++) expect_complete(k, log, false, 1, "change " + std::to_string(i));
    }
  }
}

// Also: the per-case building block adds what the pass adds, and the group
// memberships use the densities of the E-step.
TEST_F(Passes, PosteriorsLikelihoodExpectationsAndMemberships) {
  alloc_prob_mem();
  for (bool log : {false, true}) {
    set_scale(log);
    compute_complete_prob();
    compute_incomplete_prob();
    compute_conditional_prob();
    compute_expect();
    compute_attr_member_prob();
    long double ll = 0;
    for (int e = 0; e < kCases; e++) {
      long double px = 0, mx = model.prob_comp[0][e];
      for (int k = 1; k < kClasses; k++) mx = model.prob_comp[k][e] > mx ? model.prob_comp[k][e] : mx;
      for (int k = 0; k < kClasses; k++) px += log ? expl(model.prob_comp[k][e] - mx) : model.prob_comp[k][e];
      if (log) px = mx + logl(px);
      ASSERT_TRUE(same_bits(model.prob_incomp[e], px)) << e;
      ll += cases.freq_list[e].count * (log ? px : logl(px));
      for (int k = 0; k < kClasses; k++) {
        ASSERT_TRUE(same_bits(model.prob_cond[k][e], log ? expl(model.prob_comp[k][e] - px) : model.prob_comp[k][e] / px));
        for (int g = 0; g < 3; g++) {
          long double lg = 0;
          bool present = reference::group_density(k, g, e, &lg);
          ASSERT_TRUE(!present || same_bits(member.prob_compo_g[k][g][e], log ? lg : expl(lg))) << k << g << " " << e;
        }
      }
    }
    EXPECT_TRUE(same_bits(compute_loglike(), ll));
    for (int k = 0; k < kClasses; k++) expect_sums(k, false);
  }
  for (int k = 0; k < kClasses; k++)
    for (int g = 0; g < 3; g++) {
      clear_vector(model.expect_u[k][g]);
      clear_matrix(model.expect_s[k][g]);
    }
  for (int k = 0; k < kClasses; k++)
    for (int e = 0; e < kCases; e++) compute_expect_gauss0(k, e);
  for (int k = 0; k < kClasses; k++) expect_sums(k, true);
  release_prob_mem();
}

// The per-class passes fill the listed classes and leave the others alone.
TEST_F(Passes, ListedClassesOnly) {
  const int listed[2] = {2, 0};
  set_scale(true);
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  auto sentinels = [](int k) {
    return std::vector<long double *>{&model.expect_c[k], &model.expect_w[k][1][2], &model.expect_u[k][0][3],
                                      &model.expect_s[k][0][1][3]};
  };
  for (int k = 0; k < kClasses; k++) {
    for (int e = 0; e < kCases; e++) model.prob_comp[k][e] = -7;
    for (long double *x : sentinels(k)) *x = -7;
  }
  compute_complete_prob_classes(listed, 2);
  compute_expect_classes(listed, 2);
  for (int k : listed) {
    expect_complete(k, true, false, 1, "listed");
    expect_sums(k, false);
  }
  for (int e = 0; e < kCases; e++) ASSERT_EQ(model.prob_comp[1][e], -7);
  for (long double *x : sentinels(1)) EXPECT_EQ(*x, -7);
}

// With a class whose 1-d density is infinite only for the last case and a
// later class whose density is not a number everywhere, a sequential walk
// (class by class, case by case) meets the infinite one first.
TEST_F(Passes, FirstFailureInSequentialOrder) {
  // The checks run in a fresh process: one forked from a process whose
  // worker threads exist cannot start threads under the thread sanitizer.
  FreshProcessDeathChecks fresh;
  for (int k = 0; k < kClasses; k++) model.param_u[k][2][0] = 0;
  for (int e = 0; e < kCases; e++) {
    cases.freq_list[e].gauss[2][0] = e == kCases - 1 ? 1000 : 1;
    cases.freq_list[e].miss_g[2][0] = cases.freq_list[e].num_miss_gauss[2] = 0;
  }
  model.param_s[0][2][0][0] = 1e-4930L;
  model.param_s[1][2][0][0] = -1;
  EXPECT_EXIT(compute_complete_prob(), ::testing::ExitedWithCode(1),
              "Numerical error \\(check_gauss\\): Computed Gaussian p.d.f. is not finite");
  model.param_s[0][2][0][0] = 1;
  EXPECT_EXIT(compute_complete_prob(), ::testing::ExitedWithCode(1),
              "Numerical error \\(check_gauss\\): Computed Gaussian p.d.f. is not a number");
}

}  // namespace
