// M-step (maximum likelihood or posterior mode), the log-likelihood and the
// log prior of the current parameters.
#include <cmath>
#include <cstring>

#include "base/gamma_f.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "base/parallel.h"
#include "base/scratch.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/gauss.h"
#include "model/wishart.h"
#include "model/report.h"

namespace {

const long double kCovFloor = 1e-12L;

// lngamma at its argument rounded to double.
long double lng(long double x) { return lngamma(static_cast<double>(x)); }

void update_class() {
  int nk = model.num_class;
  long double n = cases.total_freq;
  if (settings.mode_read_hparam) {
    long double sum = 0;
    for (int j = 0; j < nk; j++) sum += model.hparam_c[j] + model.expect_c[j] - 1.0L;
    for (int k = 0; k < nk; k++) model.param_c[k] = (model.hparam_c[k] + model.expect_c[k] - 1.0L) / sum;
  } else if (model.smooth.c > 0) {
    long double s = model.smooth.c;
    for (int k = 0; k < nk; k++) model.param_c[k] = (model.expect_c[k] + s) / (nk * s + n);
  } else {
    for (int k = 0; k < nk; k++) model.param_c[k] = model.expect_c[k] / n;
  }
}

// New value probabilities of one class and attribute; the cases where the
// attribute is missing are spread in proportion to the old probabilities.
void update_nominal_one(int k, int a) {
  int nv = cases.num_word[a];
  if (nv <= 0) return;
  long double *w = model.param_w[k][a];
  const long double *ew = model.expect_w[k][a];
  long double miss = cases.num_miss_w[a];
  long double sa = settings.mode_read_hparam ? 0.0L : model.smooth.w[a];
  long double sum = 0;
  for (int v = 0; v < nv; v++) {
    long double t;
    if (settings.mode_read_hparam) t = (model.hparam_w[k][a][v] - 1.0L) + ew[v] + w[v] * miss;
    else if (sa > 0) t = sa + ew[v] + w[v] * miss;
    else t = ew[v] + w[v] * miss;
    w[v] = t;  // the old value is no longer needed once its own t is formed
    sum += t;
  }
  for (int v = 0; v < nv; v++) w[v] /= sum;
}

void clamp_and_mirror(Matrix s) {
  int d = matrix_rows(s);
  for (int i = 0; i < d; i++)
    for (int j = i; j < d; j++)
      if (fabsl(s[i][j]) <= kCovFloor) s[i][j] = (i == j || s[i][j] >= 0) ? kCovFloor : -kCovFloor;
  copy_upper_to_lower(s);
}

void update_gauss_ml(int k, int g) {
  int d = settings.gauss_attr_size[g];
  long double nk = model.expect_c[k];
  long double *mu = model.param_u[k][g];
  long double **s = model.param_s[k][g];
  const long double *u = model.expect_u[k][g];
  long double **q = model.expect_s[k][g];
  for (int i = 0; i < d; i++) mu[i] = u[i] / nk;
  for (int i = 0; i < d; i++)
    for (int j = i; j < d; j++) s[i][j] = q[i][j] / nk - mu[i] * mu[j];
  clamp_and_mirror(s);
}

void update_gauss_map(int k, int g) {
  int d = settings.gauss_attr_size[g];
  long double nk = model.expect_c[k], tau = get_tau(k), alpha = get_alpha_w(k, g, d);
  long double *mu = model.param_u[k][g];
  long double **s = model.param_s[k][g];
  const long double *u = model.expect_u[k][g], *m = model.hparam_u[k][g];
  long double **q = model.expect_s[k][g], **h = model.hparam_s[k][g];
  for (int i = 0; i < d; i++) mu[i] = (u[i] + tau * m[i]) / (nk + tau);
  long double denom = (alpha - d) + nk;
  for (int i = 0; i < d; i++)
    for (int j = i; j < d; j++)
      s[i][j] = (nk * mu[i] * mu[j] + q[i][j] + h[i][j] - u[j] * mu[i] - u[i] * mu[j] +
                 tau * (m[i] - mu[i]) * (m[j] - mu[j])) / denom;
  clamp_and_mirror(s);
}

}  // namespace

void update_param_one(int k) {
  if (settings.mode_nominal)
    for (int a = 0; a < settings.tuple_size_d; a++) update_nominal_one(k, a);
  if (settings.mode_gauss)
    for (int g = 0; g < settings.gauss_size; g++) {
      if (settings.gauss_attr_size[g] < 1) continue;
      if (model.smooth.gauss) update_gauss_map(k, g);
      else update_gauss_ml(k, g);
    }
}

