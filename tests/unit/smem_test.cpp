// Split and merge: the criteria, the candidates and the loop.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <unistd.h>
#include <vector>

#include "base/random.h"
#include "driver/vesk.h"
#include "output/print.h"
#include "reference_estep.h"
#include "smem_fixture.h"

namespace {

// Merge and split criteria against sums worked out in the test, their floors
// and the closed forms of a degenerate model, the re-initialisation of a
// candidate draw by draw, the candidate order and filters, and the numeric
// failures of the criteria.
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
    settings.mode_log_scale = model.smooth.strict = mode / 2;
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
    settings.mode_log_scale = model.smooth.strict = log_scale;
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

// Partial EM and the split-merge loop: the invariants of a partial update,
// the hand-over on a singular covariance, a whole run's bookkeeping, and the
// exact texts of the log sections and of the decrease report.
// Four discrete classes: one partial update leaves class 3 alone, keeps the
// three probabilities' sum, and its incomplete probabilities and posteriors
// equal a full recomputation, on both scales and with class smoothing.
TEST(SmemPartial, UpdateTouchesOnlyThreeClasses) {
  em_fixture::load(4, 2, nullptr, "a,x,3\nb,y,1\na,y,2\nc,x,1\nb,x,2\n");
  alloc_smem();
  const long double pc[4] = {0.1L, 0.2L, 0.3L, 0.4L}, table[3][2] = {{0, 0}, {1, 0.5L}, {0, 0.5L}};
  for (const auto &tc : table) {  // log scale, class smoothing
    settings.mode_log_scale = model.smooth.strict = static_cast<int>(tc[0]);
    model.smooth.c = tc[1];
    for (int k = 0; k < 4; k++) {
      model.param_c[k] = pc[k];
      for (int a = 0; a < 2; a++)
        for (int v = 0; v < cases.num_word[a]; v++) model.param_w[k][a][v] = (1 + k + v) / 10.0L;
    }
    smem_estep();
    init_genrand(3);
    initialize_param_part(SmCandidate{0, 2, 1});
    compute_complete_prob();
    compute_incomplete_prob();
    save_incomplete_prob_part();
    long double total = smem.param_c_part[0] + smem.param_c_part[1] + smem.param_c_part[2];
    compute_conditional_prob_part();
    compute_expect_part();
    update_param_part();
    EXPECT_EQ(model.param_c[3], pc[3]);
    for (int v = 0; v < cases.num_word[1]; v++) EXPECT_EQ(model.param_w[3][1][v], (4 + v) / 10.0L);
    EXPECT_NEAR(model.param_c[0] + model.param_c[1] + model.param_c[2], total, 1e-18L);
    // Class probabilities in proportion to expected count plus smoothing.
    EXPECT_NEAR(model.param_c[0] / model.param_c[2], (model.expect_c[0] + tc[1]) / (model.expect_c[2] + tc[1]),
                1e-17L);
    compute_complete_prob_part();
    compute_incomplete_prob_part();
    std::vector<long double> part(model.prob_incomp, model.prob_incomp + cases.num_entry);
    compute_conditional_prob_part();
    std::vector<long double> cond(model.prob_cond[1], model.prob_cond[1] + cases.num_entry);
    compute_complete_prob();
    compute_incomplete_prob();
    compute_conditional_prob();
    for (int e = 0; e < cases.num_entry; e++) {
      EXPECT_NEAR(part[e], model.prob_incomp[e], 1e-17L) << tc[0] << " " << e;
      EXPECT_NEAR(cond[e], model.prob_cond[1][e], 1e-17L) << tc[0] << " " << e;
    }
  }
  release_smem();
  em_fixture::unload();
}

// Without convergence (epsilon 0) the partial EM makes exactly as many
// updates as the limit allows, and says so.
TEST(SmemPartial, StopsAtTheUpdateLimit) {
  for (int limit : {1, 2, 3}) {
    em_fixture::load(4, 2, nullptr, "a,x,3\nb,y,1\na,y,2\nc,x,1\nb,x,2\n");
    settings.num_sm = 1;
    settings.epsilon = 0;
    alloc_smem();
    settings.fp_msg = tmpfile();
    for (int k = 0; k < 4; k++) {
      model.param_c[k] = 0.25L;
      for (int a = 0; a < 2; a++)
        for (int v = 0; v < cases.num_word[a]; v++) model.param_w[k][a][v] = (1 + k + v) / 10.0L;
    }
    smem_estep();
    init_genrand(3);
    initialize_param_part(SmCandidate{0, 2, 1});
    compute_complete_prob();
    compute_incomplete_prob();
    save_incomplete_prob_part();
    record_loglike_sm(1, 0, 1.0L);
    EXPECT_EQ(smem_iterate_part(1, limit), limit);
    EXPECT_EQ(stream_text(settings.fp_msg), "(S:" + std::to_string(limit) + ")");
    fclose(settings.fp_msg);
    settings.fp_msg = nullptr;
    release_smem();
    em_fixture::unload();
  }
}

// A tried candidate at the boundaries of the decision: an improvement equal
// to --min-sm-imp is too small, and each of the three classes, k included,
// must keep a probability strictly above --min-new-c-param (class 1 is not
// one of them).
TEST(SmemDecision, Boundaries) {
  const struct {
    long double l_new, min_imp, min_c, pi, pj, pk;
    SmDecision want;
  } table[] = {
      {1.0L, 0.5L, 0, 0.3L, 0.3L, 0.3L, SM_NO_IMPROVEMENT},      {0.5L, 0, 0, 0.3L, 0.3L, 0.3L, SM_NO_IMPROVEMENT},
      {1.5L, 0.5L, 0, 0.3L, 0.3L, 0.3L, SM_SMALL_IMPROVEMENT},   {1.5L, 0.4375L, 0, 0.3L, 0.3L, 0.3L, SM_ACCEPT},
      {2, 0.5L, 0.25L, 0.3L, 0.3L, 0.25L, SM_SMALL_CLASS},        {2, 0.5L, 0.25L, 0.3L, 0.3L, 0.1L, SM_SMALL_CLASS},
      {2, 0.5L, 0.25L, 0.1L, 0.3L, 0.3L, SM_SMALL_CLASS},         {2, 0.5L, 0.25L, 0.3L, 0.1L, 0.3L, SM_SMALL_CLASS},
      {2, 0.5L, 0.25L, 0.3L, 0.3L, 0.3L, SM_ACCEPT},              {2, 0.5L, 0, 0.01L, 0.01L, 0.01L, SM_ACCEPT},
  };
  long double *kept = model.param_c, pc[4];
  model.param_c = pc;
  for (const auto &row : table) {
    settings.min_smem_improve = row.min_imp;
    settings.min_new_param_c = row.min_c;
    pc[2] = row.pi, pc[0] = row.pj, pc[3] = row.pk, pc[1] = 0.01L;
    EXPECT_EQ(judge_candidate(SmCandidate{2, 0, 3}, row.l_new, 1.0L), row.want)
        << static_cast<double>(row.l_new) << " " << static_cast<double>(row.pk);
  }
  model.param_c = kept;
  settings.min_smem_improve = -1;
  settings.min_new_param_c = 0.001L;
}

// Two distant groups of cases and a class sitting on the far one. The first
// partial update gives both halves of the split class a covariance of rank
// one: the partial EM ends without an update, and nothing stops. A singular
// covariance in the full EM ends that run at the update reached; its
// objective is the one judged.
TEST(SmemSingular, EndsPartialOrFullEm) {
  const long double mean[3][2] = {{0, 0}, {0.1L, 0}, {10.5L, 11}};
  for (bool partial : {true, false}) {
    em_fixture::load(3, 2, "-", "0,0\n0.5,0.2\n-0.3,0.4\n0.2,-0.5\n-0.4,-0.1\n10,10\n11,12\n");
    settings.num_sm = 1;
    alloc_smem();
    settings.fp_msg = tmpfile();
    for (int k = 0; k < 3; k++) {
      model.param_c[k] = k == 2 ? 0.2L : 0.4L;
      for (int m = 0; m < 2; m++) {
        model.param_u[k][0][m] = mean[k][m];
        for (int q = 0; q < 2; q++) model.param_s[k][0][m][q] = m == q ? (k == 2 ? 0.5L : 0.2L) : 0;
      }
    }
    ASSERT_EQ(refresh_precisions(), 0);
    smem_estep();
    if (partial) {
      initialize_param_part(SmCandidate{0, 1, 2});
      compute_complete_prob();
      compute_incomplete_prob();
      save_incomplete_prob_part();
      record_loglike_sm(1, 0, 1.0L);
      EXPECT_EQ(smem_iterate_part(1, 100), 0);
    } else {
      record_loglike_sm(1, 3, 1.0L);
      EXPECT_EQ(smem_iterate_full(1, 3, 100, 1.0L), 3);
      EXPECT_EQ(model.final_lambda, smem.lambda_sm[1][3]);
    }
    std::string text = stream_text(settings.fp_msg), re = std::string("^ \\(Stopped: ") + (partial ? "0" : "3") +
        " iters -- singular covars \\(det=-?[0-9.]+e[-+][0-9]+\\) at class#=" + (partial ? "1" : "2") +
        ", gauss#=0\\)\tL=-[0-9.]+\n$";
    EXPECT_TRUE(::testing::internal::RE::PartialMatch(text, re)) << text;
    fclose(settings.fp_msg);
    settings.fp_msg = nullptr;
    release_smem();
    em_fixture::unload();
  }
}

// Three groups of cases, K = 4 and one restart: the operations accept some
// candidates (only the gains are logged), and the parameters left in place
// have the final objective, above the restart's.
TEST(SmemRun, FinalModelIsKeptAndNeverWorse) {
  std::string text;
  for (int g = 0; g < 3; g++)
    for (int n = 0; n < 6 + 3 * g; n++) text += std::to_string(g * 4.5L + 0.13L * n - 0.05L * (n % 3)) + "\n";
  em_fixture::load(4, 1, "0", text);
  settings.fp_msg = tmpfile();
  settings.num_sm = 4;
  settings.epsilon = 1e-9L;
  settings.min_smem_improve = 0.01L;
  init_genrand(5);
  smem_iterate(0);
  EXPECT_GT(model.final_lambda, model.log_final_lambda[0][0] + 0.01L);
  EXPECT_NE(stream_text(settings.fp_msg).find("-- Accepted"), std::string::npos);
  long double ll, lp, lam;
  evaluate_objective(1.0L, &ll, &lp, &lam);
  EXPECT_NEAR(lam, model.final_lambda, 1e-12L);
  EXPECT_EQ(ll, model.final_loglike);
  fclose(settings.fp_msg);
  settings.fp_msg = nullptr;
  em_fixture::unload();
}

// The full-EM decrease report begins with a line end; the annealed form adds
// the inverse temperatures.
TEST(SmemDeathTest, FullEmDecreaseMessage) {
  const long double lam[2] = {-1, -2}, itemp[2] = {1, 1};
  setup_process_state();
  settings.fp_log = tmpfile();
  EXPECT_EXIT(die_decrease("\n", lam, nullptr, 1), ::testing::ExitedWithCode(1),
              exactly("\n(iter:1) LL or LPost decreased! (before: -1.000000 | after: -2.000000 | diff: -1.000000) -- "
                      "see the log file\n"));
  settings.mode_daem = 1;
  EXPECT_EXIT(die_decrease("\n", lam, itemp, 1), ::testing::ExitedWithCode(1),
              exactly("\n(iter:1) LL or LPost decreased! (before: -1.000000 (1.000000) | after: -2.000000 (1.000000) "
                      "| diff: -1.000000) -- see the log file\n"));
  settings.mode_daem = 0;
  fclose(settings.fp_log);
}
// The section texts from counts, traces and criteria set by hand, in both
// file forms: rows below each operation's total update count.
TEST(SmemSections, ExactTexts) {
  setup_process_state();
  model.num_class = 3;
  settings.num_sm = 2;
  int part[3] = {7, 2, 0}, full[3] = {3, 2, 0}, rejected[2] = {3, 6}, skipped[2] = {1, 0};
  long double ll0[3] = {-9, -8, -7.5L}, ll1[3] = {-8, -7, -6.5L}, lp0[3] = {-1, -1, -1}, lp1[3] = {-2, -2, -2};
  long double lam0[3] = {-10, -9, -8.5L}, lam1[3] = {-10, -9, -8.5L}, it0[3] = {0.5L, 0.6L, 1}, it1[3] = {1, 1, 1};
  long double *ll[3] = {ll0, ll1, nullptr}, *lp[3] = {lp0, lp1, nullptr}, *lam[3] = {lam0, lam1, nullptr};
  long double *it[3] = {it0, it1, nullptr}, jm0[3] = {0, 0.5L, 0.25L}, jm1[3] = {0, 0, 2}, *jm[3] = {jm0, jm1, jm1};
  long double js[3] = {1.5L, -2, 0};
  smem.num_iterate_sm_part = part;
  smem.num_iterate_sm_full = full;
  smem.num_result_rejected = rejected;
  smem.num_result_skipped = skipped;
  smem.loglike_sm = ll;
  smem.log_prior_sm = lp;
  smem.lambda_sm = lam;
  smem.log_itemp_sm = it;
  smem.jmerge = jm;
  smem.jsplit = js;
  FILE *fp = tmpfile();
  settings.format_out = FORMAT_TXT;
  print_num_iterate_sm(fp);
  settings.format_out = FORMAT_CSV;
  print_num_result_sm(fp);
  print_loglike_sm(fp);
  model.smooth.any = settings.mode_daem = 1;
  print_loglike_sm(fp);
  print_decrease_sm(fp, 1, 2);
  print_jmerge(fp);
  print_jsplit(fp);
  const std::string trace = "#### ID:LOGLIKE-SMEM-K3\n#### Num. of classes, Num. of split-merge operations, "
                            "Num. of updates, Log likelihood";
  EXPECT_EQ(stream_text(fp),
            "#### ID:SMEM-EM-STAT-K3\n#### Num. of classes, Num. of split-merge operations, Num. of updates in "
            "partial EM, Num. of updates in full EM\n####\n3\t0\tN/A\t3\n3\t1\t2\t2\n3\t2\t0\t0\n"
            "#### ID:SMEM-OP-STAT-K3\n#### Num. of classes, Num. of split-merge operations, Num. of rejected "
            "candidates, Num. of ignored candidates\n####\n3,1,3,1\n3,2,6,0\n" +
                trace + "\n####\n3,0,0,-9\n3,0,1,-8\n3,0,2,-7.5\n3,1,0,-8\n3,1,1,-7\n" + trace +
                ", Log prior prob., Log a posteriori prob., Inverse temperature\n####\n3,0,0,-9,-1,-10,0.5\n"
                "3,0,1,-8,-1,-9,0.6\n3,0,2,-7.5,-1,-8.5,1\n3,1,0,-8,-2,-10,1\n3,1,1,-7,-2,-9,1\n"
                "#### ID:ERR-MSG-DECREASE\n#### -- Log posterior prob. decreased!\n####\nNumberOfClasses,3\n"
                "SplitMergeOperation,1\nNumberOfUpdates,2\nLogLikelihoodBeforeUpdate,-7\n"
                "LogLikelihoodAfterUpdate,-6.5\nLogPostProbBeforeUpdate,-9\nLogPostProbAfterUpdate,-8.5\n"
                "#### ID:JMERGE\n#### Class 1, Class 2, Jmerge\n####\n0,1,0.5\n0,2,0.25\n1,2,2\n"
                "#### ID:JSPLIT\n#### Class 1, Class 2, Jsplit\n####\n0,1.5\n1,-2\n2,0\n");
  fclose(fp);
  smem = Smem();
  model.smooth.any = settings.mode_daem = 0;
}

}  // namespace
