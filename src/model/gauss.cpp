// Multivariate normal log densities. A single observation is dispatched by
// dimension: closed forms for one and two dimensions, the precision-matrix
// form beyond. Every single-observation density goes through a prepared form
// (GaussForm), so the E-step, which prepares one form per class and evaluates
// it for every case, computes exactly what the direct calls compute.
#include "model/gauss.h"

#include <cmath>
#include <cstdlib>

#include "base/allocate_matrix_aux.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "model/report.h"

namespace {

const double LOG_2PI = 1.8378770664093456;
const double TWO_PI = 6.283185307179586;
enum { STACK_DIM = 32 };  // dimensions handled without pool scratch space

// A failed density: the current parameters go to the log, then the run ends.
[[noreturn]] void gauss_failure(const char *what) {
  if (settings.fp_log != nullptr) model_report.param(settings.fp_log);
  die_numeric("check_gauss", what);
}

int classify(long double r) {
  if (std::isnan(r)) return GAUSS_NAN;
  if (std::isinf(r)) return GAUSS_INF;
  return GAUSS_OK;
}

// Every public log form, the statistics forms included, passes its result
// through this check.
long double check_gauss(long double r) {
  int fault = classify(r);
  if (fault != GAUSS_OK) die_gauss_fault(fault);
  return r;
}

void check_shapes(const long double *x, const long double *mu, long double *const *s,
                  const char *func) {
  int d = vector_size(mu);
  if (vector_size(x) != d || matrix_rows(s) != d || matrix_cols(s) != d) die_dimension(func);
}

// True when the Cholesky steps meet a negative pivot; the closed-form
// inverses of small orders do not detect that by themselves.
bool negative_pivot(long double *const *s) {
  int d = matrix_rows(s), saved = matrix_err.err_cho;
  Matrix l = alloc_matrix(d, d);
  cholesky(s, l);
  bool bad = matrix_err.err_cho != 0;
  release_matrix0(l);
  matrix_err.err_cho = saved;
  return bad;
}

// Mean and positions of the components a form reads (all when `observed`
// is null).
void set_components(GaussForm *f, const long double *mu, const int *observed) {
  int d = vector_size(mu);
  f->fault = GAUSS_OK;
  f->index.clear();
  f->mu.clear();
  for (int i = 0; i < d; i++) {
    if (observed != nullptr && !observed[i]) continue;
    f->index.push_back(i);
    f->mu.push_back(mu[i]);
  }
  f->dim = static_cast<int>(f->mu.size());
}

// One and two dimensions in closed form from the covariance of the
// components read (only the upper off-diagonal element is used).
void set_closed_form(GaussForm *f, long double *const *s) {
  f->use_prec = 0;
  auto at = [f](int i) { return f->index[i]; };
  if (f->dim == 1) {
    f->var = s[at(0)][at(0)];
    f->lconst = -0.5L * logl(TWO_PI * f->var);
  } else if (f->dim == 2) {
    f->sd1 = sqrtl(s[at(0)][at(0)]);
    f->sd2 = sqrtl(s[at(1)][at(1)]);
    f->rho = s[at(0)][at(1)] / (f->sd1 * f->sd2);
    f->one_r2 = 1.0L - f->rho * f->rho;
    f->lconst = logl(TWO_PI * f->sd1 * f->sd2 * sqrtl(f->one_r2));
  }
}

// -1/2 (x-mu)' P (x-mu) - 1/2 (log det S + d log 2 pi): the precision packed
// as its diagonal and then its strict upper triangle by rows.
void set_prec_form(GaussForm *f, long double *const *p, long double det) {
  int d = f->dim;
  f->use_prec = 1;
  f->prec.resize(static_cast<size_t>(d) * (d + 1) / 2);
  long double *out = f->prec.data();
  for (int i = 0; i < d; i++) *out++ = p[i][i];
  for (int i = 0; i < d; i++)
    for (int j = i + 1; j < d; j++) *out++ = p[i][j];
  f->lconst = 0.5L * (logl(det) + d * LOG_2PI);
}

// The precision form from an inverted block, failing as the general form
// does when the inversion failed or the Cholesky steps meet a negative pivot.
void set_inverted_form(GaussForm *f, const InvertedBlock &b) {
  if (b.failed || (f->dim <= 3 && negative_pivot(b.block))) f->fault = GAUSS_SINGULAR;
  else set_prec_form(f, b.p, b.det);
}

// v = x - mu over the components a form reads.
inline __attribute__((always_inline)) void form_diff(const GaussForm &f, const long double *x,
                                                     long double *v, int d) {
  const long double *mu = f.mu.data();
  const int *idx = f.index.data();
#pragma GCC unroll 8
  for (int i = 0; i < d; i++) v[i] = x[idx[i]] - mu[i];
}

// v' P v as qform computes it: the diagonal terms, then twice the strictly
// upper ones, each sum in row order. Inlined with a constant d it unrolls
// and keeps v in registers.
inline __attribute__((always_inline)) long double quad_core(const long double *prec,
                                                           const long double *v, int d) {
  long double diag = 0.0L, off = 0.0L;
#pragma GCC unroll 8
  for (int i = 0; i < d; i++) diag += prec[i] * v[i] * v[i];
  const long double *u = prec + d;
#pragma GCC unroll 8
  for (int i = 0; i < d; i++)
#pragma GCC unroll 8
    for (int j = i + 1; j < d; j++) off += *u++ * v[i] * v[j];
  return diag + 2.0L * off;
}

template <int D>
long double quad_fixed(const GaussForm &f, const long double *x) {
  long double v[D];
  form_diff(f, x, v, D);
  return quad_core(f.prec.data(), v, D);
}

long double quad_any(const GaussForm &f, const long double *x) {
  int d = f.dim;
  long double fixed[STACK_DIM];
  long double *v = fixed;
  if (d > STACK_DIM) {
    thread_local std::vector<long double> wide;
    if (wide.size() < static_cast<size_t>(d)) wide.resize(d);
    v = wide.data();
  }
  form_diff(f, x, v, d);
  return quad_core(f.prec.data(), v, d);
}

long double prec_value(const GaussForm &f, const long double *x) {
  long double q;
  switch (f.dim) {
    case 3: q = quad_fixed<3>(f, x); break;
    case 4: q = quad_fixed<4>(f, x); break;
    case 5: q = quad_fixed<5>(f, x); break;
    case 6: q = quad_fixed<6>(f, x); break;
    default: q = quad_any(f, x); break;
  }
  return -0.5L * q - f.lconst;
}

long double closed_value(const GaussForm &f, const long double *x) {
  const int *idx = f.index.data();
  if (f.dim == 1) {
    long double dx = x[idx[0]] - f.mu[0];
    return f.lconst - 0.5L * dx * dx / f.var;
  }
  if (f.dim == 2) {
    long double z1 = (x[idx[0]] - f.mu[0]) / f.sd1, z2 = (x[idx[1]] - f.mu[1]) / f.sd2;
    return -0.5L * (z1 * z1 + z2 * z2 - 2.0L * f.rho * z1 * z2) / f.one_r2 - f.lconst;
  }
  return 0.0L;
}

// The checked value of a form; a fault stops the run.
long double value_or_die(const GaussForm &f, const long double *x) {
  long double r = 0.0L;
  int fault = lgauss_form_checked(f, x, &r);
  if (fault != GAUSS_OK) die_gauss_fault(fault);
  return r;
}

// Single-observation density of the observed components (all when
// `observed` is null) by dimension, checked.
long double lgauss_direct(const long double *x, const long double *mu, long double *const *s,
                          const int *observed = nullptr) {
  thread_local GaussForm f;
  prepare_gauss_marginal(&f, mu, s, observed);
  return value_or_die(f, x);
}

}  // namespace

