// The split-merge loop for one class count: restarts with full EM, then
// operations that each walk the candidate list, try candidates (partial EM,
// then full EM) and keep the first that improves the objective enough.
#include "smem/smem.h"

#include <cstdlib>
#include <cstring>

#include "base/misc.h"
#include "settings/settings.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/report.h"
#include "smem/report.h"

Smem smem;

namespace {

const char kModule[] = "smem.cpp";
const int kRowStart = 64;  // first capacity of an operation row

int num_k() { return model.num_class; }

// Update limit of every EM run of the loop.
int update_limit() {
  if (settings.num_init > 1 && settings.max_init_iterate > 0) return settings.max_init_iterate;
  if (settings.max_iterate > 0) return settings.max_iterate;
  return 10000;
}

long double **new_rows(int rows, int cols) {
  long double **p = static_cast<long double **>(calloc_str0(sizeof(long double *) * rows, kModule, 1));
  for (int o = 0; o < rows; o++)
    p[o] = static_cast<long double *>(calloc_str0(sizeof(long double) * cols, kModule, 2));
  return p;
}

void free_rows(long double **&p, int rows) {
  if (p == nullptr) return;
  for (int o = 0; o < rows; o++) free(p[o]);
  free(p);
  p = nullptr;
}

int *new_ints(int n) { return static_cast<int *>(calloc_str0(sizeof(int) * (n > 0 ? n : 1), kModule, 3)); }

void free_ints(int *&p) {
  free(p);
  p = nullptr;
}

long double *grow_row(long double *p, int old_size, int new_size) {
  p = static_cast<long double *>(xrealloc0(p, sizeof(long double) * new_size, kModule, 4));
  memset(p + old_size, 0, sizeof(long double) * (new_size - old_size));
  return p;
}

}  // namespace

long double *log_itemp_sm_row(int o) { return smem.log_itemp_sm != nullptr ? smem.log_itemp_sm[o] : nullptr; }

// ---- arrays -----------------------------------------------------------------

void alloc_param_sm() { new_param_set(smem.param_c_sm, smem.param_w_sm, smem.param_u_sm, smem.param_s_sm, num_k()); }

void release_param_sm() {
  free_param_set(smem.param_c_sm, smem.param_w_sm, smem.param_u_sm, smem.param_s_sm, num_k());
}

void save_param_sm() {
  copy_param_set(smem.param_c_sm, smem.param_w_sm, smem.param_u_sm, smem.param_s_sm, model.param_c,
                 model.param_w, model.param_u, model.param_s, num_k());
}

void restore_param_sm() {
  copy_param_set(model.param_c, model.param_w, model.param_u, model.param_s, smem.param_c_sm,
                 smem.param_w_sm, smem.param_u_sm, smem.param_s_sm, num_k());
  if (refresh_precisions() != 0) die_numeric("restore_param_sm", "Failed to invert covariances\n");
}

void alloc_ll_sm_size() {
  smem.num_row = settings.num_sm + 1;
  smem.ll_sm_size = new_ints(smem.num_row);
  for (int o = 0; o < smem.num_row; o++) smem.ll_sm_size[o] = kRowStart;
}

void alloc_loglike_sm() {
  smem.loglike_sm = new_rows(smem.num_row, kRowStart);
  smem.lambda_sm = new_rows(smem.num_row, kRowStart);
  if (model.smooth.any) smem.log_prior_sm = new_rows(smem.num_row, kRowStart);
}

void alloc_log_itemp_sm() {
  if (settings.mode_daem) smem.log_itemp_sm = new_rows(smem.num_row, kRowStart);
}

void release_loglike_sm() {
  free_rows(smem.loglike_sm, smem.num_row);
  free_rows(smem.lambda_sm, smem.num_row);
  free_rows(smem.log_prior_sm, smem.num_row);
  free_rows(smem.log_itemp_sm, smem.num_row);
  free_ints(smem.ll_sm_size);
}

void expand_loglike_sm_all(int o) {
  int old_size = smem.ll_sm_size[o], n = old_size * 2;
  long double **rows[] = {smem.loglike_sm, smem.lambda_sm, smem.log_prior_sm, smem.log_itemp_sm};
  for (long double **r : rows)
    if (r != nullptr) r[o] = grow_row(r[o], old_size, n);
  smem.ll_sm_size[o] = n;
}

void alloc_num_iterate_sm() {
  smem.num_iterate_sm_part = new_ints(settings.num_sm + 1);
  smem.num_iterate_sm_full = new_ints(settings.num_sm + 1);
}

void release_num_iterate_sm() {
  free_ints(smem.num_iterate_sm_part);
  free_ints(smem.num_iterate_sm_full);
}

void alloc_num_result_sm() {
  smem.num_result_rejected = new_ints(settings.num_sm);
  smem.num_result_skipped = new_ints(settings.num_sm);
}

void release_num_result_sm() {
  free_ints(smem.num_result_rejected);
  free_ints(smem.num_result_skipped);
}

// ---- full EM ----------------------------------------------------------------

void record_loglike_sm(int o, int t, long double itemp) {
  compute_objective(itemp, &smem.loglike_sm[o][t], model.smooth.any ? &smem.log_prior_sm[o][t] : nullptr,
                    &smem.lambda_sm[o][t]);
  if (settings.mode_daem) smem.log_itemp_sm[o][t] = itemp;
}

