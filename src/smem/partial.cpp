// Partial EM of a split-merge candidate: the re-initialisation of its three
// classes, and EM updates that touch only those three while the other
// classes' share of every case's probability stays fixed.
#include <cmath>
#include <cstdlib>

#include "input/stat.h"
#include "base/guards.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "base/random.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/report.h"
#include "smem/smem.h"

namespace {

const char kModule[] = "partial.cpp";

bool in_part(int k) {
  return k == smem.part_class[0] || k == smem.part_class[1] || k == smem.part_class[2];
}

[[noreturn]] void die_part(const char *where, const char *what) {
  model_report.param(settings.fp_log);
  die_numeric(where, what);
}

void normalize(long double *p, int n) {
  long double sum = 0;
  for (int v = 0; v < n; v++) sum += p[v];
  for (int v = 0; v < n; v++) p[v] /= sum;
}

// Discrete values: i takes the mix of i and j, j and k get noisy copies of k.
void init_nominal_part(const SmCandidate &c, long double a, long double b) {
  for (int d = 0; d < settings.tuple_size_d; d++) {
    int nv = cases.num_word[d];
    long double *wi = model.param_w[c.i][d], *wj = model.param_w[c.j][d], *wk = model.param_w[c.k][d];
    for (int v = 0; v < nv; v++) {
      wi[v] = a * wi[v] + b * wj[v];
      long double u1 = genrand_res53(), u2 = genrand_res53();
      wj[v] = wk[v] + u1 * settings.noise_ratio / nv;
      wk[v] = wk[v] + u2 * settings.noise_ratio / nv;
    }
    normalize(wi, nv);
    normalize(wj, nv);
    normalize(wk, nv);
  }
}

void init_mean_part(const SmCandidate &c, long double a, long double b) {
  for (int g = 0; g < settings.gauss_size; g++) {
    long double *ui = model.param_u[c.i][g], *uj = model.param_u[c.j][g], *uk = model.param_u[c.k][g];
    for (int m = 0; m < settings.gauss_attr_size[g]; m++) {
      long double spread = settings.noise_ratio_gauss * sqrtl(stats.sample_s[g][m][m]);
      ui[m] = a * ui[m] + b * uj[m];
      long double u1 = genrand_res53(), u2 = genrand_res53();
      uj[m] = uk[m] + spread * (0.5L - u1);
      uk[m] = uk[m] + spread * (0.5L - u2);
    }
  }
}

// Covariances: i takes the mix of i and j; j and k become spherical with the
// volume of k's covariance.
void init_covar_part(const SmCandidate &c, long double a, long double b) {
  for (int g = 0; g < settings.gauss_size; g++) {
    int d = settings.gauss_attr_size[g];
    Matrix si = model.param_s[c.i][g], sj = model.param_s[c.j][g], sk = model.param_s[c.k][g];
    matrix_err.err_det = 0;
    long double det = determinant_c(sk);
    if (matrix_err.err_det != 0)
      die_part("initialize_param_part", "Failed to compute the determinant of covariances\n");
    for (int r = 0; r < d; r++)
      for (int s = r; s < d; s++) si[r][s] = a * si[r][s] + b * sj[r][s];
    copy_upper_to_lower(si);
    set_diag_matrix(sk, powl(det, 1.0L / d));
    copy_matrix(sj, sk);
  }
}

// Pseudo count added to a class's expected count in the class update.
long double class_pseudo_count(int k) {
  if (settings.mode_read_hparam) return model.hparam_c[k] - 1.0L;
  return model.smooth.c > 0 ? model.smooth.c : 0.0L;
}

// log(exp(x) + ...) of n values, the largest taken out first.
long double log_sum(const long double *x, int n) {
  long double mx = x[0], sum = 0;
  for (int i = 1; i < n; i++)
    if (x[i] > mx) mx = x[i];
  if (std::isinf(mx) && mx < 0) return mx;
  for (int i = 0; i < n; i++) sum += expl(x[i] - mx);
  return mx + logl(sum);
}

// The singular-covariance test of the full EM: every class, in index order.
bool singular_part(int o, int t) {
  for (int k = 0; k < model.num_class; k++)
    if (check_singular_class(k, t, smem.lambda_sm[o][t])) return true;
  return false;
}

}  // namespace

void alloc_param_part() {
  smem.param_c_part = static_cast<long double *>(calloc_str0(sizeof(long double) * 3, kModule, 1));
}

void release_param_part() {
  free(smem.param_c_part);
  smem.param_c_part = nullptr;
}

void alloc_prob_part() {
  int n = cases.num_entry > 0 ? cases.num_entry : 1;
  smem.prob_incomp_part = static_cast<long double *>(calloc_str0(sizeof(long double) * n, kModule, 2));
}

void release_prob_part() {
  free(smem.prob_incomp_part);
  smem.prob_incomp_part = nullptr;
}

