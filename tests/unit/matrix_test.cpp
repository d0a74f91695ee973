#include "base/matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "pooled_values.h"

namespace {

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

TEST_F(MatrixTest, ClosedFormOfANonSymmetricMatrix) {
  Matrix out3 = mat(3, 3);
  // det = 2 (6 - 2) - 0 + 1 (1 - 3) = 6; the inverse is the adjugate over 6.
  Matrix three = mat(3, 3, {2, 0, 1, 1, 3, 2, 1, 1, 2});
  EXPECT_EQ(determinant(three), 6.0L);
  EXPECT_EQ(invert(three, out3), 6.0L);
  expect_matrix(out3,
                {4 / 6.0L, 1 / 6.0L, -3 / 6.0L, 0, 3 / 6.0L, -3 / 6.0L, -2 / 6.0L, -2 / 6.0L, 1},
                1e-18);
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

}  // namespace