void prepare_gauss_prec(GaussForm *f, const long double *mu, long double *const *s,
                        long double *const *p, long double det) {
  set_components(f, mu, nullptr);
  if (f->dim <= 2) set_closed_form(f, s);
  else set_prec_form(f, p, det);
}

void invert_block(InvertedBlock *b, long double *const *s, const int *observed) {
  int d = matrix_rows(s), n = 0;
  for (int i = 0; i < d; i++) n += observed == nullptr || observed[i] ? 1 : 0;
  b->packed = observed == nullptr ? nullptr : alloc_proj_matrix_n(s, observed, observed, n, n);
  b->block = b->packed != nullptr ? b->packed : s;
  b->p = alloc_matrix(n, n);
  matrix_err.err_inv = 0;
  b->det = invert_c(b->block, b->p);
  b->failed = matrix_err.err_inv != 0;
}

void release_block(InvertedBlock *b) {
  release_matrix0(b->p);
  release_matrix0(b->packed);
  b->p = b->packed = nullptr;
}

void prepare_gauss_marginal(GaussForm *f, const long double *mu, long double *const *s,
                            const int *observed, const InvertedBlock *inverted) {
  set_components(f, mu, observed);
  if (f->dim <= 2) {
    set_closed_form(f, s);
  } else if (inverted != nullptr) {
    set_inverted_form(f, *inverted);
  } else {
    InvertedBlock b;
    invert_block(&b, s, observed);
    set_inverted_form(f, b);
    release_block(&b);
  }
}

