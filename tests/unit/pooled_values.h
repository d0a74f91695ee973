// A test fixture that builds vectors and matrices from literal values out of
// the pools and hands every one of them back when the test ends.
#ifndef VESK_TESTS_POOLED_VALUES_H
#define VESK_TESTS_POOLED_VALUES_H

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "base/allocate_matrix.h"
#include "base/matrix.h"
#include "test_util.h"

class PooledTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setup_process_state();
    matrix_err = MatrixErrors();
  }

  void TearDown() override {
    for (Matrix m : matrices_) release_matrix0(m);
    for (Vector v : vectors_) release_vector0(v);
  }

  // A rows x cols matrix filled row by row (zeros when no values are given).
  Matrix mat(int rows, int cols, std::initializer_list<long double> values = {}) {
    Matrix m = alloc_clear_matrix(rows, cols);
    auto it = values.begin();
    for (int k = 0; it != values.end() && k < rows * cols; k++) m[k / cols][k % cols] = *it++;
    matrices_.push_back(m);
    return m;
  }

  // An n x n matrix with x on the diagonal and 0 elsewhere.
  Matrix diag(int n, long double x) {
    Matrix m = mat(n, n);
    set_diag(m, x);
    return m;
  }

  Vector vec(std::initializer_list<long double> values) {
    Vector v = alloc_vector(static_cast<int>(values.size()));
    int i = 0;
    for (long double x : values) v[i++] = x;
    vectors_.push_back(v);
    return v;
  }

  Vector zeros(int n) {
    Vector v = alloc_clear_vector(n);
    vectors_.push_back(v);
    return v;
  }

 private:
  std::vector<Vector> vectors_;
  std::vector<Matrix> matrices_;
};

#endif
