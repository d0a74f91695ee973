#include "base/allocate_matrix.h"

#include <gtest/gtest.h>

#include "test_util.h"

namespace {

// Unusual lengths keep these tests clear of blocks other tests leave free.
class PoolTest : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

TEST_F(PoolTest, MatrixRowsAreOneRowMajorBlock) {
  Matrix m = alloc_matrix(7, 13);
  EXPECT_EQ(matrix_rows(m), 7);
  EXPECT_EQ(matrix_cols(m), 13);
  for (int i = 0; i < 7; i++) EXPECT_EQ(m[i], m[0] + i * 13);
  release_matrix0(m);
  release_vector0(nullptr);  // null handles are ignored
  release_matrix0(nullptr);
}

TEST_F(PoolTest, ReleasedBlockIsReusedOnlyByTheSameShape) {
  Vector v = alloc_vector(1301);
  release_vector0(v);
  EXPECT_EQ(alloc_vector(1301), v);
  Vector big = alloc_vector(1409);
  release_vector0(big);
  Vector small = alloc_vector(1401);
  EXPECT_TRUE(small > big + 1409 || small + 1401 < big)
      << "no reuse or splitting of a larger block";
  EXPECT_EQ(alloc_vector(1409), big);
  for (Vector x : {big, small, v}) release_vector0(x);

  Matrix a = alloc_matrix(3, 17);
  release_matrix0(a);
  Matrix t = alloc_matrix(17, 3);
  EXPECT_NE(t, a) << "same element count, other shape";
  EXPECT_EQ(alloc_matrix(3, 17), a);
  release_matrix0(a);
  release_matrix0(t);
}

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

}  // namespace
