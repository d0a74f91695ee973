// "%.<prec>Lg" without printf for the common case. A finite x is m * 2^-s
// with a 64-bit integer m; with X the decimal exponent of x after rounding to
// prec digits, the digits are Q = floor(m * 10^k / 2^s) for k = prec - 1 - X,
// and the bits shifted out decide the rounding exactly (to nearest, ties to
// even, as printf rounds the exact binary value). m * 10^k has at most
// 64 + 127 bits and is held in three 64-bit words.
#include "base/format_lg.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

using u128 = unsigned __int128;

enum { MAX_FAST_PREC = 19, MAX_POW10 = 38, MAX_SHIFT = 191 };

struct Pow10Table {
  u128 p[MAX_POW10 + 1];
  Pow10Table() {
    p[0] = 1;
    for (int i = 1; i <= MAX_POW10; i++) p[i] = p[i - 1] * 10;
  }
};
const Pow10Table pow10_table;

int fallback(char *dst, long double x, int prec) {
  int n = snprintf(dst, FORMAT_LG_SIZE, "%.*Lg", prec, x);
  return n < FORMAT_LG_SIZE ? n : FORMAT_LG_SIZE - 1;
}

// floor(m * 10^k / 2^s) and whether the discarded part is at least a half
// (*half) and, beyond that, not zero (*sticky).
u128 scaled_digits(uint64_t m, int k, int s, bool *half, bool *sticky) {
  u128 t = pow10_table.p[k];
  u128 lo = static_cast<u128>(m) * static_cast<uint64_t>(t);
  u128 hi = static_cast<u128>(m) * static_cast<uint64_t>(t >> 64);
  u128 mid = (lo >> 64) + static_cast<uint64_t>(hi);
  uint64_t w[4] = {static_cast<uint64_t>(lo), static_cast<uint64_t>(mid),
                   static_cast<uint64_t>(hi >> 64) + static_cast<uint64_t>(mid >> 64), 0};
  *half = *sticky = false;
  if (s > 0) {
    int hb = s - 1;  // the bit worth one half of the last kept digit
    *half = (w[hb / 64] >> (hb % 64)) & 1;
    uint64_t below = w[hb / 64] & ((uint64_t{1} << (hb % 64)) - 1);
    for (int i = 0; i < hb / 64; i++) below |= w[i];
    *sticky = below != 0;
  }
  int wi = s / 64, b = s % 64;
  uint64_t a0 = w[wi], a1 = wi + 1 < 4 ? w[wi + 1] : 0, a2 = wi + 2 < 4 ? w[wi + 2] : 0;
  if (b == 0) return (static_cast<u128>(a1) << 64) | a0;
  uint64_t q0 = (a0 >> b) | (a1 << (64 - b)), q1 = (a1 >> b) | (a2 << (64 - b));
  return (static_cast<u128>(q1) << 64) | q0;
}

// The prec significant digits of x > 0 and their decimal exponent; false
// when x lies outside the exact range. x is an x87 extended real: a 64-bit
// significand with an explicit leading bit and a 15-bit biased exponent.
bool decimal_digits(long double x, int prec, uint64_t *digits, int *exp10) {
  uint64_t m = 0;
  uint16_t se = 0;
  memcpy(&m, &x, sizeof m);
  memcpy(&se, reinterpret_cast<const char *>(&x) + sizeof m, sizeof se);
  if ((m >> 63) == 0) return false;  // subnormal
  int s = 16383 + 63 - (se & 0x7fff);  // x = m 2^-s
  if (s < 0 || s > MAX_SHIFT) return false;
  // 2^(63-s) <= x < 2^(64-s); 78913 / 2^18 is log10(2) to the bits needed
  // here, so x10 is floor(log10(x)) or one less.
  int x10 = ((63 - s) * 78913) >> 18;
  const u128 limit = pow10_table.p[prec];
  for (;;) {
    int k = prec - 1 - x10;
    if (k < 0 || k > MAX_POW10) return false;
    bool half = false, sticky = false;
    u128 q = scaled_digits(m, k, s, &half, &sticky);
    if (q >= limit) {  // one digit too many: the exponent is one higher
      x10++;
      continue;
    }
    if (half && (sticky || (q & 1))) q++;
    if (q == limit) {
      q = pow10_table.p[prec - 1];
      x10++;
    }
    *digits = static_cast<uint64_t>(q);
    *exp10 = x10;
    return true;
  }
}

// The n decimal digits of q, leading zeros included.
void put_digits(char *dst, uint64_t q, int n) {
  static const char pairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  while (n >= 2) {
    memcpy(dst + n - 2, pairs + 2 * (q % 100), 2);
    q /= 100;
    n -= 2;
  }
  if (n == 1) dst[0] = static_cast<char>('0' + q);
}

// Copies the fraction digits without their trailing zeros, after a point.
char *put_fraction(char *p, const char *frac, int n) {
  while (n > 0 && frac[n - 1] == '0') n--;
  if (n == 0) return p;
  *p++ = '.';
  memcpy(p, frac, n);
  return p + n;
}

char *put_exponent(char *p, int x10) {
  *p++ = 'e';
  *p++ = x10 < 0 ? '-' : '+';
  unsigned u = x10 < 0 ? -x10 : x10;
  char tmp[8];
  int n = 0;
  do {
    tmp[n++] = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u > 0);
  if (n < 2) tmp[n++] = '0';
  while (n > 0) *p++ = tmp[--n];
  return p;
}

}  // namespace

int format_lg(char *dst, long double x, int prec) {
  if (prec < 1) prec = 1;
  char *p = dst;
  if (x == 0) {
    if (std::signbit(x)) *p++ = '-';
    *p++ = '0';
    *p = '\0';
    return static_cast<int>(p - dst);
  }
  if (prec > MAX_FAST_PREC || !std::isfinite(x)) return fallback(dst, x, prec);
  uint64_t q = 0;
  int x10 = 0;
  if (!decimal_digits(fabsl(x), prec, &q, &x10)) return fallback(dst, x, prec);
  char digits[MAX_FAST_PREC];
  put_digits(digits, q, prec);
  if (x < 0) *p++ = '-';
  if (x10 < -4 || x10 >= prec) {
    *p++ = digits[0];
    p = put_fraction(p, digits + 1, prec - 1);
    p = put_exponent(p, x10);
  } else if (x10 >= 0) {
    memcpy(p, digits, x10 + 1);
    p += x10 + 1;
    p = put_fraction(p, digits + x10 + 1, prec - 1 - x10);
  } else {
    *p++ = '0';
    *p++ = '.';
    for (int i = 0; i < -x10 - 1; i++) *p++ = '0';
    int n = prec;
    while (digits[n - 1] == '0') n--;
    memcpy(p, digits, n);
    p += n;
  }
  *p = '\0';
  return static_cast<int>(p - dst);
}
