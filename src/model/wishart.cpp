// Wishart log densities with scale matrix S (mean nu S), used by the
// Normal-Wishart prior of the covariances.
#include "model/wishart.h"

#include <cmath>

#include "base/gamma_f.h"
#include "base/matrix.h"
#include "base/misc.h"

namespace {

const double LOG_PI = 1.1447298858494002;
const double LOG_2 = 0.6931471805599453;

}  // namespace

// -[ d(d-1)/4 log pi + nu d/2 log 2 + sum_{i=1..d} lngamma((nu + 1 - i) / 2) ]
long double lwishart_coeff(int d, long double nu) {
  long double s = 0.25L * d * (d - 1) * LOG_PI + 0.5L * nu * d * LOG_2;
  for (int i = 1; i <= d; i++) s += lngamma(static_cast<double>((nu + 1 - i) / 2));
  return -s;
}

long double lwishart_det(long double *const *x, long double *const *s, long double *const *s_inv,
                         long double det_x, long double det_s, long double nu) {
  int d = matrix_rows(x);
  if (matrix_cols(x) != d || matrix_rows(s) != d || matrix_cols(s) != d ||
      matrix_rows(s_inv) != d || matrix_cols(s_inv) != d)
    die_dimension("lwishart_det");
  Matrix prod = alloc_matrix(d, d);
  prod_matrix(s_inv, x, prod);
  long double tr = trace(prod);
  release_matrix0(prod);
  return lwishart_coeff(d, nu) - 0.5L * nu * logl(det_s) + 0.5L * (nu - d - 1) * logl(det_x) -
         0.5L * tr;
}

long double wishart_det(long double *const *x, long double *const *s, long double *const *s_inv,
                        long double det_x, long double det_s, long double nu) {
  return expl(lwishart_det(x, s, s_inv, det_x, det_s, nu));
}

long double lwishart(long double *const *x, long double *const *s, long double nu) {
  int d = matrix_rows(s);
  if (matrix_cols(s) != d) die_dimension("lwishart");
  Matrix s_inv = alloc_matrix(d, d);
  invert_c(s, s_inv);
  long double det_x = determinant_c(x);
  long double det_s = determinant_c(s);
  long double r = lwishart_det(x, s, s_inv, det_x, det_s, nu);
  release_matrix0(s_inv);
  return r;
}

long double wishart(long double *const *x, long double *const *s, long double nu) {
  return expl(lwishart(x, s, nu));
}
