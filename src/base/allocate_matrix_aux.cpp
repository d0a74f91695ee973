// Allocation helpers built on the pools, and the whole-handle fills and copies.
#include "base/allocate_matrix_aux.h"

#include <cstring>

#include "base/matrix.h"
#include "base/misc.h"

namespace {

int count_flags(const int *flags, int n) {
  int c = 0;
  for (int i = 0; i < n; i++)
    if (flags[i]) c++;
  return c;
}

}  // namespace

void clear_vector(Vector v) { set_vector(v, 0.0L); }

void clear_matrix(Matrix m) { set_matrix(m, 0.0L); }

void set_vector(Vector v, long double x) {
  int n = vector_size(v);
  for (int i = 0; i < n; i++) v[i] = x;
}

void set_matrix(Matrix m, long double x) {
  int rows = matrix_rows(m), cols = matrix_cols(m);
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++) m[i][j] = x;
}

void copy_vector(Vector dst, const long double *src) {
  int n = vector_size(dst);
  if (n > 0 && dst != src) memmove(dst, src, sizeof(long double) * n);
}

void copy_matrix(Matrix dst, long double *const *src) {
  int rows = matrix_rows(dst), cols = matrix_cols(dst);
  if (cols == 0 || dst == src) return;
  for (int i = 0; i < rows; i++) memmove(dst[i], src[i], sizeof(long double) * cols);
}

Vector alloc_clear_vector(int n) {
  Vector v = alloc_vector(n);
  clear_vector(v);
  return v;
}

Matrix alloc_clear_matrix(int rows, int cols) {
  Matrix m = alloc_matrix(rows, cols);
  clear_matrix(m);
  return m;
}

Matrix dup_matrix(long double *const *m) {
  Matrix d = alloc_matrix(matrix_rows(m), matrix_cols(m));
  copy_matrix(d, m);
  return d;
}

Vector alloc_proj_vector(const long double *v, const int *flags) {
  return alloc_proj_vector_n(v, flags, count_flags(flags, vector_size(v)));
}

Vector alloc_proj_vector_n(const long double *v, const int *flags, int n) {
  Vector out = alloc_vector(n);
  proj_vector(v, flags, out);
  return out;
}

Matrix alloc_proj_matrix(long double *const *m, const int *row_flags, const int *col_flags) {
  return alloc_proj_matrix_n(m, row_flags, col_flags, count_flags(row_flags, matrix_rows(m)),
                             count_flags(col_flags, matrix_cols(m)));
}

Matrix alloc_proj_matrix_n(long double *const *m, const int *row_flags, const int *col_flags,
                           int rows, int cols) {
  Matrix out = alloc_matrix(rows, cols);
  proj_matrix(m, row_flags, col_flags, out);
  return out;
}
