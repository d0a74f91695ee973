#include "base/matrix.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

#include "base/allocate_matrix_aux.h"
#include "test_util.h"

namespace {

Matrix make_matrix(int rows, int cols, std::initializer_list<long double> values) {
  Matrix m = alloc_matrix(rows, cols);
  auto it = values.begin();
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++) m[i][j] = *it++;
  return m;
}

Vector make_vector(std::initializer_list<long double> values) {
  Vector v = alloc_vector(static_cast<int>(values.size()));
  int i = 0;
  for (long double x : values) v[i++] = x;
  return v;
}

// The second-difference matrix tridiag(-1, 2, -1) of order n: det = n + 1 and
// (K^-1)_ij = min(i,j) (n + 1 - max(i,j)) / (n + 1) with 1-based indices.
Matrix second_difference(int n) {
  Matrix m = alloc_clear_matrix(n, n);
  for (int i = 0; i < n; i++) {
    m[i][i] = 2;
    if (i + 1 < n) m[i][i + 1] = m[i + 1][i] = -1;
  }
  return m;
}

long double second_difference_inverse(int n, int i, int j) {
  int lo = (i < j ? i : j) + 1, hi = (i > j ? i : j) + 1;
  return static_cast<long double>(lo) * (n + 1 - hi) / (n + 1);
}

// Determinant by cofactor expansion along the first row: an independent check
// of the factorisations.
long double laplace_det(const std::vector<std::vector<long double>> &a) {
  size_t n = a.size();
  if (n == 1) return a[0][0];
  long double det = 0, sign = 1;
  for (size_t c = 0; c < n; c++, sign = -sign) {
    std::vector<std::vector<long double>> minor;
    for (size_t i = 1; i < n; i++) {
      std::vector<long double> row;
      for (size_t j = 0; j < n; j++)
        if (j != c) row.push_back(a[i][j]);
      minor.push_back(row);
    }
    det += sign * a[0][c] * laplace_det(minor);
  }
  return det;
}

long double laplace_det(long double *const *m) {
  std::vector<std::vector<long double>> a(matrix_rows(m));
  for (int i = 0; i < matrix_rows(m); i++) a[i].assign(m[i], m[i] + matrix_cols(m));
  return laplace_det(a);
}

void expect_identity_product(long double *const *a, long double *const *b, double tol) {
  int n = matrix_rows(a);
  Matrix p = alloc_matrix(n, n);
  prod_matrix(a, b, p);
  for (int i = 0; i < n; i++)
    for (int j = 0; j < n; j++) EXPECT_NEAR(static_cast<double>(p[i][j]), i == j ? 1.0 : 0.0, tol);
  release_matrix0(p);
}

class MatrixTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setup_process_state();
    matrix_err = MatrixErrors();
  }
};

TEST_F(MatrixTest, SecondDifferenceInversesAndDeterminantsOfOrderOneToFive) {
  for (int n = 1; n <= 5; n++) {
    Matrix a = second_difference(n);
    Matrix inv = alloc_matrix(n, n), inv_c = alloc_matrix(n, n);
    EXPECT_NEAR(static_cast<double>(determinant(a)), n + 1.0, 1e-15) << n;
    EXPECT_NEAR(static_cast<double>(determinant_c(a)), n + 1.0, 1e-15) << n;
    EXPECT_NEAR(static_cast<double>(invert(a, inv)), n + 1.0, 1e-15) << n;
    EXPECT_NEAR(static_cast<double>(invert_c(a, inv_c)), n + 1.0, 1e-15) << n;
    for (int i = 0; i < n; i++)
      for (int j = 0; j < n; j++) {
        double expect = static_cast<double>(second_difference_inverse(n, i, j));
        EXPECT_NEAR(static_cast<double>(inv[i][j]), expect, 1e-15) << n << " " << i << j;
        EXPECT_NEAR(static_cast<double>(inv_c[i][j]), expect, 1e-15) << n << " " << i << j;
      }
    EXPECT_EQ(matrix_err.err_inv, 0);
    EXPECT_EQ(matrix_err.err_det, 0);
    release_matrix0(inv_c);
    release_matrix0(inv);
    release_matrix0(a);
  }
}

