// Merge and split criteria against sums worked out in the test, their floors
// and the closed forms of a degenerate model, the re-initialisation of a
// candidate draw by draw, the candidate order and filters, and the numeric
// failures of the criteria.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include "base/random.h"
#include "driver/vesk.h"
#include "reference_estep.h"
#include "smem_fixture.h"

namespace {

// Case counts, P(x_e | k) and P(k | x_e) of the installed model, worked out
// by the reference E-step.
long double cnt(int e) { return cases.freq_list[e].count; }
long double density(int k, int e) { return reference::complete(k, e, false, false, 1) / model.param_c[k]; }
long double posterior(int k, int e) {
  long double sum = 0;
  for (int j = 0; j < model.num_class; j++) sum += reference::complete(j, e, false, false, 1);
  return reference::complete(k, e, false, false, 1) / sum;
}

// Three classes over one discrete attribute (a, b) and one 2-d Gaussian, with
// occurrence counts, a missing discrete value, a partly and a wholly missing
// Gaussian; parameters set by hand, joint probabilities from the reference.
class MixedModel : public ::testing::Test {
 protected:
  static const int kK = 3, kE = 6;
  long double c[kK] = {0.5L, 0.3L, 0.2L};
  long double w[kK][2] = {{0.6L, 0.4L}, {0.3L, 0.7L}, {0.5L, 0.5L}};
  long double mu[kK][2] = {{0, 1}, {2, 1}, {1, 2}};
  long double s[kK][2][2] = {{{1, 0.3L}, {0.3L, 2}}, {{0.5L, 0.1L}, {0.1L, 1}}, {{2, -0.4L}, {-0.4L, 1}}};

