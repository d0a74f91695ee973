// Digamma by W. J. Cody's rational Chebyshev approximation (Cody, Strecok and
// Thacher) and log|Gamma| by Cody and Hillstrom's rational approximations with a
// Stirling series for large arguments. Arguments are doubles; the math library is
// used in double precision, the rational functions are evaluated in long double.
#include "base/gamma_f.h"

#include <cmath>
#include <limits>

namespace {

const long double INF = std::numeric_limits<long double>::infinity();
const double PI = 3.141592653589793;
const double PI_OVER_2 = 1.5707963267948966;
const double PI_OVER_4 = 0.7853981633974483;
const long double LOG_SQRT_2PI = 0.9189385332046728;

// Horner evaluation of a numerator (started at 0) and a denominator (started at
// lead) over n coefficients each, highest power first; returns num / den.
long double rational(long double z, const double *p, const double *q, int n, long double lead) {
  long double num = 0.0L, den = lead;
  for (int i = 0; i < n; i++) {
    num = num * z + p[i];
    den = den * z + q[i];
  }
  return num / den;
}

// ---- digamma ----

const double PSI_P1[9] = {0.004510468124576294, 5.493285583300039,  376.4669317592928,
                          7952.5490849152,      71451.59581895193,  306559.76301987364,
                          636069.9778896446,    580413.1278353757,  165856.95029761022};
const double PSI_Q1[8] = {96.14165477422236,  2628.771579058119,  29862.497022250278,
                          162065.66091533672, 434878.8071276833,  542563.8453726999,
                          242421.85002017985, 6.415522378357623e-08};
const double PSI_P2[7] = {-2.7103228277757836,  -15.16627177689612,   -19.78455414871922,
                          -8.810095882831222,   -1.4479614616899843,  -0.07368960033239455,
                          -6.513538773271817e-21};
const double PSI_Q2[6] = {44.992760373789366, 202.40955312679932, 247.3697900331529,
                          107.42543875702279, 17.46396506067857,  0.8842752039887348};

// 0.5 <= x <= 3: the zero of psi (1.4609375 + 0.000694644968362341) is subtracted
// in two parts to keep the accuracy near it.
long double digamma_mid(double x) {
  long double p = 0.0L, q = 1.0L;
  for (int i = 0; i < 9; i++) p = p * x + PSI_P1[i];
  for (int i = 0; i < 8; i++) q = q * x + PSI_Q1[i];
  long double shifted = (static_cast<long double>(x) - 1.4609375L) - 0.0006946449683623413;
  return shifted * p / q;
}

// 3 < x < 2.71e14: asymptotic form in w = 1/x^2, rounded to double.
long double digamma_asymptotic(double x) {
  long double w = 1.0L / (static_cast<long double>(x) * x);
  long double p = 0.0L, q = 1.0L;
  for (int i = 0; i < 7; i++) p = p * w + PSI_P2[i];
  for (int i = 0; i < 6; i++) q = q * w + PSI_Q2[i];
  long double r = static_cast<long double>(std::log(x)) - 0.5L / x + p / q;
  return static_cast<double>(r);
}

// x < 0.5: psi(x) = psi(1 - x) - pi cot(pi x), with cot reduced to the first
// octant through the quarter-period index of 4|x|.
long double digamma_reflect(double x) {
  double q_part;
  double f = std::modf(4.0 * std::fabs(x), &q_part);
  long double s = x > 0.0 ? PI : -PI;
  long double t = digamma(1.0 - x);
  switch (static_cast<long long>(q_part) % 4) {
    case 0: return t + s / std::tan(-f * PI_OVER_4);
    case 1: return t + s * std::tan(-(1.0 - f) * PI_OVER_4);
    case 2: return t + s * std::tan(f * PI_OVER_4);
    default: return t + s / std::tan((1.0 - f) * PI_OVER_4);
  }
}

// ---- lngamma ----

const long double LNG_D1 = -0.5772156649015329;
const double LNG_P1[8] = {4.945235359296727046734888e0, 2.018112620856775083915565e2,
                          2.290838373831346393026739e3, 1.131967205903380828685045e4,
                          2.855724635671635335736389e4, 3.848496228443793359990269e4,
                          2.637748787624195437963534e4, 7.225813979700288197698961e3};
const double LNG_Q1[8] = {6.748212550303777196073036e1, 1.113332393857199323513008e3,
                          7.738757056935398733233834e3, 2.763987074403340708898585e4,
                          5.499310206226157329794414e4, 6.161122180066002127833352e4,
                          3.635127591501940507276287e4, 8.785536302431013170870835e3};
const long double LNG_D2 = 0.4227843350984671;
const double LNG_P2[8] = {4.974607845568932035012064e0, 5.424138599891070494101986e2,
                          1.550693864978364947665077e4, 1.847932904445632425417223e5,
                          1.088204769468828767498470e6, 3.338152967987029735917223e6,
                          5.106661678927352456275255e6, 3.074109054850539556250927e6};
const double LNG_Q2[8] = {1.830328399370592604055942e2, 7.765049321445005871323047e3,
                          1.331903827966074194402448e5, 1.136705821321969608938755e6,
                          5.267964117437946917577538e6, 1.346701454311101692290052e7,
                          1.782736530353274213975932e7, 9.533095591844353613395747e6};
const long double LNG_D4 = 1.791759469228055;
const double LNG_P4[8] = {1.474502166059939948905062e4, 2.426813369486704502836312e6,
                          1.214755574045093227939592e8, 2.663432449630976949898078e9,
                          2.940378956634553899906876e10, 1.702665737765398868392998e11,
                          4.926125793377430887588120e11, 5.606251856223951465078242e11};
const double LNG_Q4[8] = {2.690530175870899333379843e3, 6.393885654300092398984238e5,
                          4.135599930241388052042842e7, 1.120872109616147941376570e9,
                          1.488613728678813811542398e10, 1.016803586272438228077304e11,
                          3.417476345507377132798597e11, 4.463158187419713286462081e11};
// Stirling series coefficients B_2k / (2k (2k - 1)), k = 1..8.
const double STIRLING[8] = {0.08333333333333333,   -0.002777777777777778, 0.0007936507936507937,
                            -0.0005952380952380953, 0.0008417508417508417, -0.0019175269175269176,
                            0.00641025641025641,   -0.029550653594771242};

// x <= 0: log|Gamma(x)| = log(pi / |sin(pi x)|) - log|Gamma(1 - x)|.
long double lngamma_reflect(double x) {
  double q_part;
  double f = std::modf(-2.0 * x, &q_part);
  bool even = std::fmod(q_part, 2.0) == 0.0;
  // fabs keeps x = +0 (where -2x is -0) at a sine of +0, hence +inf.
  double s = std::fabs(even ? std::sin(f * PI_OVER_2) : std::sin((1.0 - f) * PI_OVER_2));
  return static_cast<long double>(std::log(PI / s)) - lngamma(1.0 - x);
}

// 2.22e-16 <= x < 12: the rational approximation of the interval holding x.
long double lngamma_rational(double x) {
  if (x < 0.5) {
    long double z = x;
    return -static_cast<long double>(std::log(x)) + z * (LNG_D1 + z * rational(z, LNG_P1, LNG_Q1, 8, 1.0L));
  }
  if (x < 0.6796875) {
    long double z = static_cast<long double>(x) - 1.0L;
    return -static_cast<long double>(std::log(x)) + z * (LNG_D2 + z * rational(z, LNG_P2, LNG_Q2, 8, 1.0L));
  }
  if (x < 1.5) {
    long double z = static_cast<long double>(x) - 1.0L;
    return z * (LNG_D1 + z * rational(z, LNG_P1, LNG_Q1, 8, 1.0L));
  }
  if (x < 4.0) {
    long double z = static_cast<long double>(x) - 2.0L;
    return z * (LNG_D2 + z * rational(z, LNG_P2, LNG_Q2, 8, 1.0L));
  }
  long double z = static_cast<long double>(x) - 4.0L;
  return LNG_D4 + z * rational(z, LNG_P4, LNG_Q4, 8, -1.0L);
}

// x >= 12: Stirling's formula, with its series only below 2.25e76.
long double lngamma_stirling(double x) {
  long double lx = std::log(x);
  long double xl = x;
  if (x >= 2.25e76) return -0.5L * lx + LOG_SQRT_2PI + xl * (lx - 1.0L);
  long double ysq = xl * xl;
  long double series = STIRLING[7];
  for (int i = 6; i >= 0; i--) series = series / ysq + STIRLING[i];
  return (lx - 1.0L) * xl - 0.5L * lx + series / xl + LOG_SQRT_2PI;
}

}  // namespace

long double digamma(double x) {
  if (std::isnan(x)) return x;
  long double limit = x > 0.0 ? -INF : INF;
  if (x < -4.5e15) return limit;
  if (std::fabs(x) < 2.23e-308) return limit;
  if (std::fabs(x) < 5.8e-9) return digamma(1.0 - x) - 1.0L / x;
  if (x < 0.5) return digamma_reflect(x);
  if (x <= 3.0) return digamma_mid(x);
  if (x < 2.71e14) return digamma_asymptotic(x);
  return std::log(x);
}

long double lngamma(double x) {
  if (std::isnan(x)) return x;
  if (std::isinf(x)) return INF;
  if (x <= 0.0) return lngamma_reflect(x);
  if (x < 2.22e-16) return -static_cast<long double>(std::log(x));
  if (x < 12.0) return lngamma_rational(x);
  return lngamma_stirling(x);
}
