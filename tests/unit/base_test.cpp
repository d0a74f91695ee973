// The base layer: the generator, the hash table, field splitting, message
// placeholders, special functions, the thread loops, the pools, matrices and the
// number formatter.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/allocate_matrix.h"
#include "base/format_lg.h"
#include "base/gamma_f.h"
#include "base/hash.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "base/parallel.h"
#include "base/random.h"
#include "base/split.h"
#include "pooled_values.h"
#include "test_util.h"

namespace {

// The Mersenne Twister against its published reference outputs, and the
// 53-bit reals against a second implementation (Python's random.random()).
TEST(RandomTest, PublishedSequences) {
  init_genrand(5489U);
  const uint32_t expected[5] = {3499211612U, 581869302U, 3890346734U, 3586334585U, 545404204U};
  for (uint32_t want : expected) EXPECT_EQ(genrand_int32(), want);
  init_genrand(5489U);
  EXPECT_EQ(genrand_int31(), static_cast<int32_t>(3499211612U >> 1));
  init_genrand(5489U);
  uint32_t x = 0;
  for (int i = 0; i < 10000; i++) x = genrand_int32();
  EXPECT_EQ(x, 4123659995U);  // the 10000th output
  const uint32_t keys[4] = {0x123, 0x234, 0x345, 0x456};
  init_by_array(keys, 4);
  const uint32_t ints[5] = {1067595299U, 955945823U, 477289528U, 4107218783U, 4228976476U};
  for (uint32_t want : ints) EXPECT_EQ(genrand_int32(), want);
  init_by_array(keys, 4);
  EXPECT_EQ(genrand_res53(), 0x1.fd11b138fa934p-3);
  EXPECT_EQ(genrand_res53(), 0x1.c72dc3e99e5e8p-4);
  EXPECT_EQ(genrand_res53(), 0x1.f8221eb1d59dep-1);
}

TEST(HashTest, RegisterCountsAndMode) {
  HashTable t;
  init_hashtable(&t);
  EXPECT_EQ(t.num_bucket, 997);
  const char *mode = "x";
  int count = 0;
  get_mode_key(&t, &mode, &count);  // empty table
  EXPECT_EQ(mode, nullptr);
  EXPECT_EQ(count, -1);
  EXPECT_EQ(register_hashtable(&t, "a"), 0);
  EXPECT_EQ(register_hashtable(&t, "b"), 1);
  EXPECT_EQ(register_hashtable(&t, "a"), 0);
  EXPECT_EQ(get_cardinality(&t), 2);
  EXPECT_EQ(lookup_hashtable(&t, "c"), -1);
  get_mode_key(&t, &mode, &count);
  EXPECT_STREQ(mode, "a");
  EXPECT_EQ(count, 2);
  // Ties: "Ab" (bucket 421) is scanned after "a" (bucket 97) but is the
  // smaller key; "\xe9" (bucket 943) is larger as an unsigned byte.
  for (const char *k : {"Ab", "Ab", "\xe9", "\xe9"}) register_hashtable(&t, k);
  get_mode_key(&t, &mode, &count);
  EXPECT_STREQ(mode, "Ab");
  release_hashtable(&t);
}

// Enough keys for several growths: ids, counts and lookups survive them.
TEST(HashTest, GrowthKeepsIdsAndCounts) {
  HashTable t;
  init_hashtable(&t);
  const int n = 20000;
  std::vector<std::string> key(n);
  for (int i = 0; i < n; i++) {
    key[i] = "value-" + std::to_string(i);
    ASSERT_EQ(register_hashtable(&t, key[i].c_str()), i);
  }
  EXPECT_GT(t.num_bucket, 4 * 997);
  for (int i = 0; i < n; i += 3) register_hashtable(&t, key[i].c_str());
  HashRecord *rec = get_entries(&t);
  for (int i = 0; i < n; i++) {
    ASSERT_EQ(lookup_hashtable(&t, key[i].c_str()), i);
    ASSERT_EQ(rec[i].key, key[i]);
    ASSERT_EQ(rec[i].count, i % 3 == 0 ? 2 : 1);
  }
  free(rec);
  release_hashtable(&t);
}

struct SplitCase {
  const char *name;
  bool comma;
  int max_fields;
  std::string line;
  int want_count;
  std::vector<std::string> want_fields;
  std::vector<int> want_starts;  // for the first max_fields fields
};

const SplitCase CASES[] = {
    {"tab trailing empty", false, 4, "x\ty\t", 3, {"x", "y", ""}, {0, 2, -1, -1}},
    {"tab too many", false, 2, "x\ty\t", -1, {}, {-1, -1}},
    {"blanks dropped", false, 3, "a b\tc\n", 2, {"ab", "c"}, {0, 4, -1}},
    {"crlf", false, 2, "a\tb\r\n", 2, {"a", "b"}, {0, 2}},
    {"starts skip blanks", false, 2, "  x\t y", 2, {"x", "y"}, {2, 5}},
    {"empty line", false, 1, "", 1, {""}, {-1}},
    {"adjacent delimiters", false, 3, "a\t\tb", 3, {"a", "", "b"}, {0, -1, 3}},
    {"comma drops tab", true, 3, "a, b\t,c\r\n", 3, {"a", "b", "c"}, {0, 3, 6}},
    {"tab keeps comma", false, 2, "1,5\t2", 2, {"1,5", "2"}, {0, 4}},
    {"exact limit", true, 3, "a,b,c", 3, {"a", "b", "c"}, {0, 2, 4}},
    {"fields after line end", true, 3, "a\n,b,c", 3, {"a", "", ""}, {0, -1, -1}},
};

TEST(SplitTest, Cases) {
  for (const SplitCase &c : CASES) {
    char **fields = alloc_field(c.max_fields);
    for (int i = 0; i < c.max_fields; i++) fields[i][0] = '#';  // detects stale or untouched fields
    std::vector<int> starts(c.max_fields, 99);
    int n = c.comma ? split_comma(c.max_fields, c.line.c_str(), fields, starts.data())
                    : split_tab(c.max_fields, c.line.c_str(), fields, starts.data());
    EXPECT_EQ(n, c.want_count) << c.name;
    for (size_t i = 0; i < c.want_fields.size(); i++) {
      EXPECT_EQ(std::string(fields[i]), c.want_fields[i]) << c.name << " field " << i;
    }
    if (n < 0) {
      for (int i = 0; i < c.max_fields; i++) EXPECT_EQ(fields[i][0], '#') << c.name;
    }
    EXPECT_EQ(starts, c.want_starts) << c.name;
    release_field(fields, c.max_fields);
  }
}

// A tab just past the counted prefix (index 131072) is not a field boundary:
// the walk must not move into a third field buffer. The buffers are exactly
// FIELD_SIZE bytes and the array holds exactly two, so an overrun shows up
// under a memory checker.
TEST(SplitTest, DelimiterPastTheCountedPrefix) {
  char **fields = alloc_field(2);
  std::string line = "a\t" + std::string(SPLIT_SCAN_MAX - 2, 'b') + "\tc";
  EXPECT_EQ(split_tab(2, line.c_str(), fields, nullptr), 2);
  EXPECT_EQ(std::string(fields[1]), std::string(SPLIT_SCAN_MAX - 2, 'b'));
  release_field(fields, 2);
}

// Precision and delimiter placeholders and progress marks.
class MiscTest : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

TEST_F(MiscTest, PrecisionPlaceholderStateMachine) {
  struct Case {
    const char *prec, *fmt, *expect;
  } cases[] = {
      {"6", "L=%.Nf", "L=%.6Lf"},
      {"3", "%.Ne and %.Nf", "%.3Le and %.3Lf"},
      {"6", "100%% done N", "100%% done N"},
      {"6", "%d. N", "%d. 6L"},  // a point after '%' arms the placeholder
      {"", "%.Nf", "%.Lf"},
  };
  for (const Case &c : cases) EXPECT_STREQ(conv_base(c.prec, c.fmt), c.expect) << c.fmt;
  EXPECT_STREQ(conv_base(nullptr, "%.Nf"), "%.Nf");
}

TEST_F(MiscTest, DelimiterPlaceholderInBothFormats) {
  settings.format_out = FORMAT_TXT;
  EXPECT_STREQ(conv_delim("a,b~,c"), "a\tb,c");
  settings.format_out = FORMAT_CSV;
  EXPECT_STREQ(conv_delim("a,b~,c"), "a,b,c");
  settings.format_out = FORMAT_TXT;
  EXPECT_STREQ(conv_data("Fowlkes and Mallows index,%.Ng"), "Fowlkes and Mallows index\t%.12Lg");
  EXPECT_EXIT(conv_delim("abc~"), ::testing::ExitedWithCode(1),
              "^Internal error \\(conv_delim\\): illegal escape sequence\n$");
}

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

// Loops split over threads: every index is visited exactly once whatever the
// split, failures resolve to the one a sequential loop meets first, the
// thread count follows OMP_NUM_THREADS, and a forked process still loops.
// A loop over n indices split over the threads: 0 when every index was
// visited once, in pieces within 0 .. n on valid thread indices.
int loop_faults(int n) {
  std::vector<std::atomic<int>> seen(n);
  std::atomic<int> bad{0};
  parallel_ranges(n, 1e9, [&](int begin, int end) {
    if (begin >= end || begin < 0 || end > n || thread_index() < 0 || thread_index() >= max_threads()) bad++;
    for (int i = begin; i < end && i < n; i++) seen[i]++;
  });
  for (auto &s : seen) bad += s.load() != 1;
  return bad.load();
}

TEST(Parallel, EveryIndexOnceInConsecutivePieces) {
  for (int n : {0, 1, 2, 7, 33, 1000, 100003}) EXPECT_EQ(loop_faults(n), 0) << n;
}

TEST(Parallel, SmallLoopsAndNestedLoopsRunOnTheCallingThread) {
  std::vector<std::vector<int>> pieces;
  parallel_ranges(50, 10, [&](int begin, int end) { pieces.push_back({begin, end, thread_index()}); });
  EXPECT_EQ(pieces, (std::vector<std::vector<int>>{{0, 50, 0}}));
  std::vector<std::atomic<int>> seen(64 * 64);
  parallel_ranges(64, 1e9, [&](int b0, int e0) {
    for (int i = b0; i < e0; i++)
      parallel_ranges(64, 1e9, [&](int b1, int e1) {
        for (int j = b1; j < e1; j++) seen[i * 64 + j]++;
      });
  });
  for (auto &s : seen) ASSERT_EQ(s.load(), 1);
}

// A process forked after the workers exist (as a death check is) must not
// wait for workers it does not have.
TEST(Parallel, ForkedProcessMakesItsOwnWorkers) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer does not start threads after a threaded fork";
#endif
  GTEST_FLAG_SET(death_test_style, "fast");  // a true fork of this process
  ASSERT_EQ(loop_faults(5000), 0);
  EXPECT_EXIT(exit(loop_faults(5000)), ::testing::ExitedWithCode(0), "");
}

