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
  EXPECT_EQ(reinterpret_cast<uintptr_t>(m[0]) % 16, 0u);
  for (int i = 0; i < 7; i++) EXPECT_EQ(m[i], m[0] + i * 13) << "rows are one row-major block";
  release_matrix0(m);
  release_vector0(v);
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

TEST_F(PoolTest, FreeListHandsBackEveryReleasedBlockWhateverTheOrder) {
  std::vector<Vector> vs;
  for (int i = 0; i < 5; i++) vs.push_back(alloc_vector(1511));
  for (int i : {3, 0, 4, 1, 2}) release_vector0(vs[i]);
  std::set<Vector> again;
  for (int i = 0; i < 5; i++) again.insert(alloc_vector(1511));
  EXPECT_EQ(again, std::set<Vector>(vs.begin(), vs.end()));
  for (Vector v : again) release_vector0(v);

  std::vector<Matrix> ms;
  for (int i = 0; i < 4; i++) ms.push_back(alloc_matrix(11, 5));
  for (int i : {2, 0, 3, 1}) release_matrix0(ms[i]);
  std::set<Matrix> magain;
  for (int i = 0; i < 4; i++) magain.insert(alloc_matrix(11, 5));
  EXPECT_EQ(magain, std::set<Matrix>(ms.begin(), ms.end()));
  for (Matrix m : magain) release_matrix0(m);
}

TEST_F(PoolTest, VectorViewsOutsideThePool) {
  std::vector<unsigned char> mem(vector_block_bytes(3) + 16);
  void *aligned = mem.data() + (16 - reinterpret_cast<uintptr_t>(mem.data()) % 16) % 16;
  Vector view = make_vector_view(aligned, 3);
  for (int i = 0; i < 3; i++) view[i] = i + 1;
  EXPECT_EQ(vector_size(view), 3);
  Vector v = alloc_set_vector(3, 2.0L);
  EXPECT_EQ(prod_vector(view, v), 12.0L);
  release_vector0(v);
}

TEST_F(PoolTest, DuplicatesProjectionsAndOuterProducts) {
  Vector v = alloc_set_vector(5, 2.5L);
  Matrix m = alloc_set_matrix(4, 3, 3.0L);
  EXPECT_EQ(v[4], 2.5L);
  EXPECT_EQ(m[3][2], 3.0L);
  for (int i = 0; i < 5; i++) v[i] = 10.0L * i;
  for (int i = 0; i < 4; i++)
    for (int j = 0; j < 3; j++) m[i][j] = 10.0L * i + j;
  Vector dv = dup_vector(v);
  Matrix dm = dup_matrix(m);
  clear_vector(v);
  EXPECT_EQ(dv[4], 40.0L) << "an independent copy";
  EXPECT_EQ(v[4], 0.0L);
  for (int i = 0; i < 5; i++) v[i] = dv[i];

  const int flags[5] = {1, 0, 1, 1, 0}, rows[4] = {0, 1, 0, 1}, cols[3] = {1, 0, 1};
  Vector p = alloc_proj_vector(v, flags), pn = alloc_proj_vector_n(v, flags, 3);
  ASSERT_EQ(vector_size(p), 3);
  for (Vector x : {p, pn})
    EXPECT_EQ(std::vector<long double>(x, x + 3), (std::vector<long double>{0, 20, 30}));
  Matrix pm = alloc_proj_matrix(dm, rows, cols), pmn = alloc_proj_matrix_n(dm, rows, cols, 2, 2);
  ASSERT_EQ(matrix_rows(pm), 2);
  ASSERT_EQ(matrix_cols(pm), 2);
  for (Matrix x : {pm, pmn})
    EXPECT_EQ(std::vector<long double>(x[0], x[0] + 4), (std::vector<long double>{10, 12, 30, 32}));

  Matrix ab = alloc_vprod_matrix(p, dv);
  ASSERT_EQ(matrix_rows(ab), 3);
  ASSERT_EQ(matrix_cols(ab), 5);
  EXPECT_EQ(ab[1][4], 800.0L);
  for (Vector x : {v, dv, p, pn}) release_vector0(x);
  for (Matrix x : {m, dm, pm, pmn, ab}) release_matrix0(x);
}

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
  const int flags[4] = {1, 1, 0, 0};
  EXPECT_EXIT(alloc_proj_vector_n(alloc_vector(4), flags, 3), ::testing::ExitedWithCode(1),
              "^Internal error: proj_vector\\(\\) -- illegal dimension\\(s\\)\n$");
}

}  // namespace
