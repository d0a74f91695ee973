// A plain, one-case-at-a-time E-step: the direct density calls case by case,
// the imputation written out with the matrix library; no prepared densities
// kept, no caches, no threads. The program's passes must reproduce it bit
// for bit.
#ifndef VESK_TESTS_REFERENCE_ESTEP_H
#define VESK_TESTS_REFERENCE_ESTEP_H

#include <cmath>
#include <cstring>
#include <vector>

#include "base/allocate_matrix.h"
#include "base/matrix.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/gauss.h"

namespace reference {

// The 80 value bits of two long doubles agree (the rest is padding).
inline bool same_bits(long double a, long double b) { return memcmp(&a, &b, 10) == 0; }

// A deterministic pseudo-random stream in [0, 1).
struct Lcg {
  unsigned long long s;
  long double next() {
    s = s * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<long double>(s >> 11) / 9007199254740992.0L;
  }
};

// The log density of group g of case e under class k: with the class's
// precision when the group is complete, of its observed part otherwise.
// False when the whole group is missing.
inline bool group_density(int k, int g, int e, long double *lg) {
  const CaseRecord &rec = cases.freq_list[e];
  int d = settings.gauss_attr_size[g], m = rec.num_miss_gauss[g];
  if (m == d) return false;
  std::vector<int> obs(d);
  for (int i = 0; i < d; i++) obs[i] = rec.miss_g[g][i] ? 0 : 1;
  *lg = m == 0 ? lgauss_prec(rec.gauss[g], model.param_u[k][g], model.param_s[k][g], model.param_p[k][g],
                             model.param_sdet[k][g])
               : lgauss_marginal(rec.gauss[g], model.param_u[k][g], model.param_s[k][g], obs.data());
  return true;
}

// log P(k, x_e) (log) or P(k, x_e), every factor raised to beta when tempered.
inline long double complete(int k, int e, bool log, bool tempered, long double beta) {
  const CaseRecord &rec = cases.freq_list[e];
  long double p = log ? beta * logl(model.param_c[k]) : tempered ? powl(model.param_c[k], beta) : model.param_c[k];
  for (int a = 0; a < settings.tuple_size_d; a++) {
    if (rec.miss_w[a]) continue;
    long double w = model.param_w[k][a][rec.word[a]];
    if (log) p += beta * logl(w);
    else p *= tempered ? powl(w, beta) : w;
  }
  for (int g = 0; g < settings.gauss_size; g++) {
    long double lg;
    if (!group_density(k, g, e, &lg)) continue;
    if (log) p += beta * lg;
    else p *= tempered ? powl(expl(lg), beta) : expl(lg);
  }
  return p;
}

// Case e's Gaussian statistics under class k added to u and q (upper
// triangle): w x and w x x' with the missing components imputed by their
// conditional means, then w times their conditional covariance (the observed
// block inverted here); a wholly missing group adds the class's moments.
inline void add_gauss(int k, int e, long double *const *u, Matrix *q) {
  const CaseRecord &rec = cases.freq_list[e];
  long double w = model.prob_cond[k][e] * rec.count;
  for (int g = 0; g < settings.gauss_size; g++) {
    int d = settings.gauss_attr_size[g], m = rec.num_miss_gauss[g];
    const long double *mu = model.param_u[k][g];
    long double **s = model.param_s[k][g];
    std::vector<long double> xt(rec.gauss[g], rec.gauss[g] + d), cov(d * d, 0.0L);
    std::vector<int> obs(d), oi;
    for (int i = 0; i < d; i++) {
      obs[i] = rec.miss_g[g][i] ? 0 : 1;
      if (obs[i]) oi.push_back(i);
    }
    int no = static_cast<int>(oi.size());
    if (m == d) {
      xt.assign(mu, mu + d);
      for (int i = 0; i < d; i++)
        for (int j = 0; j < d; j++) cov[i * d + j] = s[i][j];
    } else if (m > 0 && d == 2) {
      int mi = 1 - oi[0], o = oi[0];
      xt[mi] = mu[mi] + (rec.gauss[g][o] - mu[o]) * s[mi][o] / s[o][o];
      cov[mi * d + mi] = s[mi][mi] - s[mi][o] * s[mi][o] / s[o][o];
    } else if (m > 0) {
      Matrix soo = alloc_proj_matrix(s, obs.data(), obs.data()), poo = alloc_matrix(no, no);
      invert_c(soo, poo);
      std::vector<long double> b(no);
      for (int mi = 0; mi < d; mi++) {
        if (obs[mi]) continue;
        long double xm = mu[mi];
        for (int c = 0; c < no; c++) {
          b[c] = 0;
          for (int r = 0; r < no; r++) b[c] += s[mi][oi[r]] * poo[r][c];
        }
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
    for (int i = 0; i < d; i++) {
      long double wx = w * xt[i];
      u[g][i] += wx;
      for (int j = i; j < d; j++) q[g][i][j] += wx * xt[j];
    }
    for (int i = 0; i < d; i++)
      for (int j = i; j < d; j++) q[g][i][j] += w * cov[i * d + j];
  }
}

}  // namespace reference

#endif
