// E-step: complete-data, incomplete-data and conditional probabilities of
// every distinct case, and the expected sufficient statistics.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/matrix.h"
#include "base/misc.h"
#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/gauss.h"
#include "output/print.h"

namespace {

const long double kMinProb = 1e-60L;

// Observed-component flags of one group of one case, in a buffer kept for the
// whole run (only partly observed groups need it).
const int *observed_flags(const CaseRecord &rec, int g) {
  static int *buf = nullptr;
  static int cap = 0;
  int d = settings.gauss_attr_size[g];
  if (d > cap) {
    buf = static_cast<int *>(xrealloc0(buf, sizeof(int) * d, "estep.cpp", 1));
    cap = d;
  }
  for (int i = 0; i < d; i++) buf[i] = rec.miss_g[g][i] ? 0 : 1;
  return buf;
}

bool all_discrete_present(const CaseRecord &rec) {
  return cases.total_num_miss_w == 0 || rec.num_miss == 0;
}

// log P(k, x_e), each term multiplied by beta.
long double complete_log(int k, int e, long double beta) {
  const CaseRecord &rec = cases.freq_list[e];
  long double p = beta * logl(model.param_c[k]);
  bool all = all_discrete_present(rec);
  for (int a = 0; a < settings.tuple_size_d; a++)
    if (all || !rec.miss_w[a]) p += beta * logl(model.param_w[k][a][rec.word[a]]);
  for (int g = 0; g < settings.gauss_size; g++) {
    int m = rec.num_miss_gauss[g];
    if (m == 0) {
      p += beta * lgauss_prec(rec.gauss[g], model.param_u[k][g], model.param_s[k][g],
                              model.param_p[k][g], model.param_sdet[k][g]);
    } else if (m < settings.gauss_attr_size[g]) {
      p += beta * lgauss_marginal(rec.gauss[g], model.param_u[k][g], model.param_s[k][g],
                                  observed_flags(rec, g));
    }
  }
  return p;
}

// P(k, x_e), each factor raised to beta when tempered.
long double complete_nolog(int k, int e, bool tempered, long double beta) {
  const CaseRecord &rec = cases.freq_list[e];
  long double p = tempered ? powl(model.param_c[k], beta) : model.param_c[k];
  bool all = all_discrete_present(rec);
  for (int a = 0; a < settings.tuple_size_d; a++) {
    if (!all && rec.miss_w[a]) continue;
    long double w = model.param_w[k][a][rec.word[a]];
    p *= tempered ? powl(w, beta) : w;
  }
  for (int g = 0; g < settings.gauss_size; g++) {
    int m = rec.num_miss_gauss[g];
    long double q;
    if (m == 0)
      q = gauss_prec(rec.gauss[g], model.param_u[k][g], model.param_s[k][g], model.param_p[k][g],
                     model.param_sdet[k][g]);
    else if (m < settings.gauss_attr_size[g])
      q = gauss_marginal(rec.gauss[g], model.param_u[k][g], model.param_s[k][g], observed_flags(rec, g));
    else
      continue;
    p *= tempered ? powl(q, beta) : q;
  }
  return p;
}

void fill_complete_log(long double beta) {
  for (int k = 0; k < settings.num_class; k++)
    for (int e = 0; e < cases.num_entry; e++) model.prob_comp[k][e] = complete_log(k, e, beta);
  if (settings.mode_verbose) print_complete_prob(settings.fp_log);
}

void fill_complete_nolog(bool tempered, long double beta) {
  for (int k = 0; k < settings.num_class; k++)
    for (int e = 0; e < cases.num_entry; e++)
      model.prob_comp[k][e] = complete_nolog(k, e, tempered, beta);
  if (settings.mode_verbose) print_complete_prob(settings.fp_log);
}

}  // namespace

int use_log_scale() { return settings.mode_log_scale && settings.mode_smooth_strict; }

void compute_complete_prob_class(int k) {
  bool log_scale = use_log_scale();
  for (int e = 0; e < cases.num_entry; e++)
    model.prob_comp[k][e] = log_scale ? complete_log(k, e, 1.0L) : complete_nolog(k, e, false, 1.0L);
}