TEST_F(MatrixTest, ClosedFormsOfNonSymmetricSmallMatrices) {
  Matrix one = make_matrix(1, 1, {4});
  Matrix two = make_matrix(2, 2, {4, 7, 2, 6});
  Matrix three = make_matrix(3, 3, {2, 0, 1, 1, 3, 2, 1, 1, 2});
  Matrix out1 = alloc_matrix(1, 1), out2 = alloc_matrix(2, 2), out3 = alloc_matrix(3, 3);
  EXPECT_EQ(invert(one, out1), 4.0L);
  EXPECT_EQ(out1[0][0], 0.25L);
  EXPECT_EQ(determinant(two), 10.0L);
  EXPECT_EQ(invert(two, out2), 10.0L);
  const long double inv2[4] = {0.6L, -0.7L, -0.2L, 0.4L};
  for (int k = 0; k < 4; k++) EXPECT_NEAR(static_cast<double>(out2[k / 2][k % 2]), (double)inv2[k], 1e-18);
  // det = 2 (6 - 2) - 0 + 1 (1 - 3) = 6; the inverse is the adjugate over 6.
  EXPECT_EQ(determinant(three), 6.0L);
  EXPECT_EQ(invert(three, out3), 6.0L);
  const long double adj[9] = {4, 1, -3, 0, 3, -3, -2, -2, 6};
  for (int k = 0; k < 9; k++)
    EXPECT_NEAR(static_cast<double>(out3[k / 3][k % 3]), static_cast<double>(adj[k] / 6), 1e-18);
  for (Matrix m : {one, two, three, out1, out2, out3}) release_matrix0(m);
}

TEST_F(MatrixTest, LuInverseOfGeneralMatricesMultipliesBackToIdentity) {
  Matrix a4 = make_matrix(4, 4, {0, 0.2L, 0.1L, 0.3L,  //
                                 0.4L, 0.1L, 0.2L, 0.1L,  //
                                 0.1L, 0.3L, 0.4L, 0.2L,  //
                                 0.2L, 0.1L, 0.3L, 0.4L});
  Matrix a5 = make_matrix(5, 5, {3, -1, 4, 1, -5,  //
                                 9, 2, -6, 5, 3,   //
                                 5, -8, 9, 7, 9,   //
                                 -3, 2, 3, 8, -4,  //
                                 6, 2, 6, -4, 3});
  for (Matrix a : {a4, a5}) {
    int n = matrix_rows(a);
    Matrix inv = alloc_matrix(n, n);
    long double det = invert(a, inv);
    EXPECT_EQ(matrix_err.err_inv, 0);
    long double expect = laplace_det(a);
    EXPECT_NEAR(static_cast<double>(det / expect), 1.0, 1e-15);
    EXPECT_NEAR(static_cast<double>(determinant(a) / expect), 1.0, 1e-15);
    expect_identity_product(a, inv, 1e-15);
    expect_identity_product(inv, a, 1e-15);
    release_matrix0(inv);
  }
  release_matrix0(a5);
  release_matrix0(a4);
}