// A fresh process takes its thread count from the environment, even one
// above the number of cores.
TEST(Parallel, ThreadCountFromTheEnvironment) {
  EXPECT_EQ(thread_count_setting(nullptr, 2), 2);
  EXPECT_EQ(thread_count_setting("1", 8), 1);
  EXPECT_EQ(thread_count_setting("3", 2), 3);
  EXPECT_EQ(thread_count_setting("4,2", 2), 4);
  EXPECT_EQ(thread_count_setting("100000", 2), 256);
  for (const char *bad : {"", "0", "-2", "two", "3x"}) EXPECT_EQ(thread_count_setting(bad, 2), 2) << bad;
#ifdef VESK_THREADS
  FreshProcessDeathChecks fresh;
  setenv("OMP_NUM_THREADS", "3", 1);
  EXPECT_EXIT(exit(loop_faults(5000) == 0 ? max_threads() : 0), ::testing::ExitedWithCode(3), "");
  unsetenv("OMP_NUM_THREADS");
#endif
}

// Unusual lengths keep these tests clear of blocks other tests leave free.
class PoolTest : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

// The second release of a finds a behind the rover, which sits at b.
void free_twice_behind_the_rover() {
  Vector a = alloc_vector(1602), b = alloc_vector(1602), c = alloc_vector(1602);
  release_vector0(a);
  release_vector0(c);
  release_vector0(b);
  release_vector0(a);
}