void compute_complete_prob_log() { fill_complete_log(1.0L); }
void compute_complete_prob_nolog() { fill_complete_nolog(false, 1.0L); }
void compute_complete_prob_daem_log() { fill_complete_log(model.itemp); }
void compute_complete_prob_daem_nolog() { fill_complete_nolog(true, model.itemp); }

void compute_complete_prob() {
  if (use_log_scale()) compute_complete_prob_log();
  else compute_complete_prob_nolog();
}

void compute_complete_prob_daem() {
  if (use_log_scale()) compute_complete_prob_daem_log();
  else compute_complete_prob_daem_nolog();
}

void compute_incomplete_prob() {
  int nk = settings.num_class;
  bool log_scale = use_log_scale();
  for (int e = 0; e < cases.num_entry; e++) {
    long double sum = 0;
    if (!log_scale) {
      for (int k = 0; k < nk; k++) sum += model.prob_comp[k][e];
      model.prob_incomp[e] = sum;
      continue;
    }
    if (nk < 1) {
      model.prob_incomp[e] = 0;
      continue;
    }
    long double mx = model.prob_comp[0][e];
    for (int k = 1; k < nk; k++)
      if (model.prob_comp[k][e] > mx) mx = model.prob_comp[k][e];
    for (int k = 0; k < nk; k++) sum += expl(model.prob_comp[k][e] - mx);
    model.prob_incomp[e] = mx + logl(sum);
  }
  if (settings.mode_verbose) print_incomplete_prob(settings.fp_log);
}

void compute_conditional_prob() {
  bool log_scale = use_log_scale();
  for (int k = 0; k < settings.num_class; k++)
    for (int e = 0; e < cases.num_entry; e++) {
      long double px = model.prob_incomp[e];
      if (log_scale) model.prob_cond[k][e] = expl(model.prob_comp[k][e] - px);
      else model.prob_cond[k][e] = px <= kMinProb ? 0.0L : model.prob_comp[k][e] / px;
    }
  if (settings.mode_verbose) print_conditional_prob(settings.fp_log);
}