void update_param() {
  update_class();
  for (int k = 0; k < model.num_class; k++) update_param_one(k);
  if (settings.mode_gauss) {
    if (refresh_precisions() != 0) {
      model_report.param(settings.fp_log);
      die_numeric("update_param", "Failed to invert covariances\n");
    }
  }
  if (settings.mode_verbose) model_report.param(settings.fp_log);
}

void check_score(long double x, const char *where, const char *nan_msg, const char *inf_msg) {
  if (std::isnan(x)) {
    model_report.param(settings.fp_log);
    die_numeric(where, nan_msg);
  }
  if (std::isinf(x)) {
    model_report.param(settings.fp_log);
    die_numeric(where, inf_msg);
  }
}

long double compute_loglike() {
  long double l = 0;
  int ne = cases.num_entry;
  const long double *lp = model.prob_incomp;
  if (!use_log_scale()) {
    // The logarithms on all threads, the sum in case order.
    static ScratchArray<long double> logs;
    logs.resize(ne, "mstep.cpp", 1);
    parallel_ranges(ne, 30.0 * ne, [&](int begin, int end) {
      for (int e = begin; e < end; e++)
        if (cases.freq_list[e].count > 0) logs[e] = logl(model.prob_incomp[e]);
    });
    lp = logs.data;
  }
  for (int e = 0; e < ne; e++) {
    int n = cases.freq_list[e].count;
    if (n > 0) l += n * lp[e];
  }
  check_score(l, "compute_loglike", "Computed log-likelihood is not a number -- see the log file\n",
              "Computed log-likelihood is not finite -- see the log file\n");
  return l;
}

namespace {

long double log_prior_class() {
  int nk = model.num_class;
  long double lp = 0;
  if (settings.mode_read_hparam) {
    long double sum = 0;
    for (int k = 0; k < nk; k++) sum += model.hparam_c[k];
    lp = lng(sum);
    for (int k = 0; k < nk; k++)
      lp += -lng(model.hparam_c[k]) + (model.hparam_c[k] - 1.0L) * logl(model.param_c[k]);
    return lp;
  }
  long double s = model.smooth.c;
  if (s <= 0) return 0;
  lp = lng(nk * (s + 1.0L)) - nk * lng(s + 1.0L);
  long double sum = 0;
  for (int k = 0; k < nk; k++) sum += logl(model.param_c[k]);
  return lp + s * sum;
}

long double log_prior_nominal_file() {
  long double lp = 0;
  for (int k = 0; k < model.num_class; k++)
    for (int a = 0; a < settings.tuple_size_d; a++) {
      long double sum = 0, t = 0;
      for (int v = 0; v < cases.num_word[a]; v++) {
        long double h = model.hparam_w[k][a][v];
        sum += h;
        t += -lng(h) + (h - 1.0L) * logl(model.param_w[k][a][v]);
      }
      lp += lng(sum) + t;
    }
  return lp;
}

long double log_prior_nominal() {
  if (settings.mode_read_hparam) return log_prior_nominal_file();
  int nk = model.num_class;
  long double lp = 0;
  for (int a = 0; a < settings.tuple_size_d; a++) {
    long double sa = model.smooth.w[a];
    int nv = cases.num_word[a];
    lp += nk * lng(nv * (1.0L + sa)) - static_cast<long double>(nk) * nv * lng(1.0L + sa);
    if (sa <= 0) continue;
    long double sum = 0;
    for (int k = 0; k < nk; k++)
      for (int v = 0; v < nv; v++) sum += logl(model.param_w[k][a][v]);
    lp += sa * sum;
  }
  return lp;
}

long double log_prior_gauss() {
  long double lp = 0;
  for (int k = 0; k < model.num_class; k++)
    for (int g = 0; g < settings.gauss_size; g++) {
      int d = settings.gauss_attr_size[g];
      Matrix st = dup_matrix(model.param_s[k][g]);
      div_const_matrix(st, get_tau(k));
      lp += lgauss(model.param_u[k][g], model.hparam_u[k][g], st);
      release_matrix0(st);
      // Wishart density of the precision with scale hparam_p (whose inverse is
      // hparam_s and determinant 1 / hparam_sdet): the prior that the
      // covariance update above maximises.
      lp += lwishart_det(model.param_p[k][g], model.hparam_p[k][g], model.hparam_s[k][g],
                         1.0L / model.param_sdet[k][g], 1.0L / model.hparam_sdet[k][g],
                         get_alpha_w(k, g, d));
    }
  return lp;
}

}  // namespace

long double compute_log_prior() {
  long double lp = log_prior_class();
  if (settings.mode_nominal) lp += log_prior_nominal();
  if (settings.mode_gauss && model.smooth.gauss) lp += log_prior_gauss();
  check_score(lp, "compute_log_prior", "Computed log-prior is not a number -- see the log file\n",
              "Computed log-prior is not finite -- see the log file\n");
  return lp;
}
