// Partial EM and the split-merge loop: the invariants of a partial update,
// the hand-over on a singular covariance, a whole run's bookkeeping, and the
// exact texts of the log sections and of the decrease report.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/random.h"
#include "output/print.h"
#include "smem_fixture.h"

namespace {

// Four discrete classes: one partial update leaves class 3 alone, keeps the
// three probabilities' sum, and its incomplete probabilities and posteriors
// equal a full recomputation, on both scales and with class smoothing.
TEST(SmemPartial, UpdateTouchesOnlyThreeClasses) {
  em_fixture::load(4, 2, nullptr, "a,x,3\nb,y,1\na,y,2\nc,x,1\nb,x,2\n");
  alloc_smem();
  const long double pc[4] = {0.1L, 0.2L, 0.3L, 0.4L}, table[3][2] = {{0, 0}, {1, 0.5L}, {0, 0.5L}};
  for (const auto &tc : table) {  // log scale, class smoothing
    settings.mode_log_scale = settings.mode_smooth_strict = static_cast<int>(tc[0]);
    settings.smooth_c = tc[1];
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
  settings.mode_smooth = settings.mode_daem = 1;
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
  settings.mode_smooth = settings.mode_daem = 0;
}

}  // namespace