long double lgauss_form(const GaussForm &f, const long double *x) {
  return f.use_prec ? prec_value(f, x) : closed_value(f, x);
}

int lgauss_form_checked(const GaussForm &f, const long double *x, long double *out) {
  if (f.fault != GAUSS_OK) return f.fault;
  *out = lgauss_form(f, x);
  return classify(*out);
}

void die_gauss_fault(int fault) {
  if (fault == GAUSS_SINGULAR) die_numeric("lgauss_mv", "Failed to invert covariances\n");
  gauss_failure(fault == GAUSS_NAN ? "Computed Gaussian p.d.f. is not a number\n"
                                   : "Computed Gaussian p.d.f. is not finite\n");
}

long double lgauss(const long double *x, const long double *mu, long double *const *s) {
  check_shapes(x, mu, s, "lgauss");
  return lgauss_direct(x, mu, s);
}

long double gauss(const long double *x, const long double *mu, long double *const *s) {
  return expl(lgauss(x, mu, s));
}

long double lgauss_prec(const long double *x, const long double *mu, long double *const *s,
                        long double *const *p, long double det) {
  check_shapes(x, mu, s, "lgauss_prec");
  int d = vector_size(mu);
  if (d > 2 && (matrix_rows(p) != d || matrix_cols(p) != d)) die_dimension("lgauss_prec");
  thread_local GaussForm f;
  prepare_gauss_prec(&f, mu, s, p, det);
  return check_gauss(lgauss_form(f, x));
}

long double gauss_prec(const long double *x, const long double *mu, long double *const *s,
                       long double *const *p, long double det) {
  return expl(lgauss_prec(x, mu, s, p, det));
}

// The general form inverts the covariance whatever the dimension.
long double lgauss_mv(const long double *x, const long double *mu, long double *const *s) {
  check_shapes(x, mu, s, "lgauss_mv");
  thread_local GaussForm f;
  set_components(&f, mu, nullptr);
  InvertedBlock b;
  invert_block(&b, s, nullptr);
  set_inverted_form(&f, b);
  release_block(&b);
  return value_or_die(f, x);
}

long double lgauss_bv(const long double *x, const long double *mu, long double *const *s) {
  check_shapes(x, mu, s, "lgauss_bv");
  if (vector_size(mu) != 2) die_dimension("lgauss_bv");
  return lgauss_direct(x, mu, s);
}

// ---- weighted sufficient statistics: n = sum w, sum = sum w x, q = sum w x x' ----

