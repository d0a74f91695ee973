#include "base/matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "pooled_values.h"

namespace {

// Determinant by cofactor expansion along the first row: an independent check
// of the factorisations.
long double laplace_det(const std::vector<std::vector<long double>> &a) {
  size_t n = a.size();
  if (n == 1) return a[0][0];
  long double det = 0, sign = 1;
  for (size_t c = 0; c < n; c++, sign = -sign) {
    std::vector<std::vector<long double>> minor;
    for (size_t i = 1; i < n; i++) {
      minor.emplace_back();
      for (size_t j = 0; j < n; j++)
        if (j != c) minor.back().push_back(a[i][j]);
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

TEST_F(MatrixTest, ClosedFormsOfNonSymmetricSmallMatrices) {
  Matrix out1 = mat(1, 1), out2 = mat(2, 2), out3 = mat(3, 3);
  EXPECT_EQ(invert(mat(1, 1, {4}), out1), 4.0L);
  EXPECT_EQ(out1[0][0], 0.25L);
  Matrix two = mat(2, 2, {4, 7, 2, 6});
  EXPECT_EQ(determinant(two), 10.0L);
  EXPECT_EQ(invert(two, out2), 10.0L);
  expect_matrix(out2, {0.6L, -0.7L, -0.2L, 0.4L}, 1e-18);
  // det = 2 (6 - 2) - 0 + 1 (1 - 3) = 6; the inverse is the adjugate over 6.
  Matrix three = mat(3, 3, {2, 0, 1, 1, 3, 2, 1, 1, 2});
  EXPECT_EQ(determinant(three), 6.0L);
  EXPECT_EQ(invert(three, out3), 6.0L);
  expect_matrix(out3,
                {4 / 6.0L, 1 / 6.0L, -3 / 6.0L, 0, 3 / 6.0L, -3 / 6.0L, -2 / 6.0L, -2 / 6.0L, 1},
                1e-18);
}

TEST_F(MatrixTest, LuInverseOfGeneralMatricesMultipliesBackToIdentity) {
  Matrix a4 = mat(4, 4,
                  {0, 0.2L, 0.1L, 0.3L, 0.4L, 0.1L, 0.2L, 0.1L,  //
                   0.1L, 0.3L, 0.4L, 0.2L, 0.2L, 0.1L, 0.3L, 0.4L});
  Matrix a5 = mat(5, 5, {3,  -1, 4, 1, -5, 9, 2, -6, 5,  3, 5, -8, 9, 7, 9,  //
                         -3, 2,  3, 8, -4, 6, 2, 6,  -4, 3});
  for (Matrix a : {a4, a5}) {
    int n = matrix_rows(a);
    Matrix inv = mat(n, n);
    long double det = invert(a, inv), expect = laplace_det(a);
    EXPECT_EQ(matrix_err.err_inv, 0);
    EXPECT_NEAR(static_cast<double>(det / expect), 1.0, 1e-15);
    EXPECT_NEAR(static_cast<double>(determinant(a) / expect), 1.0, 1e-15);
    expect_identity_product(a, inv, 1e-15);
    expect_identity_product(inv, a, 1e-15);
  }
}

TEST_F(MatrixTest, LuPivotRule) {
  struct Case {
    int n;
    std::vector<long double> a;
    std::vector<int> perm;
  };
  const Case cases[] = {
      // Ratios never exceed 1 and the running maximum starts at the last
      // row's scale (4): no exchange although |3| > |1|.
      {2, {1, 2, 3, 4}, {0, 1}},
      // The ratios 0.5 and 1 both beat the start value 0.3: row 1 pivots.
      {2, {0.1L, 0.2L, 0.3L, 0.1L}, {1, 0}},
      // The maximum reached in column 0 (ratio 1) is kept for column 1, so
      // row 2 (ratio 1 there as well) does not displace row 1.
      {3, {0.3L, 0.1L, 0.1L, 0.1L, 0.05L, 0.2L, 0.1L, 0.2L, 0.1L}, {0, 1, 2}},
  };
  for (const Case &c : cases) {
    Matrix a = mat(c.n, c.n), l = mat(c.n, c.n), u = mat(c.n, c.n);
    for (size_t k = 0; k < c.a.size(); k++) a[k / c.n][k % c.n] = c.a[k];
    int perm[3];
    long double det = lu(a, l, u, perm);
    EXPECT_EQ(std::vector<int>(perm, perm + c.n), c.perm);
    EXPECT_NEAR(static_cast<double>(det / laplace_det(a)), 1.0, 1e-15);
  }
  // Factors of the first case, rows at their input index.
  Matrix a = mat(2, 2, {1, 2, 3, 4}), l = mat(2, 2), u = mat(2, 2);
  int perm[2];
  EXPECT_EQ(lu(a, l, u, perm), -2.0L);
  expect_matrix(l, {1, 0, 3, 1}, 0);
  expect_matrix(u, {1, 2, 0, -2}, 0);
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
  EXPECT_FALSE(std::isfinite(out2[1][1]));
  EXPECT_EQ(invert_c(s2, out2), 0.0L);
  EXPECT_EQ(matrix_err.err_inv, 0);

  // Not positive definite: invert_c and determinant_c refuse it.
  Matrix indefinite = mat(4, 4, {1, 2, 0, 0, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  EXPECT_EQ(invert_c(indefinite, out), 0.0L);
  EXPECT_EQ(matrix_err.err_inv, 1);
  EXPECT_EQ(matrix_err.err_cho, 1);
  matrix_err = MatrixErrors();
  EXPECT_EQ(determinant_c(indefinite), 0.0L);
  EXPECT_EQ(matrix_err.err_det, 1);
  EXPECT_EQ(matrix_err.err_cho, 1);
}

TEST_F(MatrixTest, CholeskyFactorsAndPivotSigns) {
  Matrix a = second_difference(3), l = mat(3, 3), lt = mat(3, 3), llt = mat(3, 3);
  a[0][1] = 99;  // only the lower triangle is read
  EXPECT_NEAR(static_cast<double>(cholesky(a, l)), 4.0, 1e-15);
  transpose(l, lt);
  prod_matrix(l, lt, llt);
  expect_matrix(llt, {2, -1, 0, -1, 2, -1, 0, -1, 2}, 1e-15);

  Matrix l2 = mat(2, 2);
  EXPECT_EQ(cholesky(mat(2, 2, {-1, 0, 0, 1}), l2), 0.0L);
  EXPECT_EQ(matrix_err.err_cho, 1);
  EXPECT_EQ(cholesky(mat(2, 2, {1, 1, 1, 1}), l2), 0.0L);  // zero pivot: accepted
  EXPECT_EQ(matrix_err.err_cho, 0);
}

TEST_F(MatrixTest, TriangularInversesIncludingPermutedRows) {
  Matrix low = mat(4, 4, {2, 0, 0, 0, 1, 3, 0, 0, -1, 2, 4, 0, 3, -2, 1, 5});
  Matrix up = mat(4, 4), inv = mat(4, 4);
  transpose(low, up);
  invert_l(low, inv);
  expect_identity_product(low, inv, 1e-15);
  invert_u(up, inv);
  expect_identity_product(up, inv, 1e-15);

  // Row k of the factor stored at index perm[k]; the inverse comes back in
  // the same layout.
  const int perm[4] = {2, 0, 3, 1};
  Matrix t_p = mat(4, 4), inv_p = mat(4, 4), plain = mat(4, 4);
  for (Matrix t : {low, up}) {
    for (int k = 0; k < 4; k++)
      for (int j = 0; j < 4; j++) t_p[perm[k]][j] = t[k][j];
    if (t == low)
      invert_l_p(t_p, inv_p, perm);
    else
      invert_u_p(t_p, inv_p, perm);
    for (int k = 0; k < 4; k++)
      for (int j = 0; j < 4; j++) plain[k][j] = inv_p[perm[k]][j];
    expect_identity_product(t, plain, 1e-15);
  }
}

TEST_F(MatrixTest, ElementwiseOperationsProductsAndConversions) {
  // v'Mv from the upper triangle [[2,1,.5],[.,3,-1],[.,.,4]] and v = (1,-2,3):
  // 2 + 12 + 36 + 2 (1*1*-2 + 0.5*1*3 + -1*-2*3) = 61
  EXPECT_EQ(qform(mat(3, 3, {2, 1, 0.5L, -100, 3, -1, 42, 7, 4}), vec({1, -2, 3})), 61.0L);

  Matrix a = mat(2, 3, {1, 2, 3, 4, 5, 6}), ab = mat(2, 2),
         sq = mat(3, 3, {1, 2, 3, 0, 5, 6, 0, 0, 9});
  set_matrix(ab, 99);  // cleared before accumulating
  prod_matrix(a, mat(3, 2, {1, 0, 0, 1, 2, -1}), ab);
  expect_matrix(ab, {7, -1, 16, -1}, 0);
  Vector y = vec({99, 99});
  prod_matrix_vector(a, vec({1, -1, 2}), y);
  EXPECT_EQ(y[0], 5.0L);
  EXPECT_EQ(y[1], 11.0L);
  copy_upper_to_lower(sq);
  expect_matrix(sq, {1, 2, 3, 2, 5, 6, 3, 6, 9}, 0);
  set_diag_matrix(sq, 5);
  expect_matrix(sq, {5, 0, 0, 0, 5, 0, 0, 0, 5}, 0);
  EXPECT_EQ(trace(sq), 15.0L);

  Vector v = zeros(3);
  matrix2vector(mat(3, 1, {1, 2, 3}), v);
  EXPECT_EQ(v[2], 3.0L);
  matrix2vector(mat(1, 3, {4, 5, 6}), v);
  EXPECT_EQ(v[0], 4.0L);
  Matrix m = mat(2, 2);
  vector2matrix(v, m);
  expect_matrix(m, {4, 5, 6, 0}, 0);
  EXPECT_EQ(verify_vector(v) + verify_matrix(m), 0);
  v[1] = NAN;
  m[1][1] = -INFINITY;
  EXPECT_EQ(verify_vector(v), 1);
  EXPECT_EQ(verify_matrix(m), 1);

  const int flags[3] = {1, 0, 1};
  Matrix out = mat(2, 2);
  proj_matrix(mat(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}), flags, flags, out);
  expect_matrix(out, {1, 3, 7, 9}, 0);
}

// The dumps format through the message precision, which is cached at its
// first use; they run in a child so this process's cache stays untouched.
void dump_and_compare(long double *const *m, const long double *v) {
  FILE *fp = tmpfile();
  fprint_vector(fp, v);
  fprint_matrix(fp, m);
  fprint_matrix_p(fp, m);
  std::string text = stream_text(fp);
  const char *want =
      "\t0.500000\t1.000000   ]\n"
      "\t1.000000\t2.500000\n\t-3.000000\t4.000000   ]\n"
      "\t1\t2.5\n\t-3\t4   ]\n";
  if (text != want) fputs(text.c_str(), stderr);
  exit(text == want ? 0 : 2);
}

TEST_F(MatrixTest, DiagnosticDumps) {
  EXPECT_EXIT(dump_and_compare(mat(2, 2, {1, 2.5L, -3, 4}), vec({0.5L, 1})),
              ::testing::ExitedWithCode(0), "");
}

using MatrixDeathTest = PooledTest;

TEST_F(MatrixDeathTest, ShapeMismatchesAreFatal) {
  EXPECT_EXIT(matrix2vector(mat(2, 2), zeros(4)), ::testing::ExitedWithCode(1),
              "^Internal error: matrix2vector\\(\\) -- illegal dimension\\(s\\)\n$");
  EXPECT_EXIT(prod_matrix(mat(2, 3), mat(2, 3), mat(2, 3)), ::testing::ExitedWithCode(1),
              "prod_matrix\\(\\) -- illegal dimension");
}

}  // namespace