namespace {

void evaluate_sm(int o, int t, long double beta) {
  evaluate_objective(beta, &smem.loglike_sm[o][t], model.smooth.any ? &smem.log_prior_sm[o][t] : nullptr,
                     &smem.lambda_sm[o][t]);
  if (settings.mode_daem) smem.log_itemp_sm[o][t] = beta;
}

bool check_singular_sm(int o, int t) {
  for (int k = 0; k < num_k(); k++)
    if (check_singular_class(k, t, smem.lambda_sm[o][t])) return true;
  return false;
}

[[noreturn]] void report_decrease_sm(int o, int t) {
  smem_report.decrease(settings.fp_log, o, t);
  model_report.param(settings.fp_log);
  die_decrease("\n", smem.lambda_sm[o], log_itemp_sm_row(o), t);
}

// Without annealing only a positive gain below epsilon converges.
EmVerdict is_converged_sm(int o, int t, int limit) {
  const long double *lam = smem.lambda_sm[o];
  if (t >= limit) return report_stop(" (Stopped: %d iters)\tL=%.Nf\n", t, lam[t]);
  long double diff = lam[t] - lam[t - 1];
  if (0 < diff && diff < settings.epsilon) return report_stop(" (Converged: %d iters)\tL=%.Nf\n", t, lam[t]);
  return EM_GO_ON;
}

EmVerdict is_converged_sm_daem(int o, int t, int limit, long double beta) {
  return is_converged_daem_trace(smem.lambda_sm[o], log_itemp_sm_row(o), t, limit, beta);
}

void set_final_sm(int o, int t) {
  model.final_loglike = smem.loglike_sm[o][t];
  model.final_lambda = smem.lambda_sm[o][t];
  model.final_log_prior = model.smooth.any ? smem.log_prior_sm[o][t] : 0.0L;
}

}  // namespace

int smem_iterate_full(int o, int start, int limit, long double itemp) {
  long double beta = settings.mode_daem ? itemp : 1.0L;
  int quiet = o != 0, t = start;
  model.itemp = beta;
  if (start == 0) evaluate_sm(o, 0, beta);
  print_daem_message_sm(quiet, start, beta);
  for (;;) {
    print_dot_message(t);
    compute_conditional_prob();
    compute_expect();
    update_param();
    if (check_singular_sm(o, t)) {
      if (raise_itemp(quiet, t, &beta)) continue;
      break;
    }
    t++;
    if (t >= smem.ll_sm_size[o]) expand_loglike_sm_all(o);
    evaluate_sm(o, t, beta);
    if (is_decreased_trace(smem.lambda_sm[o], log_itemp_sm_row(o), t)) report_decrease_sm(o, t);
    EmVerdict v = settings.mode_daem ? is_converged_sm_daem(o, t, limit, beta) : is_converged_sm(o, t, limit);
    if (v == EM_END_RUN) break;
    if (v == EM_END_PHASE) raise_itemp(quiet, t, &beta);
  }
  set_final_sm(o, t);
  return t;
}

// ---- restarts ---------------------------------------------------------------

namespace {

// Copies updates 0..n of row 0 to the best-restart traces, or back.
void copy_row0(bool to_best, int n) {
  while (model.ll_size <= n) expand_loglike_all();
  long double *pairs[][2] = {{smem.loglike_sm[0], model.loglike_best},
                             {smem.lambda_sm[0], model.lambda_best},
                             {model.smooth.any ? smem.log_prior_sm[0] : nullptr, model.log_prior_best},
                             {log_itemp_sm_row(0), model.log_itemp_best}};
  size_t bytes = sizeof(long double) * (n + 1);
  for (auto &p : pairs) {
    if (p[0] == nullptr || p[1] == nullptr) continue;
    if (to_best) memcpy(p[1], p[0], bytes);
    else memcpy(p[0], p[1], bytes);
  }
}

// Restarts on row 0; leaves the best one's parameters, final values and
// trajectory in place.
void run_restarts(int kidx, int limit) {
  int r_best = 0, n_best = 0;
  for (int r = 0; r < settings.num_init; r++) {
    unsigned int s = reseed_restart();
    print_msg("  [%d] #iters ", r);
    initialize_param();
    int n = smem_iterate_full(0, 0, limit, settings.itemp_init);
    model.log_seed[kidx][r] = s;
    model.log_num_iterate[kidx][r] = n;
    model.log_final_lambda[kidx][r] = model.final_lambda;
    // Row 0 counts the most recent restart, whichever is kept.
    smem.num_iterate_sm_part[0] = n;
    smem.num_iterate_sm_full[0] = n;
    if (r == 0 || model.final_lambda > model.final_lambda_best) {
      r_best = r;
      n_best = n;
      model.final_lambda_best = model.final_lambda;
      model.itemp_best = model.itemp;
      copy_row0(true, n);
      save_param_best();
    }
  }
  model.log_r_best[kidx] = r_best;
  restore_param_best();
  copy_row0(false, n_best);
  set_final_sm(0, n_best);
  model.itemp = model.itemp_best;
}

}  // namespace

void alloc_smem() {
  alloc_jmerge();
  alloc_jsplit();
  alloc_candidate();
  alloc_param_sm();
  alloc_ll_sm_size();
  alloc_loglike_sm();
  alloc_log_itemp_sm();
  alloc_num_iterate_sm();
  alloc_num_result_sm();
  alloc_param_part();
  alloc_prob_part();
  smem.jsplit_run = -1;
  smem.last_i = smem.last_j = -1;
}

void release_smem() {
  release_prob_part();
  release_param_part();
  release_num_result_sm();
  release_num_iterate_sm();
  release_loglike_sm();
  release_param_sm();
  release_candidate();
  release_jsplit();
  release_jmerge();
}

void smem_iterate(int kidx) {
  alloc_smem();
  int limit = update_limit();
  run_restarts(kidx, limit);
  run_sm_operations(limit);
}