namespace {

long double lgauss_stat_1d(long double n, long double sum, long double q, long double mu,
                           long double s) {
  return -0.5L * (q - 2.0L * sum * mu + n * mu * mu) / s - 0.5L * n * logl(TWO_PI * s);
}

// Only the diagonal of P and Q enters this bivariate form.
long double lgauss_stat_2d(long double n, const long double *sum, long double *const *q,
                           const long double *mu, long double *const *p, long double det) {
  long double t0 = q[0][0] - 2.0L * sum[0] * mu[0] + n * mu[0] * mu[0];
  long double t1 = q[1][1] - 2.0L * sum[1] * mu[1] + n * mu[1] * mu[1];
  return -0.5L * (p[0][0] * t0 + p[1][1] * t1) - n * (LOG_2PI + 0.5L * logl(det));
}

void check_stat_shapes(const long double *sum, long double *const *q, const long double *mu,
                       const char *func) {
  int d = vector_size(mu);
  if (vector_size(sum) != d || matrix_rows(q) != d || matrix_cols(q) != d) die_dimension(func);
}

long double lgauss_stat_with_prec(long double n, const long double *sum, long double *const *q,
                                  const long double *mu, long double *const *s,
                                  long double *const *p, long double det) {
  int d = vector_size(mu);
  if (d == 1) return lgauss_stat_1d(n, sum[0], q[0][0], mu[0], s[0][0]);
  if (d == 2) return lgauss_stat_2d(n, sum, q, mu, p, det);
  return lgauss_stat_mv_prec(n, sum, q, mu, p, det);
}

}  // namespace

long double lgauss_stat(long double n, const long double *sum, long double *const *q,
                        const long double *mu, long double *const *s) {
  check_stat_shapes(sum, q, mu, "lgauss_stat");
  int d = vector_size(mu);
  if (d == 0) return 0.0L;
  if (d == 1) return check_gauss(lgauss_stat_1d(n, sum[0], q[0][0], mu[0], s[0][0]));
  Matrix p = alloc_matrix(d, d);
  long double det = invert_c(s, p);
  long double r = lgauss_stat_with_prec(n, sum, q, mu, s, p, det);
  release_matrix0(p);
  return check_gauss(r);
}

long double gauss_stat(long double n, const long double *sum, long double *const *q,
                       const long double *mu, long double *const *s) {
  return expl(lgauss_stat(n, sum, q, mu, s));
}

long double lgauss_stat_prec(long double n, const long double *sum, long double *const *q,
                             const long double *mu, long double *const *s, long double *const *p,
                             long double det) {
  check_stat_shapes(sum, q, mu, "lgauss_stat_prec");
  if (vector_size(mu) == 0) return 0.0L;
  return check_gauss(lgauss_stat_with_prec(n, sum, q, mu, s, p, det));
}

long double gauss_stat_prec(long double n, const long double *sum, long double *const *q,
                            const long double *mu, long double *const *s, long double *const *p,
                            long double det) {
  return expl(lgauss_stat_prec(n, sum, q, mu, s, p, det));
}

// -1/2 [tr(M P) + n (d log 2 pi + log det S)] with the scatter matrix
// M = Q - s mu' - mu s' + n mu mu' built on the upper triangle and mirrored.
long double lgauss_stat_mv_prec(long double n, const long double *sum, long double *const *q,
                                const long double *mu, long double *const *p, long double det) {
  check_stat_shapes(sum, q, mu, "lgauss_stat_mv_prec");
  int d = vector_size(mu);
  if (matrix_rows(p) != d || matrix_cols(p) != d) die_dimension("lgauss_stat_mv_prec");
  Matrix m = alloc_matrix(d, d);
  for (int i = 0; i < d; i++)
    for (int j = i; j < d; j++)
      m[i][j] = q[i][j] - sum[i] * mu[j] - mu[i] * sum[j] + n * mu[i] * mu[j];
  copy_upper_to_lower(m);
  long double tr = 0.0L;
  for (int i = 0; i < d; i++) {
    long double diag = 0.0L;
    for (int k = 0; k < d; k++) diag += m[i][k] * p[k][i];
    tr += diag;
  }
  release_matrix0(m);
  return check_gauss(-0.5L * (tr + n * (d * LOG_2PI + logl(det))));
}