void overfill_vector_pool() {
  initialize_vector_pool();
  alloc_vector(4194300);  // fits
  alloc_vector(4);        // does not
}

void overfill_matrix_pool() {
  initialize_matrix_pool();
  alloc_matrix(12582912, 0);
}

using PoolDeathTest = PoolTest;

TEST_F(PoolDeathTest, DoubleFreeAndCapacityAreFatal) {
  Vector v = alloc_vector(1601);
  Matrix m = alloc_matrix(9, 2);
  release_vector0(v);
  release_matrix0(m);
  EXPECT_EXIT(release_vector0(v), ::testing::ExitedWithCode(1),
              "^Internal error: double-freed a vector \\(0x[0-9a-f]+\\)\n$");
  EXPECT_EXIT(release_matrix0(m), ::testing::ExitedWithCode(1),
              "^Internal error: double-freed a matrix \\(0x[0-9a-f]+\\)\n$");
  EXPECT_EXIT(free_twice_behind_the_rover(), ::testing::ExitedWithCode(1), "double-freed a vector");
  // The limit is printed as a count of units although the text says bytes.
  EXPECT_EXIT(overfill_vector_pool(), ::testing::ExitedWithCode(1),
              "^Ran out of memory for vectors \\(allocated size: 8388608 bytes\\)\n$");
  EXPECT_EXIT(overfill_matrix_pool(), ::testing::ExitedWithCode(1),
              "^Ran out of memory for matrices \\(allocated size: 8388608 bytes\\)\n$");
}

