// E-step on tiny hand-made case tables, checked against values worked out
// independently in the test. Also defines the small in-memory data fixture
// (namespace em_fixture) that the M-step, EM and score tests reuse.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "analysis/stat.h"
#include "base/allocate_matrix.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "output/print_common.h"
#include "test_util.h"

namespace em_fixture {

struct Row {
  std::vector<int> words;                      // value ids; -2 = missing
  std::vector<std::vector<long double>> gauss; // per group; NAN = missing
  int count;
};

namespace {

template <typename T>
T *new_array(size_t n) {
  return static_cast<T *>(calloc(n > 0 ? n : 1, sizeof(T)));
}

void set_roles(const std::vector<int> &num_word, const std::vector<int> &dims) {
  int na = static_cast<int>(num_word.size()), ng = static_cast<int>(dims.size());
  settings.tuple_size_d = na;
  settings.mode_nominal = na > 0;
  settings.gauss_size = ng;
  settings.mode_gauss = ng > 0;
  settings.gauss_attr_size = new_array<int>(ng);
  settings.gauss_attr = new_array<int *>(ng);
  settings.smooth_w = new_array<long double>(na);
  settings.mode_smooth_auto_w = new_array<int>(na);
  int col = na;
  for (int g = 0; g < ng; g++) {
    settings.gauss_attr_size[g] = dims[g];
    settings.gauss_attr[g] = new_array<int>(dims[g]);
    for (int i = 0; i < dims[g]; i++) settings.gauss_attr[g][i] = col++;
  }
  settings.tuple_size = settings.tuple_size_c = col;
  settings.tuple_size_all = col;
  settings.attr_info = new_array<AttrInfo>(col);
  for (int a = 0; a < na; a++) settings.attr_info[a] = AttrInfo{0, -1, a};
  for (int g = 0; g < ng; g++)
    for (int i = 0; i < dims[g]; i++) settings.attr_info[settings.gauss_attr[g][i]] = AttrInfo{1, g, i};
  for (int a = 0; a < na; a++) settings.mode_smooth_auto_w[a] = 1;
}

void fill_record(CaseRecord &rec, const Row &row) {
  int na = settings.tuple_size_d;
  rec.word = new_array<int>(na);
  rec.miss_w = new_array<int>(na);
  rec.count = row.count;
  for (int a = 0; a < na; a++) {
    rec.word[a] = row.words[a];
    if (row.words[a] < 0) {
      rec.miss_w[a] = 1;
      rec.num_miss++;
      cases.num_miss_w[a] += row.count;
      cases.total_num_miss_w += row.count;
    } else {
      cases.word_freq_list[a][row.words[a]] += row.count;
    }
  }
  int ng = settings.gauss_size;
  rec.gauss = new_array<Vector>(ng);
  rec.miss_g = new_array<int *>(ng);
  rec.num_miss_gauss = new_array<int>(ng);
  for (int g = 0; g < ng; g++) {
    int d = settings.gauss_attr_size[g];
    rec.gauss[g] = alloc_clear_vector(d);
    rec.miss_g[g] = new_array<int>(d);
    for (int i = 0; i < d; i++) {
      long double x = row.gauss[g][i];
      if (std::isnan(x)) {
        rec.miss_g[g][i] = 1;
        rec.num_miss_gauss[g]++;
        cases.num_miss_g[g][i] += row.count;
      } else {
        rec.gauss[g][i] = x;
      }
    }
  }
}

// Sample mean and biased covariance over the fully observed rows.
void fill_sample_stats() {
  int ng = settings.gauss_size;
  stats.sample_u = new_array<Vector>(ng);
  stats.sample_s = new_array<Matrix>(ng);
  for (int g = 0; g < ng; g++) {
    int d = settings.gauss_attr_size[g];
    Vector u = alloc_clear_vector(d);
    Matrix s = alloc_clear_matrix(d, d);
    long double n = 0;
    for (int e = 0; e < cases.num_entry; e++) {
      const CaseRecord &rec = cases.freq_list[e];
      if (rec.num_miss_gauss[g] > 0) continue;
      n += rec.count;
      for (int i = 0; i < d; i++) {
        u[i] += rec.count * rec.gauss[g][i];
        for (int j = 0; j < d; j++) s[i][j] += rec.count * rec.gauss[g][i] * rec.gauss[g][j];
      }
    }
    for (int i = 0; i < d; i++) u[i] /= n;
    for (int i = 0; i < d; i++)
      for (int j = 0; j < d; j++) s[i][j] = s[i][j] / n - u[i] * u[j];
    stats.sample_u[g] = u;
    stats.sample_s[g] = s;
  }
}

}  // namespace

// Builds settings, the case table and the sample statistics, and allocates
// the model arrays for k classes.
void load(int k, const std::vector<int> &num_word, const std::vector<int> &dims, const std::vector<Row> &rows) {
  static FILE *log = tmpfile();
  setup_process_state();
  settings.num_class = k;
  settings.mode_set_seed = 1;
  settings.num_itemp = 13;
  settings.format_out = FORMAT_TXT;
  settings.fp_log = log;
  set_roles(num_word, dims);
  int na = static_cast<int>(num_word.size()), ng = static_cast<int>(dims.size());
  cases.num_word = new_array<int>(na);
  cases.num_miss_w = new_array<int>(na);
  cases.word_freq_list = new_array<int *>(na);
  cases.word_list = new_array<const char **>(na);
  cases.print_order = new_array<int *>(na);
  static const char *names[] = {"v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7"};
  for (int a = 0; a < na; a++) {
    cases.num_word[a] = num_word[a];
    cases.word_freq_list[a] = new_array<int>(num_word[a]);
    cases.word_list[a] = names;
    cases.print_order[a] = new_array<int>(num_word[a]);
    for (int v = 0; v < num_word[a]; v++) cases.print_order[a][v] = v;
  }
  cases.num_miss_g = new_array<int *>(ng);
  for (int g = 0; g < ng; g++) cases.num_miss_g[g] = new_array<int>(dims[g]);
  cases.total_num_miss_w = 0;
  cases.num_entry = cases.num_entry_pre = static_cast<int>(rows.size());
  cases.freq_list = new_array<CaseRecord>(rows.size());
  cases.total_freq = 0;
  for (size_t e = 0; e < rows.size(); e++) {
    fill_record(cases.freq_list[e], rows[e]);
    cases.total_freq += rows[e].count;
  }
  fill_sample_stats();
  alloc_ic();
  alloc_seed();
  alloc_param();
  alloc_param_best();
  alloc_hparam_gauss();
  alloc_prob();
  alloc_expect();
  alloc_loglike();
}

// Releases the model arrays (the small case table is left to the process).
void unload() {
  release_loglike();
  release_expect();
  release_prob();
  release_hparam_gauss();
  release_param_best();
  release_param();
  release_seed();
  release_ic();
}

}  // namespace em_fixture

