// Split-merge operations: each computes the criteria of the current model,
// walks the sorted candidate list, tries candidates and keeps the first one
// whose objective improves enough.
#include <cstring>

#include "base/misc.h"
#include "settings/settings.h"
#include "model/allocate.h"
#include "model/em.h"
#include "smem/report.h"
#include "smem/smem.h"

namespace {

// Objective of the model kept so far.
struct Kept {
  long double lambda, loglike, log_prior;
};

// Posteriors and class counts of the current model, both criteria and the
// sorted candidate list.
void prepare_operation() {
  save_param_sm();
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  compute_expect();
  memcpy(smem.expect_c_sm, model.expect_c, sizeof(long double) * model.num_class);
  compute_jmerge();
  compute_jsplit();
  if (settings.mode_verbose) {
    smem_report.jmerge(settings.fp_log);
    smem_report.jsplit(settings.fp_log);
  }
  build_candidate();
  sort_candidate();
}

// Re-initialises the candidate's classes, runs partial then full EM on row
// o; returns the full update count and the partial one in *part.
int try_candidate(int o, int pos, int tried, int limit, int *part) {
  const SmCandidate &c = smem.sm_candidate[pos];
  print_msg("  [Op=%d]\n    Candidate %d (%d not skipped): Jmerge(%d,%d)=%.Nf / Jsplit(%d)=%.Nf\n", o, pos, tried,
            c.i, c.j, smem.jmerge[c.i][c.j], c.k, smem.jsplit[c.k]);
  print_msg("    #iters ");
  initialize_param_part(c);
  model.itemp = 1.0L;
  compute_complete_prob();
  compute_incomplete_prob();
  save_incomplete_prob_part();
  record_loglike_sm(o, 0, 1.0L);
  *part = smem_iterate_part(o, limit);
  int full = smem_iterate_full(o, *part, limit, 1.0L);
  smem.last_i = c.i;
  smem.last_j = c.j;
  return full;
}

void print_decision(const SmCandidate &c, SmDecision why, long double l_new, long double l_last) {
  print_msg("    -- %s [%d,%d]->[%d] & [%d]->[%d,%d] (L current: %.Nf / last: %.Nf)\n",
            why == SM_ACCEPT ? "Accepted" : "Rejected", c.i, c.j, c.i, c.k, c.j, c.k, l_new, l_last);
  const long double *pc = model.param_c;
  switch (why) {
    case SM_NO_IMPROVEMENT: print_msg("       <No improvement>\n"); break;
    case SM_SMALL_IMPROVEMENT: print_msg("       <Too small improvement: %.Ne>\n", l_new - l_last); break;
    case SM_SMALL_CLASS:
      print_msg("       <Too small split/merged class probabilities: %d - %.Nf, %d - %.Nf, %d - %.Nf>\n", c.i,
                pc[c.i], c.j, pc[c.j], c.k, pc[c.k]);
      break;
    case SM_ACCEPT: break;
  }
}

// Walks the sorted list of operation o; true when a candidate is accepted.
bool walk_candidates(int o, int limit, Kept *kept) {
  int tried = 0;
  for (int pos = 0;; pos++) {
    if (pos >= smem.num_candidate) {
      print_msg("  [Op=%d]\n  <<All candidates are rejected>>\n", o);
      return false;
    }
    if (settings.max_candidate > 0 && tried >= settings.max_candidate) {
      print_msg("  [Op=%d]\n  <<The number of rejected split-merge candidates reached the limit>>\n", o);
      return false;
    }
    if (skip_candidate(pos)) {
      smem.num_result_skipped[o - 1]++;
      continue;
    }
    int part = 0, full = try_candidate(o, pos, tried, limit, &part);
    const SmCandidate &c = smem.sm_candidate[pos];
    SmDecision why = judge_candidate(c, model.final_lambda, kept->lambda);
    print_decision(c, why, model.final_lambda, kept->lambda);
    if (why == SM_ACCEPT) {
      smem.num_iterate_sm_part[o] = part;
      smem.num_iterate_sm_full[o] = full;
      *kept = Kept{model.final_lambda, model.final_loglike, model.final_log_prior};
      return true;
    }
    tried++;
    smem.num_result_rejected[o - 1]++;
    restore_param_sm();
  }
}

}  // namespace

SmDecision judge_candidate(const SmCandidate &c, long double l_new, long double l_last) {
  if (l_new <= l_last) return SM_NO_IMPROVEMENT;
  if (l_new - l_last <= settings.min_smem_improve) return SM_SMALL_IMPROVEMENT;
  long double lim = settings.min_new_param_c;
  const long double *pc = model.param_c;
  if (lim > 0 && !(pc[c.i] > lim && pc[c.j] > lim && pc[c.k] > lim)) return SM_SMALL_CLASS;
  return SM_ACCEPT;
}

void run_sm_operations(int limit) {
  Kept kept{model.final_lambda, model.final_loglike, model.final_log_prior};
  for (int o = 1; o - 1 < settings.num_sm; o++) {
    prepare_operation();
    if (!walk_candidates(o, limit, &kept)) break;
  }
  model.final_lambda = kept.lambda;
  model.final_loglike = kept.loglike;
  model.final_log_prior = kept.log_prior;
}