// ---- partly observed vectors ----

long double lgauss_marginal(const long double *x, const long double *mu, long double *const *s,
                            const int *observed) {
  check_shapes(x, mu, s, "lgauss_marginal");
  return lgauss_direct(x, mu, s, observed);
}

long double gauss_marginal(const long double *x, const long double *mu, long double *const *s,
                           const int *observed) {
  return expl(lgauss_marginal(x, mu, s, observed));
}

namespace {

// The blocks of a partly observed Gaussian: o = observed, u = unobserved.
struct CondBlocks {
  Vector xo, xu, muo, muu;
  Matrix suu, suo, sou, soo;
};

CondBlocks pack_blocks(const long double *x, const long double *mu, long double *const *s,
                       const int *obs, const int *unobs) {
  CondBlocks b;
  b.xo = alloc_proj_vector(x, obs);
  b.xu = alloc_proj_vector(x, unobs);
  b.muo = alloc_proj_vector(mu, obs);
  b.muu = alloc_proj_vector(mu, unobs);
  b.suu = alloc_proj_matrix(s, unobs, unobs);
  b.suo = alloc_proj_matrix(s, unobs, obs);
  b.sou = alloc_proj_matrix(s, obs, unobs);
  b.soo = alloc_proj_matrix(s, obs, obs);
  return b;
}

void release_blocks(CondBlocks *b) {
  release_matrix0(b->soo);
  release_matrix0(b->sou);
  release_matrix0(b->suo);
  release_matrix0(b->suu);
  release_vector0(b->muu);
  release_vector0(b->muo);
  release_vector0(b->xu);
  release_vector0(b->xo);
}

// Conditional mean muu + A (xo - muo) into b->muu and covariance
// Suu - A Sou into b->suu, with A = Suo Soo^-1.
void condition_blocks(CondBlocks *b) {
  int no = vector_size(b->xo), nu = vector_size(b->xu);
  Matrix poo = alloc_matrix(no, no);
  matrix_err.err_inv = 0;
  invert_c(b->soo, poo);
  if (matrix_err.err_inv)
    die_numeric("lgauss_cond", "Failed to invert the covariances of the observed part");
  Matrix a = alloc_matrix(nu, no), w = alloc_matrix(nu, nu);
  Vector shift = alloc_vector(nu);
  prod_matrix(b->suo, poo, a);
  diff_vector(b->xo, b->muo);
  prod_matrix_vector(a, b->xo, shift);
  sum_vector(b->muu, shift);
  prod_matrix(a, b->sou, w);
  diff_matrix(b->suu, w);
  release_vector0(shift);
  release_matrix0(w);
  release_matrix0(a);
  release_matrix0(poo);
}

}  // namespace

long double lgauss_cond(const long double *x, const long double *mu, long double *const *s,
                        const int *observed) {
  check_shapes(x, mu, s, "lgauss_cond");
  int d = vector_size(mu);
  int fixed[STACK_DIM];
  int *unobs = d <= STACK_DIM ? fixed
                              : static_cast<int *>(xmalloc0(sizeof(int) * d, "gauss.cpp", 1));
  for (int i = 0; i < d; i++) unobs[i] = observed[i] ? 0 : 1;
  CondBlocks b = pack_blocks(x, mu, s, observed, unobs);
  condition_blocks(&b);
  long double r = lgauss_direct(b.xu, b.muu, b.suu);
  release_blocks(&b);
  if (unobs != fixed) free(unobs);
  return r;
}

long double gauss_cond(const long double *x, const long double *mu, long double *const *s,
                       const int *observed) {
  return expl(lgauss_cond(x, mu, s, observed));
}
