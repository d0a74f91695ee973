#include "base/gamma_f.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

struct Case {
  double x;
  long double want;
};

// |got - want| within 1e-14 relative (absolute near zero).
void expect_close(long double got, long double want, double x) {
  long double tol = 1e-14L * (fabsl(want) > 1.0L ? fabsl(want) : 1.0L);
  EXPECT_NEAR(static_cast<double>(got), static_cast<double>(want), static_cast<double>(tol))
      << "x = " << x;
}

// Reference values of psi to 20 digits (computed with arbitrary precision).
const Case DIGAMMA_CASES[] = {
    {1.0, -0.57721566490153286061L},     {0.5, -1.9635100260214234794L},
    {0.3, -3.5025242222001331249L},      {0.25, -4.2274535333762654081L},
    {0.1, -10.423754940411076232L},      {1.4609375, -0.00067240239024288040438L},
    {2.9, 0.88249995063774389325L},      {3.5, 1.1031566406452431872L},
    {10.0, 2.2517525890667211076L},      {100.0, 4.6001618527380874002L},
    {1e6, 13.815510057964190771L},       {1e10, 23.02585092989045684L},
    {1e15, 34.53877639491068476L},       {-0.5, 0.036489973978576520559L},
    {-1.25, 3.7141391202135278304L},     {-2.75, -1.9590552649779970098L},
    {-3.5, 1.3888709263595289015L},      {-0.1, 9.2450730500529480423L},
    {-7.3, 4.3373073055100501422L},      {-1e10 + 0.5, 23.02585092994045684L},
    {1e-9, -1000000000.577215601L},      {-1e-9, 999999999.42278427117L},
    {5e-9, -200000000.57721565249L},     {1e-300, -9.9999999999999997494e+299L},
};

TEST(GammaFTest, DigammaReferenceValues) {
  for (const Case &c : DIGAMMA_CASES) expect_close(digamma(c.x), c.want, c.x);
}

TEST(GammaFTest, DigammaPoles) {
  EXPECT_EQ(digamma(0.0), HUGE_VALL);
  EXPECT_EQ(digamma(-0.0), HUGE_VALL);
  EXPECT_EQ(digamma(1e-310), -HUGE_VALL);
  EXPECT_EQ(digamma(-1e-310), HUGE_VALL);
  EXPECT_EQ(digamma(-5e15), HUGE_VALL);
  EXPECT_TRUE(std::isinf(static_cast<double>(digamma(-3.0))));
  EXPECT_TRUE(std::isnan(static_cast<double>(digamma(NAN))));
}

// The asymptotic branch is rounded to double.
TEST(GammaFTest, DigammaAsymptoticBranchIsDouble) {
  const double xs[] = {3.5, 42.0, 1e9};
  for (double x : xs) {
    long double v = digamma(x);
    EXPECT_EQ(v, static_cast<long double>(static_cast<double>(v))) << "x = " << x;
  }
}

// Reference values of log|Gamma| to 20 digits, at least one per interval;
// lngamma(0.5) = log sqrt(pi) and the integers give log factorials.
const Case LNGAMMA_CASES[] = {
    {1e-17, 39.143946580898776551L},     {1e-10, 23.025850929882735237L},
    {0.3, 1.0957979948180755606L},       {0.5, 0.57236494292470008707L},
    {0.6, 0.39823385806923493383L},      {0.68, 0.2858432839074366032L},
    {1.0, 0.0L},                         {1.2, -0.085374090003315836884L},
    {2.0, 0.0L},                         {2.5, 0.28468287047291915963L},
    {3.9, 1.6675803472417396801L},       {4.0, 1.7917594692280550008L},
    {7.0, 6.5792512120101009951L},       {11.5, 16.29200047656724132L},
    {12.0, 17.502307845873885839L},      {20.0, 39.339884187199494036L},
    {170.5, 704.00442773420467079L},     {1e10, 220258509288.81058147L},
    {1e80, 1.8320680743952365477e+82L},  {1e300, 6.8977552789821374147e+302L},
    {-0.5, 1.2655121234846453965L},      {-1.5, 0.86004701537648101451L},
    {-2.3, 0.36956666345500803746L},     {-10.7, -15.416789096416636124L},
};

TEST(GammaFTest, LngammaReferenceValues) {
  for (const Case &c : LNGAMMA_CASES) expect_close(lngamma(c.x), c.want, c.x);
}

TEST(GammaFTest, LngammaPolesAndSpecialArguments) {
  const double poles[] = {0.0, -1.0, -2.0, -17.0};
  for (double x : poles) EXPECT_EQ(lngamma(x), HUGE_VALL) << "x = " << x;
  EXPECT_EQ(lngamma(INFINITY), HUGE_VALL);
  EXPECT_EQ(lngamma(-INFINITY), HUGE_VALL);
  EXPECT_TRUE(std::isnan(static_cast<double>(lngamma(NAN))));
}

}  // namespace
