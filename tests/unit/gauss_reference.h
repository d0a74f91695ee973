// Reference densities written out from their textbook formulas, for checking
// the model code against a second computation: normal densities of one and
// two dimensions and the Wishart density of a 2x2 precision matrix.
#ifndef VESK_TESTS_GAUSS_REFERENCE_H
#define VESK_TESTS_GAUSS_REFERENCE_H

#include <cmath>

namespace gauss_ref {

const long double kPi = 3.14159265358979323846264338327950288L;

struct Sym2 {  // a symmetric 2x2 matrix
  long double a, b, c;  // [[a, b], [b, c]]
  long double det() const { return a * c - b * b; }
  Sym2 inverse() const { return {c / det(), -b / det(), a / det()}; }
  Sym2 scaled(long double f) const { return {a * f, b * f, c * f}; }
};

// To and from a 2x2 model matrix.
inline void store(long double *const *m, const Sym2 &s) {
  m[0][0] = s.a;
  m[0][1] = m[1][0] = s.b;
  m[1][1] = s.c;
}
inline Sym2 load(long double *const *m) { return {m[0][0], m[0][1], m[1][1]}; }

inline long double max_diff(const Sym2 &x, const Sym2 &y) {
  return fmaxl(fabsl(x.a - y.a), fmaxl(fabsl(x.b - y.b), fabsl(x.c - y.c)));
}

inline long double log_normal1(long double x, long double mu, long double var) {
  return -0.5L * logl(2 * kPi * var) - 0.5L * (x - mu) * (x - mu) / var;
}

inline long double log_normal2(const long double x[2], const long double mu[2], const Sym2 &s) {
  Sym2 p = s.inverse();
  long double d0 = x[0] - mu[0], d1 = x[1] - mu[1];
  long double q = p.a * d0 * d0 + 2 * p.b * d0 * d1 + p.c * d1 * d1;
  return -logl(2 * kPi) - 0.5L * logl(s.det()) - 0.5L * q;
}

// log W(X; V, nu) for 2x2 X with scale V (mean nu V), given V's inverse.
inline long double log_wishart2(const Sym2 &x, const Sym2 &v_inverse, long double nu) {
  long double log_v = -logl(v_inverse.det());
  long double trace = v_inverse.a * x.a + 2 * v_inverse.b * x.b + v_inverse.c * x.c;
  return -nu * logl(2.0L) - 0.5L * logl(kPi) - std::lgamma(static_cast<double>(nu / 2)) -
         std::lgamma(static_cast<double>((nu - 1) / 2)) - 0.5L * nu * log_v +
         0.5L * (nu - 3) * logl(x.det()) - 0.5L * trace;
}

// The one-dimensional Wishart: a scaled chi-square, W(x; v, nu).
inline long double log_wishart1(long double x, long double v, long double nu) {
  return -0.5L * nu * logl(2.0L) - std::lgamma(static_cast<double>(nu / 2)) - 0.5L * nu * logl(v) +
         0.5L * (nu - 2) * logl(x) - 0.5L * x / v;
}

}  // namespace gauss_ref

#endif