void expect_matrix(long double *const *m, const std::vector<long double> &want, double tol) {
  int cols = matrix_cols(m);
  for (size_t k = 0; k < want.size(); k++)
    EXPECT_NEAR(static_cast<double>(m[k / cols][k % cols]), static_cast<double>(want[k]), tol)
        << "element " << k;
}

void expect_identity_product(long double *const *a, long double *const *b, double tol) {
  int n = matrix_rows(a);
  Matrix p = alloc_matrix(n, n);
  prod_matrix(a, b, p);
  for (int i = 0; i < n; i++)
    for (int j = 0; j < n; j++) EXPECT_NEAR(static_cast<double>(p[i][j]), i == j ? 1.0 : 0.0, tol);
  release_matrix0(p);
}

class MatrixTest : public PooledTest {
 protected:
  // tridiag(-1, 2, -1) of order n: det = n + 1 and, with 1-based indices,
  // (K^-1)_ij = min(i,j) (n + 1 - max(i,j)) / (n + 1).
  Matrix second_difference(int n) {
    Matrix m = diag(n, 2);
    for (int i = 0; i + 1 < n; i++) m[i][i + 1] = m[i + 1][i] = -1;
    return m;
  }
};

TEST_F(MatrixTest, SecondDifferenceInversesAndDeterminantsOfOrderOneToFive) {
  for (int n = 1; n <= 5; n++) {
    Matrix a = second_difference(n), inv = mat(n, n), inv_c = mat(n, n);
    EXPECT_NEAR(static_cast<double>(determinant(a)), n + 1.0, 1e-15) << n;
    EXPECT_NEAR(static_cast<double>(determinant_c(a)), n + 1.0, 1e-15) << n;
    EXPECT_NEAR(static_cast<double>(invert(a, inv)), n + 1.0, 1e-15) << n;
    EXPECT_NEAR(static_cast<double>(invert_c(a, inv_c)), n + 1.0, 1e-15) << n;
    std::vector<long double> want;
    for (int i = 1; i <= n; i++)
      for (int j = 1; j <= n; j++)
        want.push_back(static_cast<long double>(std::min(i, j)) * (n + 1 - std::max(i, j)) /
                       (n + 1));
    expect_matrix(inv, want, 1e-15);
    expect_matrix(inv_c, want, 1e-15);
    EXPECT_EQ(matrix_err.err_inv, 0);
    EXPECT_EQ(matrix_err.err_det, 0);
  }
}

// A zero leading element forces a row exchange; the determinant comes from an
// exact rational cofactor expansion.
TEST_F(MatrixTest, LuInverseOfAGeneralMatrixMultipliesBackToIdentity) {
  Matrix a = mat(4, 4,
                 {0, 0.2L, 0.1L, 0.3L, 0.4L, 0.1L, 0.2L, 0.1L,  //
                  0.1L, 0.3L, 0.4L, 0.2L, 0.2L, 0.1L, 0.3L, 0.4L});
  Matrix inv = mat(4, 4);
  EXPECT_NEAR(static_cast<double>(invert(a, inv) / -0.008L), 1.0, 1e-15);
  EXPECT_EQ(matrix_err.err_inv, 0);
  EXPECT_NEAR(static_cast<double>(determinant(a) / -0.008L), 1.0, 1e-15);
  expect_identity_product(a, inv, 1e-15);
  expect_identity_product(inv, a, 1e-15);
}

TEST_F(MatrixTest, LuPivotRule) {
  struct Case {
    std::vector<long double> a;
    std::vector<int> perm;
    long double det;
  };
  const Case cases[] = {
      // Ratios never exceed 1 and the running maximum starts at the last
      // row's scale (4): no exchange although |3| > |1|.
      {{1, 2, 3, 4}, {0, 1}, -2},
      // The ratios 0.5 and 1 both beat the start value 0.3: row 1 pivots.
      {{0.1L, 0.2L, 0.3L, 0.1L}, {1, 0}, -0.05L},
      // The maximum reached in column 0 (ratio 1) is kept for column 1, so
      // row 2 (ratio 1 there as well) does not displace row 1.
      {{0.3L, 0.1L, 0.1L, 0.1L, 0.05L, 0.2L, 0.1L, 0.2L, 0.1L}, {0, 1, 2}, -0.008L},
  };
  for (const Case &c : cases) {
    int n = static_cast<int>(c.perm.size());
    Matrix a = mat(n, n), l = mat(n, n), u = mat(n, n);
    for (size_t k = 0; k < c.a.size(); k++) a[k / n][k % n] = c.a[k];
    int perm[3];
    long double det = lu(a, l, u, perm);
    EXPECT_EQ(std::vector<int>(perm, perm + n), c.perm);
    EXPECT_NEAR(static_cast<double>(det / c.det), 1.0, 1e-15);
  }
}

