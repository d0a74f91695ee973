// Multivariate normal log densities. A single observation is dispatched by
// dimension: closed forms for one and two dimensions, the precision-matrix
// form beyond. The fully observed path with a given precision runs in every
// E-step and therefore uses stack scratch space for moderate dimensions.
#include "model/gauss.h"

#include <cmath>
#include <cstdlib>

#include "base/allocate_matrix_aux.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "driver/vesk.h"
#include "output/print.h"

namespace {

const double LOG_2PI = 1.8378770664093456;
const double TWO_PI = 6.283185307179586;
enum { STACK_DIM = 32 };  // dimensions handled without pool scratch space

// A failed density: the current parameters go to the log, then the run ends.
[[noreturn]] void gauss_failure(const char *what) {
  if (settings.fp_log != nullptr) print_param(settings.fp_log);
  die_numeric("check_gauss", what);
}

// Every public log form, the statistics forms included, passes its result
// through this check.
long double check_gauss(long double r) {
  if (std::isnan(r)) gauss_failure("Computed Gaussian p.d.f. is not a number\n");
  if (std::isinf(r)) gauss_failure("Computed Gaussian p.d.f. is not finite\n");
  return r;
}

void check_shapes(const long double *x, const long double *mu, long double *const *s,
                  const char *func) {
  int d = vector_size(mu);
  if (vector_size(x) != d || matrix_rows(s) != d || matrix_cols(s) != d) die_dimension(func);
}

long double lgauss_1d(long double x, long double mu, long double s) {
  long double dx = x - mu;
  return -0.5L * logl(TWO_PI * s) - 0.5L * dx * dx / s;
}

long double lgauss_bv_raw(const long double *x, const long double *mu, long double *const *s) {
  long double sd1 = sqrtl(s[0][0]), sd2 = sqrtl(s[1][1]);
  long double rho = s[0][1] / (sd1 * sd2);
  long double z1 = (x[0] - mu[0]) / sd1, z2 = (x[1] - mu[1]) / sd2;
  long double one_r2 = 1.0L - rho * rho;
  return -0.5L * (z1 * z1 + z2 * z2 - 2.0L * rho * z1 * z2) / one_r2 -
         logl(TWO_PI * sd1 * sd2 * sqrtl(one_r2));
}

// -1/2 (x-mu)' P (x-mu) - 1/2 (log det S + d log 2 pi).
long double lgauss_prec_form(const long double *x, const long double *mu,
                             long double *const *p, long double det) {
  int d = vector_size(mu);
  alignas(16) long double buf[STACK_DIM + 2];
  bool pooled = vector_block_bytes(d) > sizeof buf;
  Vector diff = pooled ? alloc_vector(d) : make_vector_view(buf, d);
  for (int i = 0; i < d; i++) diff[i] = x[i] - mu[i];
  long double r = -0.5L * qform(p, diff) - 0.5L * (logl(det) + d * LOG_2PI);
  if (pooled) release_vector0(diff);
  return r;
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

long double lgauss_mv_raw(const long double *x, const long double *mu, long double *const *s) {
  int d = vector_size(mu);
  Matrix p = alloc_matrix(d, d);
  matrix_err.err_inv = 0;
  long double det = invert_c(s, p);
  if (matrix_err.err_inv || (d <= 3 && negative_pivot(s)))
    die_numeric("lgauss_mv", "Failed to invert covariances\n");
  long double r = lgauss_prec_form(x, mu, p, det);
  release_matrix0(p);
  return r;
}

// Single-observation dispatch by dimension (no result check).
long double lgauss_dispatch(const long double *x, const long double *mu, long double *const *s) {
  int d = vector_size(mu);
  if (d == 0) return 0.0L;
  if (d == 1) return lgauss_1d(x[0], mu[0], s[0][0]);
  if (d == 2) return lgauss_bv_raw(x, mu, s);
  return lgauss_mv_raw(x, mu, s);
}

}  // namespace

long double lgauss(const long double *x, const long double *mu, long double *const *s) {
  check_shapes(x, mu, s, "lgauss");
  return check_gauss(lgauss_dispatch(x, mu, s));
}

long double gauss(const long double *x, const long double *mu, long double *const *s) {
  return expl(lgauss(x, mu, s));
}

long double lgauss_prec(const long double *x, const long double *mu, long double *const *s,
                        long double *const *p, long double det) {
  check_shapes(x, mu, s, "lgauss_prec");
  int d = vector_size(mu);
  if (d <= 2) return check_gauss(lgauss_dispatch(x, mu, s));
  if (matrix_rows(p) != d || matrix_cols(p) != d) die_dimension("lgauss_prec");
  return check_gauss(lgauss_prec_form(x, mu, p, det));
}

long double gauss_prec(const long double *x, const long double *mu, long double *const *s,
                       long double *const *p, long double det) {
  return expl(lgauss_prec(x, mu, s, p, det));
}

long double lgauss_mv(const long double *x, const long double *mu, long double *const *s) {
  check_shapes(x, mu, s, "lgauss_mv");
  return check_gauss(lgauss_mv_raw(x, mu, s));
}

long double lgauss_bv(const long double *x, const long double *mu, long double *const *s) {
  check_shapes(x, mu, s, "lgauss_bv");
  if (vector_size(mu) != 2) die_dimension("lgauss_bv");
  return check_gauss(lgauss_bv_raw(x, mu, s));
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
  Vector xo = alloc_proj_vector(x, observed);
  Vector muo = alloc_proj_vector(mu, observed);
  Matrix so = alloc_proj_matrix(s, observed, observed);
  long double r = lgauss_dispatch(xo, muo, so);
  release_matrix0(so);
  release_vector0(muo);
  release_vector0(xo);
  return check_gauss(r);
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
  long double r = lgauss_dispatch(b.xu, b.muu, b.suu);
  release_blocks(&b);
  if (unobs != fixed) free(unobs);
  return check_gauss(r);
}

long double gauss_cond(const long double *x, const long double *mu, long double *const *s,
                       const int *observed) {
  return expl(lgauss_cond(x, mu, s, observed));
}
