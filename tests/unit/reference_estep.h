// A plain, one-case-at-a-time E-step written from the formulas with the
// matrix library only: no prepared densities, no caches, no threads. The
// program's passes must reproduce it bit for bit.
#ifndef VESK_TESTS_REFERENCE_ESTEP_H
#define VESK_TESTS_REFERENCE_ESTEP_H

#include <cmath>
#include <vector>

#include "base/allocate_matrix.h"
#include "base/matrix.h"
#include "input/read_freq.h"
#include "model/allocate.h"

namespace reference {

const double kLog2Pi = 1.8378770664093456;
const double kTwoPi = 6.283185307179586;

// log N(x; mu, S) by dimension: closed forms for 1 and 2, the inverse beyond.
inline long double lgauss(const long double *x, const long double *mu, long double *const *s, int d) {
  if (d == 1) {
    long double dx = x[0] - mu[0];
    return -0.5L * logl(kTwoPi * s[0][0]) - 0.5L * dx * dx / s[0][0];
  }
  if (d == 2) {
    long double sd1 = sqrtl(s[0][0]), sd2 = sqrtl(s[1][1]), rho = s[0][1] / (sd1 * sd2);
    long double z1 = (x[0] - mu[0]) / sd1, z2 = (x[1] - mu[1]) / sd2, one_r2 = 1.0L - rho * rho;
    return -0.5L * (z1 * z1 + z2 * z2 - 2.0L * rho * z1 * z2) / one_r2 - logl(kTwoPi * sd1 * sd2 * sqrtl(one_r2));
  }
  Matrix p = alloc_matrix(d, d);
  long double det = invert_c(s, p);
  Vector diff = alloc_vector(d);
  for (int i = 0; i < d; i++) diff[i] = x[i] - mu[i];
  long double r = -0.5L * qform(p, diff) - 0.5L * (logl(det) + d * kLog2Pi);
  release_vector0(diff);
  release_matrix0(p);
  return r;
}

// The same with a given precision and determinant from 3 dimensions on.
inline long double lgauss_prec(const long double *x, const long double *mu, long double *const *s,
                               long double *const *p, long double det, int d) {
  if (d <= 2) return lgauss(x, mu, s, d);
  Vector diff = alloc_vector(d);
  for (int i = 0; i < d; i++) diff[i] = x[i] - mu[i];
  long double r = -0.5L * qform(p, diff) - 0.5L * (logl(det) + d * kLog2Pi);
  release_vector0(diff);
  return r;
}

// The observed components packed, then the single-observation density.
inline long double lgauss_marginal(const long double *x, const long double *mu, long double *const *s,
                                   const int *observed) {
  Vector xo = alloc_proj_vector(x, observed), muo = alloc_proj_vector(mu, observed);
  Matrix so = alloc_proj_matrix(s, observed, observed);
  long double r = lgauss(xo, muo, so, vector_size(xo));
  release_matrix0(so);
  release_vector0(muo);
  release_vector0(xo);
  return r;
}

// log P(k, x_e) (log) or P(k, x_e), every factor raised to beta when tempered.
inline long double complete(int k, int e, bool log, bool tempered, long double beta) {
  const CaseRecord &rec = cases.freq_list[e];
  long double p = log ? beta * logl(model.param_c[k]) : tempered ? powl(model.param_c[k], beta) : model.param_c[k];
  bool all = cases.total_num_miss_w == 0 || rec.num_miss == 0;
  for (int a = 0; a < settings.tuple_size_d; a++) {
    if (!all && rec.miss_w[a]) continue;
    long double w = model.param_w[k][a][rec.word[a]];
    if (log) p += beta * logl(w);
    else p *= tempered ? powl(w, beta) : w;
  }
  for (int g = 0; g < settings.gauss_size; g++) {
    int d = settings.gauss_attr_size[g], m = rec.num_miss_gauss[g];
    long double lg;
    if (m == 0) {
      lg = lgauss_prec(rec.gauss[g], model.param_u[k][g], model.param_s[k][g], model.param_p[k][g],
                       model.param_sdet[k][g], d);
    } else if (m < d) {
      std::vector<int> obs(d);
      for (int i = 0; i < d; i++) obs[i] = rec.miss_g[g][i] ? 0 : 1;
      lg = lgauss_marginal(rec.gauss[g], model.param_u[k][g], model.param_s[k][g], obs.data());
    } else {
      continue;
    }
    if (log) p += beta * lg;
    else p *= tempered ? powl(expl(lg), beta) : expl(lg);
  }
  return p;
}

// Adds w x and w x x' (upper triangle).
inline void add_moments(long double *u, long double *const *q, int d, long double w, const long double *x) {
  for (int i = 0; i < d; i++) {
    long double wx = w * x[i];
    u[i] += wx;
    for (int j = i; j < d; j++) q[i][j] += wx * x[j];
  }
}

// Case e's Gaussian statistics under class k, with the missing components
// imputed by their conditional moments, the observed block inverted here.
inline void add_gauss(int k, int e, long double *const *u, Matrix *q) {
  const CaseRecord &rec = cases.freq_list[e];
  long double w = model.prob_cond[k][e] * rec.count;
  for (int g = 0; g < settings.gauss_size; g++) {
    int d = settings.gauss_attr_size[g], m = rec.num_miss_gauss[g];
    const long double *mu = model.param_u[k][g];
    long double **s = model.param_s[k][g];
    std::vector<long double> xt(rec.gauss[g], rec.gauss[g] + d), cov(d * d, 0.0L);
    if (m == d) {
      add_moments(u[g], q[g], d, w, mu);
      for (int i = 0; i < d; i++)
        for (int j = i; j < d; j++) q[g][i][j] += w * s[i][j];
      continue;
    }
    if (m > 0 && d == 2) {
      int mi = rec.miss_g[g][0] ? 0 : 1, o = 1 - mi;
      xt[mi] = mu[mi] + (rec.gauss[g][o] - mu[o]) * s[mi][o] / s[o][o];
      cov[mi * d + mi] = s[mi][mi] - s[mi][o] * s[mi][o] / s[o][o];
    } else if (m > 0) {
      std::vector<int> obs(d), oi;
      for (int i = 0; i < d; i++) {
        obs[i] = rec.miss_g[g][i] ? 0 : 1;
        if (obs[i]) oi.push_back(i);
      }
      int no = static_cast<int>(oi.size());
      Matrix soo = alloc_proj_matrix(s, obs.data(), obs.data()), poo = alloc_matrix(no, no);
      invert_c(soo, poo);
      std::vector<long double> b(no);
      for (int mi = 0; mi < d; mi++) {
        if (obs[mi]) continue;
        for (int c = 0; c < no; c++) {
          long double t = 0;
          for (int r = 0; r < no; r++) t += s[mi][oi[r]] * poo[r][c];
          b[c] = t;
        }
        long double xm = mu[mi];
        for (int c = 0; c < no; c++) xm += b[c] * (rec.gauss[g][oi[c]] - mu[oi[c]]);
        xt[mi] = xm;
        for (int m2 = 0; m2 < d; m2++) {
          if (obs[m2]) continue;
          long double t = s[mi][m2];
          for (int c = 0; c < no; c++) t -= b[c] * s[oi[c]][m2];
          cov[mi * d + m2] = t;
        }
      }
      release_matrix0(poo);
      release_matrix0(soo);
    }
    add_moments(u[g], q[g], d, w, xt.data());
    for (int i = 0; i < d; i++)
      for (int j = i; j < d; j++) q[g][i][j] += w * cov[i * d + j];
  }
}

}  // namespace reference

#endif
