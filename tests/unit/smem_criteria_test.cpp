// Merge and split criteria against sums worked out in the test from the
// parameters, the closed forms of a degenerate start, the candidate order and
// the filters, and the numeric failures of the criteria.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

#include "smem_fixture.h"

namespace {

using smem_fixture::MixedModel;

// |a - b| within a tolerance relative to |b|, or absolute below 1.
void expect_close(long double a, long double b, long double rel, const std::string &what) {
  EXPECT_LE(fabsl(a - b), rel * fmaxl(fabsl(b), 1.0L)) << what << ": " << static_cast<double>(a) << " vs "
                                                       << static_cast<double>(b);
}

// Jmerge (plain and normalised) and Jsplit on both scales, with counts,
// a missing discrete value and partly and wholly missing Gaussians.
TEST_F(MixedModel, CriteriaMatchDirectSums) {
  long double n_k[kK] = {0, 0, 0}, q[kK] = {0, 0, 0};
  for (int k = 0; k < kK; k++)
    for (int e = 0; e < kE; e++) {
      long double p = posterior(k, e);
      n_k[k] += cnt[e] * p;
      q[k] += cnt[e] * p * p;
    }
  struct Mode {
    int log_scale, norm;
  } modes[] = {{0, 0}, {0, 1}, {1, 0}, {1, 1}};
  for (const Mode &m : modes) {
    settings.mode_log_scale = settings.mode_smooth_strict = m.log_scale;
    settings.mode_norm = m.norm;
    run_estep();
    compute_jmerge();
    compute_jsplit();
    std::string tag = std::to_string(m.log_scale) + std::to_string(m.norm);
    for (int i = 0; i < kK; i++)
      for (int j = i + 1; j < kK; j++) {
        long double jm = 0;
        for (int e = 0; e < kE; e++) jm += cnt[e] * posterior(i, e) * posterior(j, e);
        if (m.norm) jm /= sqrtl(q[i] * q[j]);
        expect_close(smem.jmerge[i][j], jm, 1e-14L, "Jmerge " + tag);
      }
    for (int k = 0; k < kK; k++) {
      long double js = 0;
      for (int e = 0; e < kE; e++) {
        long double f = cnt[e] * posterior(k, e) / n_k[k];
        js += f * logl(f / density(k, e));
      }
      expect_close(smem.jsplit[k], js, 1e-13L, "Jsplit " + tag);
    }
  }
}

// Tiny densities and empirical shares are both floored at 1e-60.
TEST_F(MixedModel, JsplitFloorsDensityAndShare) {
  // Class 2 far away: its posteriors and densities underflow the floor.
  mu[2][0] = mu[2][1] = 1e3L;
  install();
  run_estep();
  smem.expect_c_sm[2] = 1;  // the share of every case is then below the floor
  for (int log_scale : {0, 1}) {
    settings.mode_log_scale = settings.mode_smooth_strict = log_scale;
    compute_jsplit();
    // Only the case without Gaussian values keeps a share and a density
    // above the floor.
    long double js = 0;
    for (int e = 0; e < kE; e++) {
      long double f = fmaxl(cnt[e] * posterior(2, e), 1e-60L), p = fmaxl(density(2, e), 1e-60L);
      EXPECT_EQ(e == 5, f > 1e-60L && p > 1e-60L) << e;
      js += f * logl(f / p);
    }
    expect_close(smem.jsplit[2], js, 1e-14L, "floored Jsplit");
  }
}

// Every class identical: posteriors are 1/K, so Jmerge = N/K^2 (1 when
// normalised), and Jsplit(k) is the divergence of the case frequencies
// (1/2, 1/4, 1/4) from the class density: 0 for the frequencies themselves,
// 1/2 log(3/2) + 1/2 log(3/4) for the uniform density.
TEST(SmemDegenerate, IdenticalClassesHaveClosedForms) {
  em_fixture::load(4, 1, nullptr, "a,2\nb,1\nc,1\n");
  alloc_jmerge();
  alloc_jsplit();
  const long double wv[2][3] = {{0.5L, 0.25L, 0.25L}, {1 / 3.0L, 1 / 3.0L, 1 / 3.0L}};
  const long double expect_js[2] = {0, 0.5L * logl(1.5L) + 0.5L * logl(0.75L)};
  for (int t = 0; t < 2; t++)
    for (int norm : {0, 1}) {
      for (int k = 0; k < 4; k++) {
        model.param_c[k] = 0.25L;
        for (int v = 0; v < 3; v++) model.param_w[k][0][v] = wv[t][v];
      }
      settings.mode_norm = norm;
      compute_complete_prob();
      compute_incomplete_prob();
      compute_conditional_prob();
      compute_expect();
      for (int k = 0; k < 4; k++) smem.expect_c_sm[k] = model.expect_c[k];
      compute_jmerge();
      compute_jsplit();
      for (int i = 0; i < 4; i++) {
        for (int j = i + 1; j < 4; j++) EXPECT_NEAR(smem.jmerge[i][j], norm ? 1.0L : 4 / 16.0L, 1e-17L);
        EXPECT_NEAR(smem.jsplit[i], expect_js[t], 1e-17L) << t;
      }
    }
  release_jsplit();
  release_jmerge();
  em_fixture::unload();
}

// Four classes with hand-set criteria.
class CandidateList : public ::testing::Test {
 protected:
  void SetUp() override {
    em_fixture::load(4, 1, nullptr, "a\nb\n");
    alloc_jmerge();
    alloc_jsplit();
    alloc_candidate();
    const long double jm[4][4] = {{0, 1, 5, 3}, {0, 0, 2, 4}, {0, 0, 0, 0.5L}, {0, 0, 0, 0}};
    const long double js[4] = {0.1L, 0.4L, 0.3L, 0.2L};
    for (int i = 0; i < 4; i++) {
      smem.jsplit[i] = js[i];
      for (int j = 0; j < 4; j++) smem.jmerge[i][j] = jm[i][j];
    }
    smem.jsplit_run = -1;
    smem.last_i = smem.last_j = -1;
  }
  void TearDown() override {
    release_candidate();
    release_jsplit();
    release_jmerge();
    em_fixture::unload();
  }
  std::string listed() const {
    std::string s;
    for (int n = 0; n < smem.num_candidate; n++) {
      const SmCandidate &c = smem.sm_candidate[n];
      s += std::to_string(c.i) + std::to_string(c.j) + std::to_string(c.k) + " ";
    }
    return s;
  }
  // Walks the list as an operation does, every candidate that passes being
  // tried; returns the positions tried.
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
};

// Generation order; pairs by decreasing Jmerge (5, 4, 3, 2, 1, 0.5), splits
// by decreasing Jsplit (0.4, 0.3, 0.2, 0.1); equal keys keep generation order.
TEST_F(CandidateList, GenerationAndSortOrder) {
  build_candidate();
  EXPECT_EQ(smem.num_candidate, 12);
  EXPECT_EQ(listed(), "012 013 021 023 031 032 120 123 130 132 230 231 ");
  sort_candidate();
  EXPECT_EQ(listed(), "021 023 132 130 031 032 123 120 012 013 231 230 ");
  smem.jmerge[0][2] = smem.jmerge[1][3] = smem.jmerge[0][3] = smem.jmerge[0][1];
  for (int k = 0; k < 4; k++) smem.jsplit[k] = 0;
  build_candidate();
  sort_candidate();
  EXPECT_EQ(listed(), "120 123 012 013 021 023 031 032 130 132 230 231 ");
}

// --n-jsplit: at most that many splits per merge pair, counted in runs of
// the pair of the most recently tried candidate, which is kept across
// operations: a list whose first candidate is filtered starts its second in
// a run of the previous operation's pair.
TEST_F(CandidateList, SplitLimitPerPair) {
  build_candidate();
  sort_candidate();  // 021 023 132 130 031 ...
  settings.min_param_c = 0;
  settings.max_jsplit = 1;
  EXPECT_EQ(walk(), "0 2 4 6 8 10 ");
  settings.max_jsplit = 2;
  EXPECT_EQ(walk(), "0 1 2 3 4 5 6 7 8 9 10 11 ");
  settings.max_jsplit = 1;
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
}

// --min-c-param: one of the merged classes reaching the limit is enough, the
// split class must reach it; a limit of 0 filters nothing.
TEST_F(CandidateList, ClassProbabilityLimitIsAsymmetric) {
  build_candidate();  // 012 at position 0
  settings.max_jsplit = 0;
  struct Case {
    long double p0, p1, p2, lim;
    bool skipped;
  } table[] = {{0.01L, 0.5L, 0.5L, 0.1L, false}, {0.5L, 0.01L, 0.5L, 0.1L, false}, {0.01L, 0.01L, 0.5L, 0.1L, true},
               {0.5L, 0.5L, 0.01L, 0.1L, true},  {0.1L, 0.01L, 0.1L, 0.1L, false}, {0, 0, 0, 0, false}};
  for (const Case &tc : table) {
    model.param_c[0] = tc.p0;
    model.param_c[1] = tc.p1;
    model.param_c[2] = tc.p2;
    settings.min_param_c = tc.lim;
    EXPECT_EQ(skip_candidate(0), tc.skipped) << tc.p0 << " " << tc.p1 << " " << tc.p2;
  }
}

// A NaN or infinite criterion writes the parameters to the log, then stops
// naming the check.
TEST_F(MixedModel, NonFiniteCriteriaAreFatal) {
  std::string log = "/tmp/vesk_smem_test_" + std::to_string(getpid()) + ".log";
  FILE *saved = settings.fp_log;
  settings.fp_log = fopen(log.c_str(), "wb");
  run_estep();
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
  run_estep();
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

}  // namespace
