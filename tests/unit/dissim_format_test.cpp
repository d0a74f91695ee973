// The fast "%.<prec>Lg" formatter against snprintf at every precision 0..36:
// hand-picked values and exact ties, neighbours of powers of ten and of
// rounding boundaries, random bit patterns (every class of value) and
// divergence-like values. VESK_FORMAT_CHECKS raises the random count.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "base/format_lg.h"

namespace {

std::string printf_lg(long double x, int prec) {
  char buf[128];
  snprintf(buf, sizeof buf, "%.*Lg", prec, x);
  return buf;
}

// Checks one value at every precision; returns the number of mismatches.
int check_all_precisions(long double x) {
  int bad = 0;
  for (int prec = 0; prec <= 36; prec++) {
    char got[FORMAT_LG_SIZE];
    int len = format_lg(got, x, prec);
    std::string want = printf_lg(x, prec);
    if ((want != got || len != static_cast<int>(want.size())) && ++bad <= 3)
      ADD_FAILURE() << "prec " << prec << ": got " << got << ", snprintf " << want;
  }
  return bad;
}

long checks_from_env(long fallback) {
  const char *s = getenv("VESK_FORMAT_CHECKS");
  return s != nullptr ? atol(s) : fallback;
}

// Exact binary fractions halfway between two decimal results round to the
// even digit, as printf rounds them; the text is also checked against the
// hand-written one.
TEST(FormatLg, SpecialValuesAndExactTies) {
  const long double specials[] = {0.0L,      -0.0L,    INFINITY,      -INFINITY,      NAN,          -NAN, LDBL_MAX,
                                  -LDBL_MAX, LDBL_MIN, LDBL_TRUE_MIN, -LDBL_TRUE_MIN, LDBL_EPSILON, 1.0L, -1.0L};
  for (long double x : specials) EXPECT_EQ(check_all_precisions(x), 0) << static_cast<double>(x);
  struct Case {
    long double x;
    int prec;
    const char *text;
  };
  const Case cases[] = {{-0.0L, 12, "-0"},    {0.1L, 12, "0.1"},
                        {2.5L, 1, "2"},       {3.5L, 1, "4"},
                        {0.125L, 2, "0.12"},  {0.375L, 2, "0.38"},
                        {1.5L, 1, "2"},       {0.0625L, 1, "0.06"},
                        {1024.5L, 4, "1024"}, {1025.5L, 4, "1026"},
                        {-2.5L, 1, "-2"},     {9.5L, 1, "1e+01"},
                        {99.5L, 2, "1e+02"},  {0.00048828125L, 3, "0.000488"}};
  for (const Case &c : cases) {
    char buf[FORMAT_LG_SIZE];
    format_lg(buf, c.x, c.prec);
    EXPECT_STREQ(buf, c.text) << static_cast<double>(c.x) << " at " << c.prec;
    EXPECT_EQ(printf_lg(c.x, c.prec), c.text);
  }
}

// Powers of ten and their neighbours decide the exponent, the switch between
// fixed and exponent notation and the carry of a rounding into a new digit.
TEST(FormatLg, NeighboursOfPowersOfTen) {
  int bad = 0;
  for (int e = -45; e <= 45; e++) {
    long double p = powl(10.0L, e), x = p;
    for (int i = 0; i < 4; i++) x = nextafterl(x, 0.0L);
    for (int i = 0; i < 9; i++, x = nextafterl(x, INFINITY)) bad += check_all_precisions(x) + check_all_precisions(-x);
    for (int prec = 1; prec <= 20; prec++) {
      // Just below and above the value that rounds up to the next power.
      long double half = p * (1 - 0.5L * powl(10.0L, -prec));
      bad += check_all_precisions(half) + check_all_precisions(nextafterl(half, 0.0L)) +
             check_all_precisions(nextafterl(half, INFINITY));
    }
  }
  EXPECT_EQ(bad, 0);
}

// Random bit patterns, and values as the dissimilarity file meets them:
// divergences from 0 to a few hundred, many of them tiny, and short decimal
// fractions.
TEST(FormatLg, RandomValues) {
  std::mt19937_64 gen(20110422);
  int bad = 0;
  for (long i = 0, n = checks_from_env(5000); i < n && bad < 10; i++) {
    uint64_t mantissa = gen();
    uint16_t sign_exp = static_cast<uint16_t>(gen());
    long double x = 0;
    memcpy(&x, &mantissa, sizeof mantissa);
    memcpy(reinterpret_cast<char *>(&x) + sizeof mantissa, &sign_exp, sizeof sign_exp);
    bad += check_all_precisions(x);
  }
  gen.seed(7);
  for (long i = 0, n = checks_from_env(20000); i < n && bad < 10; i++) {
    long double e = expl(-static_cast<long double>(gen() % 80000) / 1000.0L) * 300.0L;
    long double r = static_cast<long double>(gen() % 100000) / static_cast<long double>(1 + gen() % 100000);
    long double m = ldexpl(static_cast<long double>(gen() | (uint64_t{1} << 63)), -64 - static_cast<int>(gen() % 140));
    bad += check_all_precisions(e) + check_all_precisions(r) + check_all_precisions(-m);
  }
  EXPECT_EQ(bad, 0);
}

}  // namespace
