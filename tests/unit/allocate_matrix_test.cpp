#include "base/allocate_matrix.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

#include "base/allocate_matrix_aux.h"
#include "base/matrix.h"
#include "test_util.h"

namespace {

// Unusual lengths keep these tests clear of blocks other tests leave free.
class PoolTest : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

TEST_F(PoolTest, ShapesAreReadFromTheHandles) {
  Vector v = alloc_vector(1237);
  Matrix m = alloc_matrix(7, 13);
  EXPECT_EQ(vector_size(v), 1237);
  EXPECT_EQ(matrix_rows(m), 7);
  EXPECT_EQ(matrix_cols(m), 13);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(v) % 16, 0u);
  for (int i = 0; i < 7; i++) EXPECT_EQ(m[i], m[0] + i * 13) << "rows are one row-major block";
  EXPECT_EQ(reinterpret_cast<uintptr_t>(m[0]) % 16, 0u);
  release_matrix0(m);
  release_vector0(v);
}

TEST_F(PoolTest, ReleasedBlockIsReusedOnlyByTheSameShape) {
  Vector v = alloc_vector(1301);
  release_vector0(v);
  Vector w = alloc_vector(1301);
  EXPECT_EQ(w, v);

  Vector big = alloc_vector(1409);
  release_vector0(big);
  Vector small = alloc_vector(1401);
  EXPECT_NE(small, big) << "a larger free block must not serve a smaller request";
  EXPECT_TRUE(small > big + 1409 || small + 1401 < big) << "no splitting";
  Vector again = alloc_vector(1409);
  EXPECT_EQ(again, big);
  release_vector0(again);
  release_vector0(small);
  release_vector0(w);

  Matrix a = alloc_matrix(3, 17);
  release_matrix0(a);
  Matrix t = alloc_matrix(17, 3);
  EXPECT_NE(t, a) << "same element count, other shape";
  Matrix b = alloc_matrix(3, 17);
  EXPECT_EQ(b, a);
  release_matrix0(b);
  release_matrix0(t);
}

TEST_F(PoolTest, FreeListHandsBackEveryReleasedBlockWhateverTheOrder) {
  std::vector<Vector> vs;
  for (int i = 0; i < 5; i++) vs.push_back(alloc_vector(1511));
  for (int i : {3, 0, 4, 1, 2}) release_vector0(vs[i]);
  std::set<Vector> first(vs.begin(), vs.end()), again;
  for (int i = 0; i < 5; i++) again.insert(alloc_vector(1511));
  EXPECT_EQ(again, first);
  for (Vector v : again) release_vector0(v);

  std::vector<Matrix> ms;
  for (int i = 0; i < 4; i++) ms.push_back(alloc_matrix(11, 5));
  for (int i : {2, 0, 3, 1}) release_matrix0(ms[i]);
  std::set<Matrix> mfirst(ms.begin(), ms.end()), magain;
  for (int i = 0; i < 4; i++) magain.insert(alloc_matrix(11, 5));
  EXPECT_EQ(magain, mfirst);
  for (Matrix m : magain) release_matrix0(m);
}

TEST_F(PoolTest, NullHandlesAreIgnored) {
  release_vector0(nullptr);
  release_matrix0(nullptr);
}

void free_vector_twice() {
  Vector v = alloc_vector(1601);
  release_vector0(v);
  release_vector0(v);
}

void free_matrix_twice() {
  Matrix m = alloc_matrix(9, 2);
  release_matrix0(m);
  release_matrix0(m);
}

