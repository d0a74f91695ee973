// "%.<prec>Lg" without printf for the common case. A finite x is m * 2^-s
// with a 64-bit integer m; with X the decimal exponent of x after rounding to
// prec digits, the digits are Q = floor(m * 10^k / 2^s) for k = prec - 1 - X,
// and the bits shifted out decide the rounding exactly (to nearest, ties to
// even, as printf rounds the exact binary value). m * 10^k has at most
// 64 + 127 bits and is held in three 64-bit words. The fast path needs the
// x87 extended format and 128-bit integers; elsewhere snprintf does it all.
#include "base/format_lg.h"

#include <cfloat>
#include <cstdint>
#include <cstdio>
#include <cstring>

#ifndef VESK_FAST_LG
#if defined(__SIZEOF_INT128__) && defined(__x86_64__) && LDBL_MANT_DIG == 64 && LDBL_MAX_EXP == 16384
#define VESK_FAST_LG 1
#else
#define VESK_FAST_LG 0
#endif
#endif

namespace {

int fallback(char *dst, long double x, int prec) {
  int n = snprintf(dst, FORMAT_LG_SIZE, "%.*Lg", prec, x);
  return n < FORMAT_LG_SIZE ? n : FORMAT_LG_SIZE - 1;
}

#if VESK_FAST_LG

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

// floor(m * 10^k / 2^s) and whether the discarded part is at least a half
// (*half) and, beyond that, not zero (*sticky).
u128 scaled_digits(uint64_t m, int k, int s, bool *half, bool *sticky) {
  u128 t = pow10_table.p[k];
  if ((t >> 64) == 0 && s < 128) {  // the product fits in 128 bits
    u128 prod = static_cast<u128>(m) * static_cast<uint64_t>(t);
    if (s == 0) {
      *half = *sticky = false;
      return prod;
    }
    *half = (prod >> (s - 1)) & 1;
    *sticky = (prod & ((static_cast<u128>(1) << (s - 1)) - 1)) != 0;
    return prod >> s;
  }
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

// The prec significant digits of m 2^-s (m with its leading bit set) and
// their decimal exponent; false when the value lies outside the exact range.
bool decimal_digits(uint64_t m, int s, int prec, uint64_t *digits, int *exp10) {
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

const char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// The 8 decimal digits of v < 10^8, leading zeros included; the four pairs
// are independent of each other.
void put8(char *dst, uint32_t v) {
  uint32_t a = v / 10000, b = v % 10000;
  memcpy(dst, kPairs + 2 * (a / 100), 2);
  memcpy(dst + 2, kPairs + 2 * (a % 100), 2);
  memcpy(dst + 4, kPairs + 2 * (b / 100), 2);
  memcpy(dst + 6, kPairs + 2 * (b % 100), 2);
}

// The last 8, 16 or 24 decimal digits of q < 10^19 (enough for n of them),
// ending at dst + 24.
void put_last_digits(char *dst, uint64_t q, int n) {
  if (n <= 8) {
    put8(dst + 16, static_cast<uint32_t>(q));
    return;
  }
  uint64_t top = q / 100000000;
  put8(dst + 16, static_cast<uint32_t>(q - top * 100000000));
  if (n <= 16) {
    put8(dst + 8, static_cast<uint32_t>(top));
    return;
  }
  put8(dst + 8, static_cast<uint32_t>(top % 100000000));
  put8(dst, static_cast<uint32_t>(top / 100000000));
}

// Copies the fraction digits without their trailing zeros, after a point.
// Digits are copied as one fixed block of 24 bytes (dst has room for it),
// and only the first n count.
char *put_fraction(char *p, const char *frac, int n) {
  while (n > 0 && frac[n - 1] == '0') n--;
  if (n == 0) return p;
  *p++ = '.';
  memcpy(p, frac, 24);
  return p + n;
}

// "e", the sign and two digits: the exact range (2^-128 <= |x| < 2^64) keeps
// the decimal exponent between -39 and 19.
char *put_exponent(char *p, int x10) {
  *p++ = 'e';
  *p++ = x10 < 0 ? '-' : '+';
  unsigned u = x10 < 0 ? -x10 : x10;
  memcpy(p, kPairs + 2 * u, 2);
  return p + 2;
}

#endif  // VESK_FAST_LG

}  // namespace

int format_lg(char *dst, long double x, int prec) {
  if (prec < 1) prec = 1;
#if !VESK_FAST_LG
  return fallback(dst, x, prec);
#else
  uint64_t m = 0;
  uint16_t se = 0;
  memcpy(&m, &x, sizeof m);
  memcpy(&se, reinterpret_cast<const char *>(&x) + sizeof m, sizeof se);
  int biased = se & 0x7fff;
  char *p = dst;
  if (se >> 15) *p++ = '-';
  if (m == 0 && biased == 0) {
    *p++ = '0';
    *p = '\0';
    return static_cast<int>(p - dst);
  }
  // Infinities and NaN (largest exponent), subnormals and invalid encodings
  // (no leading bit) and long precisions go to snprintf.
  uint64_t q = 0;
  int x10 = 0;
  if (biased == 0x7fff || (m >> 63) == 0 || prec > MAX_FAST_PREC ||
      !decimal_digits(m, 16383 + 63 - biased, prec, &q, &x10))
    return fallback(dst, x, prec);
  char all[48];  // the digits end at all + 24; the rest is room for block copies
  put_last_digits(all, q, prec);
  const char *digits = all + 24 - prec;
  if (x10 < -4 || x10 >= prec) {
    *p++ = digits[0];
    p = put_fraction(p, digits + 1, prec - 1);
    p = put_exponent(p, x10);
  } else if (x10 >= 0) {
    memcpy(p, digits, 24);
    p += x10 + 1;
    p = put_fraction(p, digits + x10 + 1, prec - 1 - x10);
  } else {
    *p++ = '0';
    *p++ = '.';
    for (int i = 0; i < -x10 - 1; i++) *p++ = '0';
    int n = prec;
    while (digits[n - 1] == '0') n--;
    memcpy(p, digits, 24);
    p += n;
  }
  *p = '\0';
  return static_cast<int>(p - dst);
#endif
}
