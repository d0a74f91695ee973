// The fast "%.<prec>Lg" formatter of the dissimilarity file against snprintf
// itself: every precision 1..36 on random bit patterns (all exponents, both
// signs, subnormals, NaN and infinities), on values near powers of ten and
// rounding boundaries, and on exact decimal ties. VESK_FORMAT_CHECKS raises
// the number of random values for a long run.
#include "base/format_lg.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

namespace {

long double from_bits(uint64_t mantissa, uint16_t sign_exp) {
  long double x = 0;
  memcpy(&x, &mantissa, sizeof mantissa);
  memcpy(reinterpret_cast<char *>(&x) + sizeof mantissa, &sign_exp, sizeof sign_exp);
  return x;
}

std::string want(long double x, int prec) {
  char buf[128];
  snprintf(buf, sizeof buf, "%.*Lg", prec, x);
  return buf;
}

// Checks one value at every precision; returns the number of mismatches.
int check_all_precisions(long double x) {
  int bad = 0;
  for (int prec = 1; prec <= 36; prec++) {
    char got[FORMAT_LG_SIZE];
    int len = format_lg(got, x, prec);
    std::string w = want(x, prec);
    if (w != got || len != static_cast<int>(w.size())) {
      if (++bad <= 3) ADD_FAILURE() << "prec " << prec << ": got " << got << ", snprintf " << w;
    }
  }
  return bad;
}

long checks_from_env(long fallback) {
  const char *s = getenv("VESK_FORMAT_CHECKS");
  return s != nullptr ? atol(s) : fallback;
}

TEST(FormatLg, SpecialValues) {
  const long double specials[] = {0.0L, -0.0L, INFINITY, -INFINITY, NAN, -NAN, LDBL_MAX, -LDBL_MAX,
                                  LDBL_MIN, LDBL_TRUE_MIN, -LDBL_TRUE_MIN, LDBL_EPSILON, 1.0L, -1.0L};
  for (long double x : specials) EXPECT_EQ(check_all_precisions(x), 0) << static_cast<double>(x);
  char buf[FORMAT_LG_SIZE];
  format_lg(buf, -0.0L, 12);
  EXPECT_STREQ(buf, "-0");
  format_lg(buf, 0.1L, 12);
  EXPECT_STREQ(buf, "0.1");
}

// Exact binary fractions halfway between two decimal results round to the
// even digit, as printf rounds them.
TEST(FormatLg, ExactTiesRoundToEven) {
  struct Tie {
    long double x;
    int prec;
    const char *text;
  };
  const Tie ties[] = {{2.5L, 1, "2"},     {3.5L, 1, "4"},       {0.125L, 2, "0.12"}, {0.375L, 2, "0.38"},
                      {1.5L, 1, "2"},     {0.0625L, 1, "0.06"}, {1024.5L, 4, "1024"}, {1025.5L, 4, "1026"},
                      {-2.5L, 1, "-2"},   {9.5L, 1, "1e+01"},      {99.5L, 2, "1e+02"}, {0.00048828125L, 3, "0.000488"}};
  for (const Tie &t : ties) {
    char buf[FORMAT_LG_SIZE];
    format_lg(buf, t.x, t.prec);
    EXPECT_STREQ(buf, t.text) << static_cast<double>(t.x) << " at " << t.prec;
    EXPECT_EQ(want(t.x, t.prec), t.text);
  }
}

// Powers of ten and their neighbours decide the exponent, the switch between
// fixed and exponent notation and the carry of a rounding into a new digit.
TEST(FormatLg, NeighboursOfPowersOfTen) {
  int bad = 0;
  for (int e = -45; e <= 45; e++) {
    long double p = powl(10.0L, e);
    long double x = p;
    for (int i = 0; i < 4; i++) x = nextafterl(x, 0.0L);
    for (int i = 0; i < 9; i++, x = nextafterl(x, INFINITY)) {
      bad += check_all_precisions(x);
      bad += check_all_precisions(-x);
    }
    for (int prec = 1; prec <= 20; prec++) {
      // Just below and above the value that rounds up to the next power.
      long double half = p * (1 - 0.5L * powl(10.0L, -prec));
      bad += check_all_precisions(half);
      bad += check_all_precisions(nextafterl(half, 0.0L));
      bad += check_all_precisions(nextafterl(half, INFINITY));
    }
  }
  EXPECT_EQ(bad, 0);
}

TEST(FormatLg, RandomBitPatterns) {
  std::mt19937_64 gen(20110422);
  long n = checks_from_env(5000);
  int bad = 0;
  for (long i = 0; i < n && bad < 10; i++) {
    uint64_t m = gen();
    uint16_t se = static_cast<uint16_t>(gen());
    bad += check_all_precisions(from_bits(m, se));
  }
  EXPECT_EQ(bad, 0);
}

// Values as the dissimilarity file meets them: divergences from 0 to a few
// hundred, many of them tiny, and short decimal fractions.
TEST(FormatLg, RandomDivergenceLikeValues) {
  std::mt19937_64 gen(7);
  long n = checks_from_env(20000);
  int bad = 0;
  for (long i = 0; i < n && bad < 10; i++) {
    long double e = expl(-static_cast<long double>(gen() % 80000) / 1000.0L) * 300.0L;
    long double r = static_cast<long double>(gen() % 100000) / static_cast<long double>(1 + gen() % 100000);
    long double m = ldexpl(static_cast<long double>(gen() | (uint64_t{1} << 63)), -64 - static_cast<int>(gen() % 140));
    bad += check_all_precisions(e) + check_all_precisions(r) + check_all_precisions(-m);
  }
  EXPECT_EQ(bad, 0);
}

}  // namespace
