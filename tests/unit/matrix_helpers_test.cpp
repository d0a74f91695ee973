// Vector and matrix helpers that no phase of a run uses yet: filled and
// outer-product allocations, scaling of vectors, the finiteness checks and
// the dumps to standard output.
#include <gtest/gtest.h>

#include <cmath>

#include "base/matrix.h"
#include "pooled_values.h"

namespace {

using MatrixHelpers = PooledTest;

TEST_F(MatrixHelpers, FilledAndOuterProductAllocationsAndScaling) {
  Vector v = alloc_set_vector(3, -0.5L), b = vec({1, 0.5L, 3});
  Matrix m = alloc_set_matrix(2, 3, 4), ab = alloc_vprod_matrix(vec({2, -1}), b);  // (a b')_ij = a_i b_j
  ASSERT_EQ(vector_size(v), 3);
  for (Matrix x : {m, ab}) ASSERT_TRUE(matrix_rows(x) == 2 && matrix_cols(x) == 3);
  const long double want[2][3] = {{2, 1, 6}, {-1, -0.5L, -3}};
  for (int k = 0; k < 6; k++) {
    EXPECT_EQ(v[k % 3], -0.5L);
    EXPECT_EQ(m[k / 3][k % 3], 4.0L);
    EXPECT_EQ(ab[k / 3][k % 3], want[k / 3][k % 3]);
  }
  mul_const_vector(b, 4);
  EXPECT_EQ(b[1], 2.0L);
  div_const_vector(b, 8);
  EXPECT_EQ(b[2], 1.5L);
  release_vector0(v);
  release_matrix0(m);
  release_matrix0(ab);
}

TEST_F(MatrixHelpers, FinitenessChecks) {
  Vector v = vec({1, 1});
  Matrix m = mat(2, 2, {1, 1, 1, 1});
  EXPECT_EQ(verify_vector(v) + verify_matrix(m), 0);
  for (long double bad : {static_cast<long double>(NAN), HUGE_VALL, -HUGE_VALL}) {
    v[1] = m[1][0] = bad;
    EXPECT_EQ(verify_vector(v), 1);
    EXPECT_EQ(verify_matrix(m), 1);
  }
}

// Six digits after the point, or six significant digits (_p).
TEST_F(MatrixHelpers, DumpsToStandardOutput) {
  Vector v = vec({0.125L, 0.125L});
  Matrix m = mat(2, 2, {1234.5678L, 1234.5678L, 1234.5678L, 1234.5678L});
  EXPECT_EQ(stdout_of([v] { print_vector(v); }), "\t0.125000\t0.125000   ]\n");
  EXPECT_EQ(stdout_of([m] { print_matrix(m); }), "\t1234.567800\t1234.567800\n\t1234.567800\t1234.567800   ]\n");
  EXPECT_EQ(stdout_of([m] { print_matrix_p(m); }), "\t1234.57\t1234.57\n\t1234.57\t1234.57   ]\n");
}

}  // namespace