TEST_F(MatrixTest, LuPivotRuleKeepsWellScaledRowsInOrder) {
  // Ratios never exceed 1, and the running maximum starts at the last row's
  // scale (4): no exchange although |3| > |1| in the first column.
  Matrix a = make_matrix(2, 2, {1, 2, 3, 4});
  Matrix l = alloc_matrix(2, 2), u = alloc_matrix(2, 2);
  int perm[2];
  EXPECT_EQ(lu(a, l, u, perm), -2.0L);
  EXPECT_EQ(perm[0], 0);
  EXPECT_EQ(perm[1], 1);
  EXPECT_EQ(l[1][0], 3.0L);
  EXPECT_EQ(u[0][1], 2.0L);
  EXPECT_EQ(u[1][1], -2.0L);

  // Small entries: the first column's ratios 0.5 and 1 both beat the start
  // value 0.3, so the second row becomes the pivot and the sign flips.
  Matrix b = make_matrix(2, 2, {0.1L, 0.2L, 0.3L, 0.1L});
  long double det = lu(b, l, u, perm);
  EXPECT_EQ(perm[0], 1);
  EXPECT_EQ(perm[1], 0);
  EXPECT_NEAR(static_cast<double>(det), -0.05, 1e-18);
  EXPECT_EQ(u[1][0], 0.3L);

  // The maximum reached in column 0 (ratio 1) is kept for column 1, so row 2
  // (ratio 1 there as well) does not displace row 1 (ratio 0.25).
  Matrix c = make_matrix(3, 3, {0.3L, 0.1L, 0.1L, 0.1L, 0.05L, 0.2L, 0.1L, 0.2L, 0.1L});
  Matrix l3 = alloc_matrix(3, 3), u3 = alloc_matrix(3, 3);
  int perm3[3];
  det = lu(c, l3, u3, perm3);
  EXPECT_EQ(perm3[0], 0);
  EXPECT_EQ(perm3[1], 1);
  EXPECT_EQ(perm3[2], 2);
  EXPECT_NEAR(static_cast<double>(det / laplace_det(c)), 1.0, 1e-15);
  for (Matrix m : {a, b, c, l, u, l3, u3}) release_matrix0(m);
}