namespace {

void expect_class_one(int k) {
  long double s = 0;
  for (int e = 0; e < cases.num_entry; e++) s += model.prob_cond[k][e] * cases.freq_list[e].count;
  model.expect_c[k] = s;
}

void compute_expect_class() {
  for (int k = 0; k < settings.num_class; k++) expect_class_one(k);
}

void expect_nominal_one(int k) {
  for (int a = 0; a < settings.tuple_size_d; a++)
    memset(model.expect_w[k][a], 0, sizeof(long double) * cases.num_word[a]);
  for (int e = 0; e < cases.num_entry; e++) {
    const CaseRecord &rec = cases.freq_list[e];
    long double w = model.prob_cond[k][e] * rec.count;
    bool all = all_discrete_present(rec);
    for (int a = 0; a < settings.tuple_size_d; a++)
      if (all || !rec.miss_w[a]) model.expect_w[k][a][rec.word[a]] += w;
  }
}

void compute_expect_nominal() {
  for (int k = 0; k < settings.num_class; k++) expect_nominal_one(k);
}

// Adds w x and w x x' (upper triangle) to the statistics of class k, group g.
void add_moments(int k, int g, long double w, const long double *x) {
  int d = settings.gauss_attr_size[g];
  long double *u = model.expect_u[k][g];
  long double **q = model.expect_s[k][g];
  for (int i = 0; i < d; i++) {
    long double wx = w * x[i];
    u[i] += wx;
    for (int j = i; j < d; j++) q[i][j] += wx * x[j];
  }
}

[[noreturn]] void die_singular_block() {
  die_numeric("compute_expect_gauss0", "Failed to invert covariances\n");
}

// Conditional mean of the missing components (written into xt, which holds x)
// and conditional covariance of the missing block (into cov, zero elsewhere),
// given the observed ones, under class k.
void impute_general(int k, int g, const CaseRecord &rec, Vector xt, Matrix cov) {
  int d = settings.gauss_attr_size[g];
  const int *obs = observed_flags(rec, g);
  const long double *mu = model.param_u[k][g];
  long double **s = model.param_s[k][g];
  int no = d - rec.num_miss_gauss[g];
  Matrix soo = alloc_proj_matrix_n(s, obs, obs, no, no);
  Matrix poo = alloc_matrix(no, no);
  // The closed forms for up to three observed components leave the flag
  // alone and show a singular block only by a zero determinant.
  matrix_err.err_inv = 0;
  long double det = invert_c(soo, poo);
  if (matrix_err.err_inv != 0 || det == 0) die_singular_block();
  int *oi = static_cast<int *>(xmalloc0(sizeof(int) * d, "estep.cpp", 2));
  for (int i = 0, n = 0; i < d; i++)
    if (obs[i]) oi[n++] = i;
  // b_m = S_mo P_oo for each missing row m; imputed mean and conditional covariance follow.
  Vector b = alloc_vector(no);
  for (int m = 0; m < d; m++) {
    if (obs[m]) continue;
    for (int c = 0; c < no; c++) {
      long double t = 0;
      for (int r = 0; r < no; r++) t += s[m][oi[r]] * poo[r][c];
      b[c] = t;
    }
    long double xm = mu[m];
    for (int c = 0; c < no; c++) xm += b[c] * (rec.gauss[g][oi[c]] - mu[oi[c]]);
    xt[m] = xm;
    for (int m2 = 0; m2 < d; m2++) {
      if (obs[m2]) continue;
      long double t = s[m][m2];
      for (int c = 0; c < no; c++) t -= b[c] * s[oi[c]][m2];
      cov[m][m2] = t;
    }
  }
  release_vector0(b);
  free(oi);
  release_matrix0(soo);
  release_matrix0(poo);
}

void impute_bivariate(int k, int g, const CaseRecord &rec, Vector xt, Matrix cov) {
  int m = rec.miss_g[g][0] ? 0 : 1, o = 1 - m;
  const long double *mu = model.param_u[k][g];
  long double **s = model.param_s[k][g];
  if (s[o][o] == 0) die_singular_block();
  xt[m] = mu[m] + (rec.gauss[g][o] - mu[o]) * s[m][o] / s[o][o];
  cov[m][m] = s[m][m] - s[m][o] * s[m][o] / s[o][o];
}

void add_partial(int k, int g, long double w, const CaseRecord &rec) {
  int d = settings.gauss_attr_size[g];
  Vector xt = dup_vector(rec.gauss[g]);
  Matrix cov = alloc_clear_matrix(d, d);
  if (d == 2) impute_bivariate(k, g, rec, xt, cov);
  else impute_general(k, g, rec, xt, cov);
  add_moments(k, g, w, xt);
  for (int i = 0; i < d; i++)
    for (int j = i; j < d; j++) model.expect_s[k][g][i][j] += w * cov[i][j];
  release_vector0(xt);
  release_matrix0(cov);
}

void add_missing(int k, int g, long double w) {
  int d = settings.gauss_attr_size[g];
  add_moments(k, g, w, model.param_u[k][g]);
  for (int i = 0; i < d; i++)
    for (int j = i; j < d; j++) model.expect_s[k][g][i][j] += w * model.param_s[k][g][i][j];
}

}  // namespace

void compute_expect_gauss0(int k, int e) {
  const CaseRecord &rec = cases.freq_list[e];
  long double w = model.prob_cond[k][e] * rec.count;
  for (int g = 0; g < settings.gauss_size; g++) {
    int m = rec.num_miss_gauss[g];
    if (m == 0) add_moments(k, g, w, rec.gauss[g]);
    else if (m < settings.gauss_attr_size[g]) add_partial(k, g, w, rec);
    else add_missing(k, g, w);
  }
}

namespace {

void expect_gauss_one(int k) {
  for (int g = 0; g < settings.gauss_size; g++) {
    clear_vector(model.expect_u[k][g]);
    clear_matrix(model.expect_s[k][g]);
  }
  for (int e = 0; e < cases.num_entry; e++) compute_expect_gauss0(k, e);
}

}  // namespace

void compute_expect_gauss() {
  for (int k = 0; k < settings.num_class; k++) expect_gauss_one(k);
}

void compute_expect_one(int k) {
  expect_class_one(k);
  if (settings.mode_nominal) expect_nominal_one(k);
  if (settings.mode_gauss) expect_gauss_one(k);
}

void compute_expect() {
  compute_expect_class();
  if (settings.mode_nominal) compute_expect_nominal();
  if (settings.mode_gauss) compute_expect_gauss();
  if (settings.mode_verbose) print_expectation(settings.fp_log);
}