// The block sits behind the rover when it is released again.
void free_vector_twice_behind_rover() {
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

TEST(PoolDeathTest, DoubleFreeIsFatal) {
  setup_process_state();
  EXPECT_EXIT(free_vector_twice(), ::testing::ExitedWithCode(1),
              "^Internal error: double-freed a vector \\(0x[0-9a-f]+\\)\n$");
  EXPECT_EXIT(free_matrix_twice(), ::testing::ExitedWithCode(1),
              "^Internal error: double-freed a matrix \\(0x[0-9a-f]+\\)\n$");
  EXPECT_EXIT(free_vector_twice_behind_rover(), ::testing::ExitedWithCode(1),
              "double-freed a vector");
}

TEST(PoolDeathTest, CapacityMessagesNameTheUnitLimit) {
  setup_process_state();
  EXPECT_EXIT(overfill_vector_pool(), ::testing::ExitedWithCode(1),
              "^Ran out of memory for vectors \\(allocated size: 8388608 bytes\\)\n$");
  EXPECT_EXIT(overfill_matrix_pool(), ::testing::ExitedWithCode(1),
              "^Ran out of memory for matrices \\(allocated size: 8388608 bytes\\)\n$");
}

TEST_F(PoolTest, VectorViewsOutsideThePool) {
  std::vector<unsigned char> mem(vector_block_bytes(3) + 16);
  void *aligned = mem.data() + (16 - reinterpret_cast<uintptr_t>(mem.data()) % 16) % 16;
  Vector view = make_vector_view(aligned, 3);
  view[0] = 1.0L;
  view[1] = 2.0L;
  view[2] = 3.0L;
  EXPECT_EQ(vector_size(view), 3);
  EXPECT_GE(vector_block_bytes(3), 3 * sizeof(long double));
  Vector v = alloc_set_vector(3, 2.0L);
  EXPECT_EQ(prod_vector(view, v), 12.0L);
  release_vector0(v);
}

TEST_F(PoolTest, DuplicatesAreIndependentCopies) {
  Vector v = alloc_set_vector(1703, 2.5L);
  v[7] = -1.0L;
  Vector d = dup_vector(v);
  v[7] = 0.0L;
  EXPECT_EQ(d[7], -1.0L);
  EXPECT_EQ(d[1702], 2.5L);

  Matrix m = alloc_set_matrix(5, 7, 3.0L);
  m[4][6] = 9.0L;
  Matrix dm = dup_matrix(m);
  clear_matrix(m);
  EXPECT_EQ(dm[4][6], 9.0L);
  EXPECT_EQ(dm[0][0], 3.0L);
  EXPECT_EQ(m[4][6], 0.0L);
  for (Vector x : {v, d}) release_vector0(x);
  for (Matrix x : {m, dm}) release_matrix0(x);
}

TEST_F(PoolTest, ProjectionsAndOuterProducts) {
  Vector v = alloc_vector(5);
  for (int i = 0; i < 5; i++) v[i] = 10.0L * i;
  const int flags[5] = {1, 0, 1, 1, 0};
  Vector p = alloc_proj_vector(v, flags);
  ASSERT_EQ(vector_size(p), 3);
  EXPECT_EQ(p[0], 0.0L);
  EXPECT_EQ(p[1], 20.0L);
  EXPECT_EQ(p[2], 30.0L);
  Vector pn = alloc_proj_vector_n(v, flags, 3);
  EXPECT_EQ(pn[2], 30.0L);

  Matrix m = alloc_matrix(4, 3);
  for (int i = 0; i < 4; i++)
    for (int j = 0; j < 3; j++) m[i][j] = 10.0L * i + j;
  const int rows[4] = {0, 1, 0, 1}, cols[3] = {1, 0, 1};
  Matrix pm = alloc_proj_matrix(m, rows, cols);
  ASSERT_EQ(matrix_rows(pm), 2);
  ASSERT_EQ(matrix_cols(pm), 2);
  EXPECT_EQ(pm[0][0], 10.0L);
  EXPECT_EQ(pm[0][1], 12.0L);
  EXPECT_EQ(pm[1][0], 30.0L);
  EXPECT_EQ(pm[1][1], 32.0L);
  Matrix pmn = alloc_proj_matrix_n(m, rows, cols, 2, 2);
  EXPECT_EQ(pmn[1][1], 32.0L);

  Vector a = alloc_vector(2), b = alloc_vector(3);
  a[0] = 2;
  a[1] = -1;
  b[0] = 1;
  b[1] = 3;
  b[2] = 5;
  Matrix ab = alloc_vprod_matrix(a, b);
  ASSERT_EQ(matrix_rows(ab), 2);
  ASSERT_EQ(matrix_cols(ab), 3);
  EXPECT_EQ(ab[0][2], 10.0L);
  EXPECT_EQ(ab[1][1], -3.0L);
  for (Vector x : {v, p, pn, a, b}) release_vector0(x);
  for (Matrix x : {m, pm, pmn, ab}) release_matrix0(x);
}

void project_into_wrong_length() {
  Vector v = alloc_vector(4);
  const int flags[4] = {1, 1, 0, 0};
  alloc_proj_vector_n(v, flags, 3);
}

TEST(PoolDeathTest, ProjectionOfTheWrongLengthIsFatal) {
  setup_process_state();
  EXPECT_EXIT(project_into_wrong_length(), ::testing::ExitedWithCode(1),
              "^Internal error: proj_vector\\(\\) -- illegal dimension\\(s\\)\n$");
}

}  // namespace