TEST_F(MatrixTest, SingularMatricesSetTheFlags) {
  Matrix zero_row = make_matrix(4, 4, {1, 2, 3, 4, 0, 0, 0, 0, 5, 6, 7, 8, 1, 3, 5, 7});
  Matrix l = alloc_matrix(4, 4), u = alloc_matrix(4, 4), out = alloc_matrix(4, 4);
  int perm[4];
  EXPECT_EQ(lu(zero_row, l, u, perm), 0.0L);
  EXPECT_EQ(matrix_err.err_lu, 1);

  // Rank 2: the third row is the sum of the first two.
  Matrix singular = make_matrix(4, 4, {1, 2, 3, 4, 2, 1, 0, 1, 3, 3, 3, 5, 0, 1, 1, 2});
  EXPECT_EQ(determinant(singular), 0.0L);
  EXPECT_EQ(matrix_err.err_det, 1);
  set_matrix(out, 7.0L);
  EXPECT_EQ(invert(singular, out), 0.0L);
  EXPECT_EQ(matrix_err.err_inv, 1);
  EXPECT_EQ(out[2][2], 7.0L) << "output left unwritten";

  Matrix s2 = make_matrix(2, 2, {1, 2, 2, 4}), out2 = alloc_matrix(2, 2);
  matrix_err = MatrixErrors();
  EXPECT_EQ(invert(s2, out2), 0.0L);
  EXPECT_FALSE(std::isfinite(out2[0][0]));
  EXPECT_FALSE(std::isfinite(out2[1][1]));
  EXPECT_EQ(matrix_err.err_inv, 0);
  EXPECT_EQ(invert_c(s2, out2), 0.0L);
  EXPECT_EQ(matrix_err.err_inv, 0);

  // Not positive definite: invert_c and determinant_c refuse it.
  Matrix indefinite = make_matrix(4, 4, {1, 2, 0, 0, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  EXPECT_EQ(invert_c(indefinite, out), 0.0L);
  EXPECT_EQ(matrix_err.err_inv, 1);
  EXPECT_EQ(matrix_err.err_cho, 1);
  matrix_err = MatrixErrors();
  EXPECT_EQ(determinant_c(indefinite), 0.0L);
  EXPECT_EQ(matrix_err.err_det, 1);
  EXPECT_EQ(matrix_err.err_cho, 1);
  for (Matrix m : {zero_row, l, u, out, singular, s2, out2, indefinite}) release_matrix0(m);
}

TEST_F(MatrixTest, CholeskyFactorsAndPivotSigns) {
  Matrix a = second_difference(3);
  a[0][1] = 99;  // only the lower triangle is read
  Matrix l = alloc_clear_matrix(3, 3);
  EXPECT_NEAR(static_cast<double>(cholesky(a, l)), 4.0, 1e-15);
  a[0][1] = -1;
  Matrix llt = alloc_matrix(3, 3), lt = alloc_matrix(3, 3);
  transpose(l, lt);
  prod_matrix(l, lt, llt);
  for (int i = 0; i < 3; i++)
    for (int j = 0; j < 3; j++) EXPECT_NEAR(static_cast<double>(llt[i][j]), (double)a[i][j], 1e-15);

  Matrix negative = make_matrix(2, 2, {-1, 0, 0, 1}), l2 = alloc_matrix(2, 2);
  EXPECT_EQ(cholesky(negative, l2), 0.0L);
  EXPECT_EQ(matrix_err.err_cho, 1);
  Matrix zero_pivot = make_matrix(2, 2, {1, 1, 1, 1});
  EXPECT_EQ(cholesky(zero_pivot, l2), 0.0L);
  EXPECT_EQ(matrix_err.err_cho, 0);
  for (Matrix m : {a, l, llt, lt, negative, l2, zero_pivot}) release_matrix0(m);
}

TEST_F(MatrixTest, TriangularInversesIncludingPermutedRows) {
  Matrix low = make_matrix(4, 4, {2, 0, 0, 0, 1, 3, 0, 0, -1, 2, 4, 0, 3, -2, 1, 5});
  Matrix up = alloc_matrix(4, 4), inv = alloc_matrix(4, 4);
  transpose(low, up);
  invert_l(low, inv);
  expect_identity_product(low, inv, 1e-15);
  invert_u(up, inv);
  expect_identity_product(up, inv, 1e-15);

  // Row k of the factor stored at index perm[k]; the inverse comes back in
  // the same layout.
  const int perm[4] = {2, 0, 3, 1};
  Matrix low_p = alloc_matrix(4, 4), inv_p = alloc_matrix(4, 4), plain = alloc_matrix(4, 4);
  for (Matrix t : {low, up}) {
    for (int k = 0; k < 4; k++)
      for (int j = 0; j < 4; j++) low_p[perm[k]][j] = t[k][j];
    if (t == low)
      invert_l_p(low_p, inv_p, perm);
    else
      invert_u_p(low_p, inv_p, perm);
    for (int k = 0; k < 4; k++)
      for (int j = 0; j < 4; j++) plain[k][j] = inv_p[perm[k]][j];
    expect_identity_product(t, plain, 1e-15);
  }
  for (Matrix m : {low, up, inv, low_p, inv_p, plain}) release_matrix0(m);
}

TEST_F(MatrixTest, QuadraticFormReadsOnlyTheUpperTriangle) {
  Matrix m = make_matrix(3, 3, {2, 1, 0.5L, -100, 3, -1, 42, 7, 4});
  Vector v = make_vector({1, -2, 3});
  // symmetric completion of the upper triangle: [[2,1,.5],[1,3,-1],[.5,-1,4]]
  // v'Mv = 2 + 12 + 36 + 2 (1*1*-2 + 0.5*1*3 + -1*-2*3) = 50 + 2 * 5.5 = 61
  EXPECT_EQ(qform(m, v), 61.0L);
  release_vector0(v);
  release_matrix0(m);
}

TEST_F(MatrixTest, ProductsAndMirroring) {
  Matrix a = make_matrix(2, 3, {1, 2, 3, 4, 5, 6});
  Matrix b = make_matrix(3, 2, {1, 0, 0, 1, 2, -1});
  Matrix ab = alloc_set_matrix(2, 2, 99);  // cleared before accumulating
  prod_matrix(a, b, ab);
  const long double want[4] = {7, -1, 16, -1};
  for (int k = 0; k < 4; k++) EXPECT_EQ(ab[k / 2][k % 2], want[k]);
  Vector x = make_vector({1, -1, 2}), y = alloc_set_vector(2, 99);
  prod_matrix_vector(a, x, y);
  EXPECT_EQ(y[0], 5.0L);
  EXPECT_EQ(y[1], 11.0L);

  Matrix sq = make_matrix(3, 3, {1, 2, 3, 0, 5, 6, 0, 0, 9});
  copy_upper_to_lower(sq);
  EXPECT_EQ(sq[2][0], 3.0L);
  EXPECT_EQ(sq[2][1], 6.0L);
  EXPECT_EQ(sq[1][0], 2.0L);
  set_diag_matrix(sq, 5);
  EXPECT_EQ(sq[0][2], 0.0L);
  EXPECT_EQ(trace(sq), 15.0L);
  for (Vector v : {x, y}) release_vector0(v);
  for (Matrix m : {a, b, ab, sq}) release_matrix0(m);
}

TEST_F(MatrixTest, ConversionsAndVerification) {
  Matrix col = make_matrix(3, 1, {1, 2, 3}), row = make_matrix(1, 3, {4, 5, 6});
  Vector v = alloc_vector(3);
  matrix2vector(col, v);
  EXPECT_EQ(v[2], 3.0L);
  matrix2vector(row, v);
  EXPECT_EQ(v[0], 4.0L);
  Matrix m = alloc_clear_matrix(2, 2);
  vector2matrix(v, m);
  EXPECT_EQ(m[0][1], 5.0L);
  EXPECT_EQ(m[1][0], 6.0L);
  EXPECT_EQ(m[1][1], 0.0L);

  EXPECT_EQ(verify_vector(v), 0);
  EXPECT_EQ(verify_matrix(m), 0);
  v[1] = NAN;
  m[1][1] = -INFINITY;
  EXPECT_EQ(verify_vector(v), 1);
  EXPECT_EQ(verify_matrix(m), 1);

  const int flags[3] = {1, 0, 1};
  Matrix sq = make_matrix(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}), out = alloc_matrix(2, 2);
  proj_matrix(sq, flags, flags, out);
  EXPECT_EQ(out[0][1], 3.0L);
  EXPECT_EQ(out[1][0], 7.0L);
  release_vector0(v);
  for (Matrix x : {col, row, m, sq, out}) release_matrix0(x);
}

// The dumps format through the message precision, which is cached at its
// first use; they run in a child so this process's cache stays untouched.
void dump_and_compare() {
  Matrix m = make_matrix(2, 2, {1, 2.5L, -3, 4});
  Vector v = make_vector({0.5L, 1});
  FILE *fp = tmpfile();
  fprint_vector(fp, v);
  fprint_matrix(fp, m);
  fprint_matrix_p(fp, m);
  std::string text = stream_text(fp);
  fclose(fp);
  const char *want =
      "\t0.500000\t1.000000   ]\n"
      "\t1.000000\t2.500000\n\t-3.000000\t4.000000   ]\n"
      "\t1\t2.5\n\t-3\t4   ]\n";
  if (text != want) {
    fputs(text.c_str(), stderr);
    exit(2);
  }
  exit(0);
}

TEST_F(MatrixTest, DiagnosticDumps) {
  EXPECT_EXIT(dump_and_compare(), ::testing::ExitedWithCode(0), "");
}

void square_matrix_to_vector() {
  Matrix m = alloc_matrix(2, 2);
  Vector v = alloc_vector(4);
  matrix2vector(m, v);
}

void multiply_mismatched() {
  Matrix a = alloc_matrix(2, 3), b = alloc_matrix(2, 3), out = alloc_matrix(2, 3);
  prod_matrix(a, b, out);
}

TEST(MatrixDeathTest, ShapeMismatchesAreFatal) {
  setup_process_state();
  EXPECT_EXIT(square_matrix_to_vector(), ::testing::ExitedWithCode(1),
              "^Internal error: matrix2vector\\(\\) -- illegal dimension\\(s\\)\n$");
  EXPECT_EXIT(multiply_mismatched(), ::testing::ExitedWithCode(1),
              "prod_matrix\\(\\) -- illegal dimension");
}

}  // namespace