namespace {

using em_fixture::Row;

const long double kPi = 3.14159265358979323846264338327950288L;

long double normal_pdf(long double x, long double mu, long double var) {
  return expl(-0.5L * (x - mu) * (x - mu) / var) / sqrtl(2 * kPi * var);
}

// Two classes, one discrete attribute with two values and one 1-d Gaussian.
class TinyMixed : public ::testing::Test {
 protected:
  void SetUp() override {
    em_fixture::load(2, {2}, {1}, {{{0}, {{0.0L}}, 2}, {{1}, {{1.0L}}, 1}, {{0}, {{3.0L}}, 1}});
    long double c[2] = {0.6L, 0.4L}, w[2][2] = {{0.7L, 0.3L}, {0.2L, 0.8L}}, mu[2] = {0, 2}, var[2] = {1, 4};
    for (int k = 0; k < 2; k++) {
      model.param_c[k] = c[k];
      model.param_w[k][0][0] = w[k][0];
      model.param_w[k][0][1] = w[k][1];
      model.param_u[k][0][0] = mu[k];
      model.param_s[k][0][0][0] = var[k];
    }
    ASSERT_EQ(refresh_precisions(), 0);
    // Hand values: joint P(k, x) = c_k w_k(v) N(x; mu_k, var_k).
    const int v[3] = {0, 1, 0};
    const long double x[3] = {0, 1, 3};
    for (int k = 0; k < 2; k++)
      for (int e = 0; e < 3; e++) joint[k][e] = c[k] * w[k][v[e]] * normal_pdf(x[e], mu[k], var[k]);
  }
  void TearDown() override { em_fixture::unload(); }
  long double joint[2][3];
};

TEST_F(TinyMixed, OneStepByHand) {
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  compute_expect();
  const int n[3] = {2, 1, 1}, v[3] = {0, 1, 0};
  const long double x[3] = {0, 1, 3};
  long double nk[2] = {0, 0}, ew[2][2] = {{0, 0}, {0, 0}}, u[2] = {0, 0}, q[2] = {0, 0};
  for (int e = 0; e < 3; e++) {
    long double px = joint[0][e] + joint[1][e];
    EXPECT_NEAR(model.prob_incomp[e], px, 1e-15L);
    for (int k = 0; k < 2; k++) {
      long double r = joint[k][e] / px;
      EXPECT_NEAR(model.prob_comp[k][e], joint[k][e], 1e-15L);
      EXPECT_NEAR(model.prob_cond[k][e], r, 1e-15L);
      nk[k] += n[e] * r;
      ew[k][v[e]] += n[e] * r;
      u[k] += n[e] * r * x[e];
      q[k] += n[e] * r * x[e] * x[e];
    }
  }
  for (int k = 0; k < 2; k++) {
    EXPECT_NEAR(model.expect_c[k], nk[k], 1e-15L);
    EXPECT_NEAR(model.expect_w[k][0][1], ew[k][1], 1e-15L);
    EXPECT_NEAR(model.expect_u[k][0][0], u[k], 1e-15L);
    EXPECT_NEAR(model.expect_s[k][0][0][0], q[k], 1e-15L);
  }
  long double ll = 0;
  for (int e = 0; e < 3; e++) ll += n[e] * logl(joint[0][e] + joint[1][e]);
  EXPECT_NEAR(compute_loglike(), ll, 1e-14L);
  update_param();
  for (int k = 0; k < 2; k++) {
    long double mu = u[k] / nk[k];
    EXPECT_NEAR(model.param_c[k], nk[k] / 4, 1e-15L);
    EXPECT_NEAR(model.param_w[k][0][0], ew[k][0] / nk[k], 1e-15L);
    EXPECT_NEAR(model.param_u[k][0][0], mu, 1e-15L);
    EXPECT_NEAR(model.param_s[k][0][0][0], q[k] / nk[k] - mu * mu, 1e-14L);
    EXPECT_NEAR(model.param_p[k][0][0][0], 1 / model.param_s[k][0][0][0], 1e-12L);
  }
}

// Both scales, untempered and annealed: P(x) and P(k | x) against the hand
// joint raised to beta (the dispatchers pick the scale from the settings).
TEST_F(TinyMixed, ScalesAndTemperatures) {
  struct Case {
    int log_scale;
    bool annealed;
    long double beta;
  };
  const Case table[] = {{0, false, 1}, {0, true, 1}, {0, true, 0.5L}, {1, false, 1}, {1, true, 1}, {1, true, 0.5L}};
  long double untempered[2][3];
  for (const Case &tc : table) {
    settings.mode_log_scale = settings.mode_smooth_strict = tc.log_scale;
    model.itemp = tc.beta;
    if (tc.annealed) compute_complete_prob_daem();
    else compute_complete_prob();
    for (int k = 0; k < 2; k++)
      for (int e = 0; e < 3; e++) {
        // beta = 1 gives exactly the untempered values
        if (!tc.annealed) {
          untempered[k][e] = model.prob_comp[k][e];
        } else if (tc.beta == 1) {
          EXPECT_EQ(model.prob_comp[k][e], untempered[k][e]) << tc.log_scale;
        }
      }
    compute_incomplete_prob();
    compute_conditional_prob();
    for (int e = 0; e < 3; e++) {
      long double a = powl(joint[0][e], tc.beta), b = powl(joint[1][e], tc.beta);
      EXPECT_NEAR(model.prob_incomp[e], tc.log_scale ? logl(a + b) : a + b, 1e-14L) << tc.log_scale;
      EXPECT_NEAR(model.prob_cond[0][e], a / (a + b), 1e-14L) << tc.log_scale << " " << tc.beta;
    }
  }
  // Log scale needs strict smoothing as well as the option.
  settings.mode_smooth_strict = 0;
  EXPECT_FALSE(use_log_scale());
}

TEST_F(TinyMixed, TinyIncompleteProbabilityGivesNoPosterior) {
  compute_complete_prob();
  model.prob_comp[0][1] = 0.6e-61L;
  model.prob_comp[1][1] = 0.4e-61L;
  compute_incomplete_prob();
  EXPECT_NEAR(model.prob_incomp[1], 1e-61L, 1e-75L);
  compute_conditional_prob();
  EXPECT_EQ(model.prob_cond[0][1], 0.0L);
  EXPECT_EQ(model.prob_cond[1][1], 0.0L);
  compute_expect();
  EXPECT_EQ(model.expect_w[0][0][1], 0.0L);
  EXPECT_EQ(model.expect_w[1][0][1], 0.0L);
}

TEST(EStepMissing, WhollyMissingCaseGetsClassPrior) {
  em_fixture::load(2, {2}, {2},
                   {{{0}, {{0.0L, 1.0L}}, 1}, {{-2}, {{NAN, NAN}}, 3}, {{1}, {{2.0L, -1.0L}}, 1}});
  model.param_c[0] = 0.25L;
  model.param_c[1] = 0.75L;
  for (int k = 0; k < 2; k++) {
    model.param_w[k][0][0] = model.param_w[k][0][1] = 0.5L;
    model.param_u[k][0][0] = k;
    model.param_s[k][0][0][0] = model.param_s[k][0][1][1] = 1.0L;
  }
  ASSERT_EQ(refresh_precisions(), 0);
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  EXPECT_NEAR(model.prob_comp[0][1], 0.25L, 1e-18L);
  EXPECT_NEAR(model.prob_cond[1][1], 0.75L, 1e-18L);
  // Only the missing case contributes: weight 3 P(1) = 2.25 times the class
  // mean (1, 0) and mu mu' + S = [[2, 0], [0, 1]].
  for (int k = 0; k < 2; k++) model.prob_cond[k][0] = model.prob_cond[k][2] = 0;
  compute_expect_gauss();
  EXPECT_NEAR(model.expect_u[1][0][0], 2.25L, 1e-17L);
  EXPECT_NEAR(model.expect_u[1][0][1], 0.0L, 1e-17L);
  EXPECT_NEAR(model.expect_s[1][0][0][0], 4.5L, 1e-17L);
  EXPECT_NEAR(model.expect_s[1][0][0][1], 0.0L, 1e-17L);
  EXPECT_NEAR(model.expect_s[1][0][1][1], 2.25L, 1e-17L);
  em_fixture::unload();
}

// Imputation of missing Gaussian components by their conditional moments.
struct ImputeCase {
  std::vector<long double> x;
  std::vector<long double> mean_hat;      // expected first moment
  std::vector<long double> second_upper;  // expected raw second moment, upper triangle by rows
};

TEST(EStepMissing, ImputesConditionalMoments) {
  const std::vector<ImputeCase> table = {
      // d = 2, scalar form: x1 = 2 + (3 - 1) 0.5 / 2, var = 1 - 0.25 / 2.
      {{3, NAN}, {3, 2.5L}, {9, 7.5L, 6.25L + 0.875L}},
      // d = 3, one missing: x2 = 0.5 / 2 * 3, var = 1 - 0.25 / 2.
      {{3, 1, NAN}, {3, 1, 0.75L}, {9, 3, 2.25L, 1, 0.75L, 0.5625L + 0.875L}},
      // d = 3, two missing: x1 = 0, x2 = 0.75, block [[1, 0], [0, 0.875]].
      {{3, NAN, NAN}, {3, 0, 0.75L}, {9, 0, 2.25L, 1, 0, 0.5625L + 0.875L}},
  };
  for (const ImputeCase &tc : table) {
    int d = static_cast<int>(tc.x.size());
    em_fixture::load(1, {}, {d}, {{{}, {tc.x}, 1}});
    model.param_c[0] = 1;
    if (d == 2) {
      long double s[2][2] = {{2, 0.5L}, {0.5L, 1}};
      model.param_u[0][0][0] = 1;
      model.param_u[0][0][1] = 2;
      for (int i = 0; i < 2; i++)
        for (int j = 0; j < 2; j++) model.param_s[0][0][i][j] = s[i][j];
    } else {
      long double s[3][3] = {{2, 0, 0.5L}, {0, 1, 0}, {0.5L, 0, 1}};
      for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) model.param_s[0][0][i][j] = s[i][j];
    }
    // A flag left set by an earlier failed inversion must not stop either
    // step: the closed forms used here never clear it themselves.
    matrix_err.err_inv = 1;
    ASSERT_EQ(refresh_precisions(), 0);
    matrix_err.err_inv = 1;
    model.prob_cond[0][0] = 1;
    compute_expect_gauss();
    for (int i = 0, t = 0; i < d; i++) {
      EXPECT_NEAR(model.expect_u[0][0][i], tc.mean_hat[i], 1e-15L) << d << " " << i;
      for (int j = i; j < d; j++, t++)
        EXPECT_NEAR(model.expect_s[0][0][i][j], tc.second_upper[t], 1e-15L) << d << " " << i << j;
    }
    em_fixture::unload();
  }
}

// A singular observed block (1x1 of the scalar form, 2x2 of the general one)
// stops the imputation instead of spreading infinities.
TEST(EStepMissing, SingularObservedBlockStops) {
  const std::vector<std::vector<long double>> xs = {{1, NAN}, {1, 2, NAN}};
  for (const std::vector<long double> &x : xs) {
    int d = static_cast<int>(x.size());
    em_fixture::load(1, {}, {d}, {{{}, {x}, 1}});
    Matrix s = model.param_s[0][0];
    s[d - 1][d - 1] = 1;
    if (d == 3) s[0][0] = s[0][1] = s[1][0] = s[1][1] = 1;
    model.prob_cond[0][0] = 1;
    EXPECT_EXIT(compute_expect_gauss(), ::testing::ExitedWithCode(1),
                "Numerical error \\(compute_expect_gauss0\\): Failed to invert covariances\n") << d;
    em_fixture::unload();
  }
}

}  // namespace