TEST_F(MatrixTest, SingularMatricesSetTheFlags) {
  Matrix l = mat(4, 4), u = mat(4, 4), out = mat(4, 4);
  int perm[4];
  EXPECT_EQ(lu(mat(4, 4, {1, 2, 3, 4, 0, 0, 0, 0, 5, 6, 7, 8, 1, 3, 5, 7}), l, u, perm), 0.0L);
  EXPECT_EQ(matrix_err.err_lu, 1);

  // Rank 2: the third row is the sum of the first two.
  Matrix singular = mat(4, 4, {1, 2, 3, 4, 2, 1, 0, 1, 3, 3, 3, 5, 0, 1, 1, 2});
  EXPECT_EQ(determinant(singular), 0.0L);
  EXPECT_EQ(matrix_err.err_det, 1);
  set_matrix(out, 7.0L);
  EXPECT_EQ(invert(singular, out), 0.0L);
  EXPECT_EQ(matrix_err.err_inv, 1);
  EXPECT_EQ(out[2][2], 7.0L) << "output left unwritten";

  // Closed forms make no singularity test and set no flag.
  Matrix s2 = mat(2, 2, {1, 2, 2, 4}), out2 = mat(2, 2);
  matrix_err = MatrixErrors();
  EXPECT_EQ(invert(s2, out2), 0.0L);
  EXPECT_FALSE(std::isfinite(out2[0][0]));
  EXPECT_EQ(matrix_err.err_inv, 0);

  // Not positive definite: invert_c refuses it.
  Matrix indefinite = mat(4, 4, {1, 2, 0, 0, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  EXPECT_EQ(invert_c(indefinite, out), 0.0L);
  EXPECT_EQ(matrix_err.err_inv, 1);
  EXPECT_EQ(matrix_err.err_cho, 1);
}

TEST_F(MatrixTest, CholeskyFactorsAndPivotSigns) {
  Matrix a = second_difference(3), l = mat(3, 3);
  a[0][1] = 99;  // only the lower triangle is read
  EXPECT_NEAR(static_cast<double>(cholesky(a, l)), 4.0, 1e-15);
  expect_matrix(l, {sqrtl(2), 0, 0, -sqrtl(0.5L), sqrtl(1.5L), 0}, 1e-15);

  Matrix l2 = mat(2, 2);
  EXPECT_EQ(cholesky(mat(2, 2, {-1, 0, 0, 1}), l2), 0.0L);
  EXPECT_EQ(matrix_err.err_cho, 1);
  EXPECT_EQ(cholesky(mat(2, 2, {1, 1, 1, 1}), l2), 0.0L);  // zero pivot: accepted
  EXPECT_EQ(matrix_err.err_cho, 0);
}

TEST_F(MatrixTest, QuadraticFormAndProduct) {
  // v'Mv from the upper triangle [[2,1,.5],[.,3,-1],[.,.,4]] and v = (1,-2,3):
  // 2 + 12 + 36 + 2 (1*1*-2 + 0.5*1*3 + -1*-2*3) = 61
  EXPECT_EQ(qform(mat(3, 3, {2, 1, 0.5L, -100, 3, -1, 42, 7, 4}), vec({1, -2, 3})), 61.0L);

  Matrix ab = mat(2, 2);
  set_matrix(ab, 99);  // cleared before accumulating
  prod_matrix(mat(2, 3, {1, 2, 3, 4, 5, 6}), mat(3, 2, {1, 0, 0, 1, 2, -1}), ab);
  expect_matrix(ab, {7, -1, 16, -1}, 0);
}

using MatrixDeathTest = PooledTest;

TEST_F(MatrixDeathTest, ShapeMismatchIsFatal) {
  EXPECT_EXIT(matrix2vector(mat(2, 2), zeros(4)), ::testing::ExitedWithCode(1),
              "^Internal error: matrix2vector\\(\\) -- illegal dimension\\(s\\)\n$");
}

// The fast "%.<prec>Lg" formatter against snprintf at every precision 0..36:
// hand-picked values and exact ties, neighbours of powers of ten and of
// rounding boundaries, random bit patterns (every class of value) and
// divergence-like values. VESK_FORMAT_CHECKS raises the random count.
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