void initialize_param_part(const SmCandidate &c) {
  smem.part_class[0] = c.i;
  smem.part_class[1] = c.j;
  smem.part_class[2] = c.k;
  long double *pc = model.param_c;
  pc[c.i] += pc[c.j];
  long double half = pc[c.k] / 2;
  pc[c.j] = half;
  pc[c.k] = half;
  long double ei = smem.expect_c_sm[c.i], ej = smem.expect_c_sm[c.j];
  long double a = ei / (ei + ej), b = ej / (ei + ej);
  if (settings.mode_nominal) init_nominal_part(c, a, b);
  if (settings.mode_gauss) {
    init_mean_part(c, a, b);
    init_covar_part(c, a, b);
    if (refresh_precisions() != 0) die_part("initialize_param_part", "Failed to invert covariances\n");
  }
  for (int n = 0; n < 3; n++) smem.param_c_part[n] = pc[smem.part_class[n]];
  if (settings.mode_verbose) model_report.param(settings.fp_log);
}

void compute_complete_prob_part() {
  compute_complete_prob_classes(smem.part_class, 3);
}

// The other classes' share of P(x_e): a plain sum, or its logarithm (minus
// infinity when no other class exists).
void save_incomplete_prob_part() {
  bool log_scale = use_log_scale();
  int nk = model.num_class;
  long double *x = static_cast<long double *>(xmalloc0(sizeof(long double) * (nk > 0 ? nk : 1), kModule, 3));
  for (int e = 0; e < cases.num_entry; e++) {
    int n = 0;
    for (int k = 0; k < nk; k++)
      if (!in_part(k)) x[n++] = model.prob_comp[k][e];
    long double share = 0;
    if (log_scale) share = n > 0 ? log_sum(x, n) : -INFINITY;
    else
      for (int i = 0; i < n; i++) share += x[i];
    smem.prob_incomp_part[e] = share;
  }
  free(x);
}

void compute_incomplete_prob_part_nolog() {
  const int *pc = smem.part_class;
  for (int e = 0; e < cases.num_entry; e++)
    model.prob_incomp[e] =
        smem.prob_incomp_part[e] + model.prob_comp[pc[0]][e] + model.prob_comp[pc[1]][e] + model.prob_comp[pc[2]][e];
}

void compute_incomplete_prob_part_log() {
  const int *pc = smem.part_class;
  for (int e = 0; e < cases.num_entry; e++) {
    long double x[4] = {model.prob_comp[pc[0]][e], model.prob_comp[pc[1]][e], model.prob_comp[pc[2]][e],
                        smem.prob_incomp_part[e]};
    model.prob_incomp[e] = log_sum(x, 4);
  }
}

void compute_incomplete_prob_part() {
  if (use_log_scale()) compute_incomplete_prob_part_log();
  else compute_incomplete_prob_part_nolog();
}

// Posteriors of the three classes, written to their rows of prob_cond.
void compute_conditional_prob_part() {
  bool log_scale = use_log_scale();
  for (int c : smem.part_class)
    for (int e = 0; e < cases.num_entry; e++) {
      long double px = model.prob_incomp[e];
      if (log_scale) model.prob_cond[c][e] = expl(model.prob_comp[c][e] - px);
      else model.prob_cond[c][e] = px <= kMinProb ? 0.0L : model.prob_comp[c][e] / px;
    }
}

void compute_expect_part() {
  compute_expect_classes(smem.part_class, 3);
}

// The M-step of the three classes; their class probabilities keep the total
// they had right after initialisation.
void update_param_part() {
  long double total = 0, denom = 0;
  for (int n = 0; n < 3; n++) {
    int c = smem.part_class[n];
    total += smem.param_c_part[n];
    denom += model.expect_c[c] + class_pseudo_count(c);
  }
  for (int c : smem.part_class) {
    model.param_c[c] = (model.expect_c[c] + class_pseudo_count(c)) * total / denom;
    update_param_one(c);
  }
  if (settings.mode_gauss && refresh_precisions() != 0)
    die_part("update_param_part", "Failed to invert covariances\n");
  if (settings.mode_verbose) model_report.param(settings.fp_log);
}

int smem_iterate_part(int o, int limit) {
  int t = 0;
  for (;;) {
    check_stop();
    compute_conditional_prob_part();
    compute_expect_part();
    update_param_part();
    if (singular_part(o, t)) break;
    t++;
    if (t >= smem.ll_sm_size[o]) expand_loglike_sm_all(o);
    compute_complete_prob_part();
    compute_incomplete_prob_part();
    record_loglike_sm(o, t, 1.0L);
    long double cur = smem.lambda_sm[o][t], last = smem.lambda_sm[o][t - 1];
    if (is_decreased_trace(smem.lambda_sm[o], log_itemp_sm_row(o), t)) {
      print_msg("\n(part) (iter:%d) LL or LPost decreased! (curr: %.Nf / last: %.Nf)\n", t, cur, last);
      break;
    }
    if (t >= limit) {
      print_msg("(S:%d)", t);
      break;
    }
    if (cur - last < settings.epsilon) {
      print_msg("(C:%d)", t);
      break;
    }
  }
  return t;
}
