// Vector and matrix helpers that no phase of a run uses yet: filled and
// outer-product allocations, scaling of vectors, the finiteness checks and
// the dumps to standard output.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include "base/allocate_matrix.h"
#include "base/matrix.h"
#include "test_util.h"

namespace {

template <typename Fn>
std::string file_of(Fn fn) {
  FILE *tmp = tmpfile();
  fn(tmp);
  std::string text = stream_text(tmp);
  fclose(tmp);
  return text;
}

class MatrixHelpers : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

TEST_F(MatrixHelpers, FilledAndOuterProductAllocations) {
  Vector v = alloc_set_vector(3, -0.5L);
  ASSERT_EQ(vector_size(v), 3);
  for (int i = 0; i < 3; i++) EXPECT_EQ(v[i], -0.5L);
  Matrix m = alloc_set_matrix(2, 3, 4);
  ASSERT_EQ(matrix_rows(m), 2);
  ASSERT_EQ(matrix_cols(m), 3);
  for (int i = 0; i < 2; i++)
    for (int j = 0; j < 3; j++) EXPECT_EQ(m[i][j], 4.0L);
  Vector a = alloc_vector(2), b = alloc_vector(3);
  a[0] = 2, a[1] = -1;
  b[0] = 1, b[1] = 0.5L, b[2] = 3;
  Matrix ab = alloc_vprod_matrix(a, b);  // (a b')_ij = a_i b_j
  ASSERT_EQ(matrix_rows(ab), 2);
  ASSERT_EQ(matrix_cols(ab), 3);
  const long double want[2][3] = {{2, 1, 6}, {-1, -0.5L, -3}};
  for (int i = 0; i < 2; i++)
    for (int j = 0; j < 3; j++) EXPECT_EQ(ab[i][j], want[i][j]);
  mul_const_vector(b, 4);
  EXPECT_EQ(b[1], 2.0L);
  div_const_vector(b, 8);
  EXPECT_EQ(b[2], 1.5L);
  for (Vector x : {v, a, b}) release_vector0(x);
  for (Matrix x : {m, ab}) release_matrix0(x);
}

TEST_F(MatrixHelpers, FinitenessChecks) {
  Vector v = alloc_set_vector(2, 1);
  Matrix m = alloc_set_matrix(2, 2, 1);
  EXPECT_EQ(verify_vector(v), 0);
  EXPECT_EQ(verify_matrix(m), 0);
  for (long double bad : {static_cast<long double>(NAN), HUGE_VALL, -HUGE_VALL}) {
    v[1] = bad;
    m[1][0] = bad;
    EXPECT_EQ(verify_vector(v), 1);
    EXPECT_EQ(verify_matrix(m), 1);
  }
  release_vector0(v);
  release_matrix0(m);
}

// The print_ forms write to standard output what the fprint_ forms write to
// a stream: six digits after the point, or six significant digits (_p).
TEST_F(MatrixHelpers, DumpsToStandardOutput) {
  Vector v = alloc_set_vector(2, 0.125L);
  Matrix m = alloc_set_matrix(2, 2, 1234.5678L);
  EXPECT_EQ(stdout_of([v] { print_vector(v); }), "\t0.125000\t0.125000   ]\n");
  EXPECT_EQ(stdout_of([v] { print_vector(v); }), file_of([v](FILE *fp) { fprint_vector(fp, v); }));
  EXPECT_EQ(stdout_of([m] { print_matrix(m); }),
            "\t1234.567800\t1234.567800\n\t1234.567800\t1234.567800   ]\n");
  EXPECT_EQ(stdout_of([m] { print_matrix_p(m); }), "\t1234.57\t1234.57\n\t1234.57\t1234.57   ]\n");
  EXPECT_EQ(stdout_of([m] { print_matrix_p(m); }), file_of([m](FILE *fp) { fprint_matrix_p(fp, m); }));
  release_vector0(v);
  release_matrix0(m);
}

}  // namespace