  void SetUp() override {
    em_fixture::load(kK, 3, "1-2", "a,0,1,2\nb,1,0,1\na,2,2,1\n?,0.5,1.5,3\nb,3,?,1\na,?,?,2\n");
    settings.num_sm = 1;
    alloc_smem();
    install();
  }
  void TearDown() override {
    release_smem();
    em_fixture::unload();
  }
  void install() {
    for (int k = 0; k < kK; k++) {
      model.param_c[k] = c[k];
      for (int v = 0; v < 2; v++) model.param_w[k][0][v] = w[k][v];
      for (int i = 0; i < 2; i++) {
        model.param_u[k][0][i] = mu[k][i];
        for (int j = 0; j < 2; j++) model.param_s[k][0][i][j] = s[k][i][j];
      }
    }
    ASSERT_EQ(refresh_precisions(), 0);
  }
};

// The criteria an operation computes for the model it starts from (every
// candidate then rejected): Jmerge plain and normalised, Jsplit on both scales.
TEST_F(MixedModel, CriteriaMatchDirectSums) {
  long double n_k[kK] = {0, 0, 0}, q[kK] = {0, 0, 0};
  for (int k = 0; k < kK; k++)
    for (int e = 0; e < kE; e++) {
      n_k[k] += cnt(e) * posterior(k, e);
      q[k] += cnt(e) * posterior(k, e) * posterior(k, e);
    }
  settings.fp_msg = tmpfile();
  settings.min_smem_improve = 1e9L;
  for (int mode = 0; mode < 4; mode++) {
    settings.mode_log_scale = settings.mode_smooth_strict = mode / 2;
    settings.mode_norm = mode % 2;
    run_sm_operations(50);
    for (int i = 0; i < kK; i++) {
      for (int j = i + 1; j < kK; j++) {
        long double jm = 0;
        for (int e = 0; e < kE; e++) jm += cnt(e) * posterior(i, e) * posterior(j, e);
        if (mode % 2) jm /= sqrtl(q[i] * q[j]);
        EXPECT_NEAR(smem.jmerge[i][j], jm, 1e-14L * fmaxl(jm, 1)) << mode;
      }
      long double js = 0;
      for (int e = 0; e < kE; e++) {
        long double f = cnt(e) * posterior(i, e) / n_k[i];
        js += f * logl(f / density(i, e));
      }
      EXPECT_NEAR(smem.jsplit[i], js, 1e-13L * fmaxl(fabsl(js), 1)) << mode;
    }
  }
  EXPECT_NE(stream_text(settings.fp_msg).find("  [Op=1]\n  <<All candidates are rejected>>\n"), std::string::npos);
  fclose(settings.fp_msg);
  settings.fp_msg = nullptr;
}

// Class 2 far away, with posteriors set by hand: its densities fall below
// 1e-60 except at the case without Gaussian values, and the share of case 0
// is 0; both are floored, on both scales.
TEST_F(MixedModel, JsplitFloorsDensityAndShare) {
  mu[2][0] = mu[2][1] = 1e3L;
  install();
  smem_estep();
  for (int e = 0; e < kE; e++) model.prob_cond[2][e] = e == 0 ? 0 : 0.5L;
  smem.expect_c_sm[2] = 3;
  for (int e = 0; e < kE; e++) EXPECT_EQ(density(2, e) > 1e-60L, e == 5) << e;
  for (int log_scale : {0, 1}) {
    settings.mode_log_scale = settings.mode_smooth_strict = log_scale;
    compute_jsplit();
    long double js = 0;
    for (int e = 0; e < kE; e++) {
      long double f = fmaxl(cnt(e) * model.prob_cond[2][e] / 3, 1e-60L), p = fmaxl(density(2, e), 1e-60L);
      js += f * logl(f / p);
    }
    EXPECT_NEAR(smem.jsplit[2], js, 1e-15L * js) << log_scale;
  }
}

// Every class identical: posteriors are 1/K, so Jmerge = N/K^2 (1 when
// normalised), and Jsplit(k) is the divergence of the case frequencies
// (1/2, 1/4, 1/4) from the class density: 0 for the frequencies themselves,
// 1/2 log(3/2) + 1/2 log(3/4) for the uniform density.
TEST(SmemDegenerate, IdenticalClassesHaveClosedForms) {
  em_fixture::load(4, 1, nullptr, "a,2\nb,1\nc,1\n");
  alloc_smem();
  const long double wv[2][3] = {{0.5L, 0.25L, 0.25L}, {1 / 3.0L, 1 / 3.0L, 1 / 3.0L}};
  const long double expect_js[2] = {0, 0.5L * logl(1.5L) + 0.5L * logl(0.75L)};
  for (int t = 0; t < 4; t++) {
    settings.mode_norm = t % 2;
    for (int k = 0; k < 4; k++) {
      model.param_c[k] = 0.25L;
      for (int v = 0; v < 3; v++) model.param_w[k][0][v] = wv[t / 2][v];
    }
    smem_estep();
    compute_jmerge();
    compute_jsplit();
    for (int i = 0; i < 4; i++) {
      for (int j = i + 1; j < 4; j++) EXPECT_NEAR(smem.jmerge[i][j], t % 2 ? 1.0L : 4 / 16.0L, 1e-17L);
      EXPECT_NEAR(smem.jsplit[i], expect_js[t / 2], 1e-17L) << t;
    }
  }
  release_smem();
  em_fixture::unload();
}

// Merge 1 and 2 into 1, split 0 into 2 and 0: the parameters recomputed with
// the draws of a generator seeded alike, taken in the same order.
TEST_F(MixedModel, CandidateInitialisationFollowsTheDraws) {
  smem_estep();
  const int i = 1, j = 2, k = 0;
  long double a = model.expect_c[i] / (model.expect_c[i] + model.expect_c[j]), b = 1 - a;
  init_genrand(11);
  initialize_param_part(SmCandidate{i, j, k});
  init_genrand(11);
  long double wi[2], wj[2], wk[2];
  for (int v = 0; v < 2; v++) {
    wi[v] = a * w[i][v] + b * w[j][v];
    wj[v] = w[k][v] + genrand_res53() * 0.1L / 2;
    wk[v] = w[k][v] + genrand_res53() * 0.1L / 2;
  }
  for (int v = 0; v < 2; v++) {
    EXPECT_NEAR(model.param_w[i][0][v], wi[v] / (wi[0] + wi[1]), 1e-18L);
    EXPECT_NEAR(model.param_w[j][0][v], wj[v] / (wj[0] + wj[1]), 1e-18L);
    EXPECT_NEAR(model.param_w[k][0][v], wk[v] / (wk[0] + wk[1]), 1e-18L);
  }
  for (int m = 0; m < 2; m++) {
    long double spread = 0.1L * sqrtl(stats.sample_s[0][m][m]), u1 = genrand_res53(), u2 = genrand_res53();
    EXPECT_NEAR(model.param_u[i][0][m], a * mu[i][m] + b * mu[j][m], 1e-18L);
    EXPECT_NEAR(model.param_u[j][0][m], mu[k][m] + spread * (0.5L - u1), 1e-18L);
    EXPECT_NEAR(model.param_u[k][0][m], mu[k][m] + spread * (0.5L - u2), 1e-18L);
  }
  long double radius = sqrtl(s[k][0][0] * s[k][1][1] - s[k][0][1] * s[k][0][1]);  // det^(1/2)
  for (int r = 0; r < 2; r++)
    for (int q = 0; q < 2; q++) {
      EXPECT_NEAR(model.param_s[i][0][r][q], a * s[i][r][q] + b * s[j][r][q], 1e-18L);
      EXPECT_NEAR(model.param_s[j][0][r][q], r == q ? radius : 0, 1e-18L);
      EXPECT_NEAR(model.param_s[k][0][r][q], r == q ? radius : 0, 1e-18L);
    }
  EXPECT_NEAR(model.param_sdet[j][0], radius * radius, 1e-18L);
  EXPECT_NEAR(model.param_p[k][0][1][1], 1 / radius, 1e-17L);
  const long double pc[3] = {c[i] + c[j], c[k] / 2, c[k] / 2};
  for (int n = 0; n < 3; n++) {
    EXPECT_NEAR(model.param_c[smem.part_class[n]], pc[n], 1e-18L);
    EXPECT_EQ(smem.param_c_part[n], model.param_c[smem.part_class[n]]);
  }
}

// A NaN or infinite criterion writes the parameters to the log, then stops
// naming the check.
TEST_F(MixedModel, NonFiniteCriteriaAreFatal) {
  std::string log = "/tmp/vesk_smem_test_" + std::to_string(getpid()) + ".log";
  FILE *saved = settings.fp_log;
  settings.fp_log = fopen(log.c_str(), "wb");
  smem_estep();
  for (int e = 0; e < kE; e++) model.prob_cond[2][e] = 0;
  settings.mode_norm = 1;  // 0 / 0 for every pair with class 2
  EXPECT_EXIT(compute_jmerge(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(check_jmerge\\): Computed Jmerge is not a number -- see the log file\n$");
  settings.mode_norm = 0;
  model.prob_cond[0][0] = model.prob_cond[1][0] = 1e4000L;  // the product overflows
  EXPECT_EXIT(compute_jmerge(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(check_jmerge\\): Computed Jmerge is not finite -- see the log file\n$");
  smem.expect_c_sm[2] = 0;  // a class without cases: 0 / 0
  EXPECT_EXIT(compute_jsplit(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(check_jsplit\\): Computed Jsplit\\[2\\] is not a number -- see the log file\n$");
  smem_estep();
  smem.expect_c_sm[1] = 0;  // positive posteriors over no count: infinite shares
  EXPECT_EXIT(compute_jsplit(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(check_jsplit\\): Computed Jsplit\\[1\\] is not finite -- see the log file\n$");
  fclose(settings.fp_log);
  settings.fp_log = saved;
  std::string text = read_text(log.c_str());
  EXPECT_LT(text.find("#### ID:PARAM-CLASS"), text.find("Numerical error (check_jmerge): Computed Jmerge is not a"));
  EXPECT_NE(text.find("Numerical error (check_jsplit): Computed Jsplit[1] is not finite"), std::string::npos);
  remove(log.c_str());
}

// The candidates of four classes in generation order, as "ijk" triples.
std::string listed() {
  std::string s;
  for (int n = 0; n < smem.num_candidate; n++) {
    const SmCandidate &c = smem.sm_candidate[n];
    s += std::to_string(c.i) + std::to_string(c.j) + std::to_string(c.k) + " ";
  }
  return s;
}

// Walks the list as an operation does, trying every candidate that passes;
// returns the positions tried.
std::string walk() {
  std::string tried;
  for (int n = 0; n < smem.num_candidate; n++) {
    if (skip_candidate(n)) continue;
    smem.last_i = smem.sm_candidate[n].i;
    smem.last_j = smem.sm_candidate[n].j;
    tried += std::to_string(n) + " ";
  }
  return tried;
}

// Four classes with hand-set criteria: pairs by decreasing Jmerge (5, 4, 3,
// 2, 1, 0.5), splits by decreasing Jsplit (0.4, 0.3, 0.2, 0.1); equal keys
// keep generation order. Then the filters on that list.
TEST(SmemCandidates, OrderAndFilters) {
  em_fixture::load(4, 1, nullptr, "a\nb\n");
  alloc_smem();
  const long double jm[4][4] = {{0, 1, 5, 3}, {0, 0, 2, 4}, {0, 0, 0, 0.5L}, {0, 0, 0, 0}};
  const long double js[4] = {0.1L, 0.4L, 0.3L, 0.2L};
  for (int i = 0; i < 4; i++) {
    smem.jsplit[i] = js[i];
    for (int j = 0; j < 4; j++) smem.jmerge[i][j] = jm[i][j];
  }
  build_candidate();
  EXPECT_EQ(smem.num_candidate, 12);
  EXPECT_EQ(listed(), "012 013 021 023 031 032 120 123 130 132 230 231 ");
  // --min-c-param: one of the merged classes reaching the limit is enough,
  // the split class must reach it; a limit of 0 filters nothing.
  const long double limits[][5] = {{0.01L, 0.5L, 0.5L, 0.1L, 0}, {0.5L, 0.01L, 0.5L, 0.1L, 0},
                                   {0.01L, 0.01L, 0.5L, 0.1L, 1}, {0.5L, 0.5L, 0.01L, 0.1L, 1},
                                   {0.1L, 0.01L, 0.1L, 0.1L, 0},  {0, 0, 0, 0, 0}};
  for (const auto &tc : limits) {  // 012 at position 0
    for (int k = 0; k < 3; k++) model.param_c[k] = tc[k];
    settings.min_param_c = tc[3];
    EXPECT_EQ(skip_candidate(0), tc[4] == 1) << tc[0] << " " << tc[1] << " " << tc[2];
  }
  sort_candidate();
  EXPECT_EQ(listed(), "021 023 132 130 031 032 123 120 012 013 231 230 ");
  // --n-jsplit: at most that many splits per merge pair, counted in runs of
  // the pair of the most recently tried candidate, which is kept across
  // operations; the first candidate of a list always starts a run.
  settings.max_jsplit = 1;
  EXPECT_EQ(walk(), "0 2 4 6 8 10 ");
  settings.max_jsplit = 2;
  EXPECT_EQ(walk(), "0 1 2 3 4 5 6 7 8 9 10 11 ");
  settings.max_jsplit = 1;
  smem.last_i = 0;
  smem.last_j = 2;
  EXPECT_FALSE(skip_candidate(0));
  // A filtered first candidate: the second continues the previous pair's run.
  settings.min_param_c = 0.1L;
  const long double pc[4] = {0.3L, 0.05L, 0.3L, 0.35L};  // 021 fails on class 1
  for (int k = 0; k < 4; k++) model.param_c[k] = pc[k];
  for (int last : {2, -1}) {
    smem.last_i = last < 0 ? -1 : 0;
    smem.last_j = last;
    EXPECT_TRUE(skip_candidate(0));
    EXPECT_EQ(skip_candidate(1), last == 2);
    EXPECT_FALSE(skip_candidate(2));
  }
  smem.jmerge[0][2] = smem.jmerge[1][3] = smem.jmerge[0][3] = smem.jmerge[0][1];
  for (int k = 0; k < 4; k++) smem.jsplit[k] = 0;
  build_candidate();
  sort_candidate();
  EXPECT_EQ(listed(), "120 123 012 013 021 023 031 032 130 132 230 231 ");
  release_smem();
  em_fixture::unload();
}

}  // namespace
