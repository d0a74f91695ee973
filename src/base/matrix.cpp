// Operations on vectors and matrices: element-wise arithmetic, products,
// projections, diagnostic dumps, and the small-matrix linear algebra (closed
// forms up to size 3, LU and Cholesky beyond).
#include "base/matrix.h"

#include <cmath>
#include <cstdlib>

#include "base/misc.h"

MatrixErrors matrix_err;

namespace {

bool same_shape(long double *const *a, long double *const *b) {
  return matrix_rows(a) == matrix_rows(b) && matrix_cols(a) == matrix_cols(b);
}

bool is_square(long double *const *m) { return matrix_rows(m) == matrix_cols(m); }

int count_flags(const int *flags, int n) {
  int c = 0;
  for (int i = 0; i < n; i++)
    if (flags[i]) c++;
  return c;
}

}  // namespace

long double trace(long double *const *m) {
  if (!is_square(m)) die_dimension("trace");
  long double t = 0.0L;
  for (int i = 0; i < matrix_rows(m); i++) t += m[i][i];
  return t;
}

void set_diag(Matrix m, long double x) {
  int n = matrix_rows(m) < matrix_cols(m) ? matrix_rows(m) : matrix_cols(m);
  for (int i = 0; i < n; i++) m[i][i] = x;
}

void set_diag_matrix(Matrix m, long double x) {
  clear_matrix(m);
  set_diag(m, x);
}

// v' m v from the upper triangle only: the diagonal terms plus twice the
// strictly upper terms.
long double qform(long double *const *m, const long double *v) {
  int n = vector_size(v);
  if (matrix_rows(m) != n || matrix_cols(m) != n) die_dimension("qform");
  long double diag = 0.0L, off = 0.0L;
  for (int i = 0; i < n; i++) diag += m[i][i] * v[i] * v[i];
  for (int i = 0; i < n; i++)
    for (int j = i + 1; j < n; j++) off += m[i][j] * v[i] * v[j];
  return diag + 2.0L * off;
}

void transpose(long double *const *m, Matrix out) {
  int rows = matrix_rows(m), cols = matrix_cols(m);
  if (matrix_rows(out) != cols || matrix_cols(out) != rows) die_dimension("transpose");
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++) out[j][i] = m[i][j];
}

void sum_matrix(Matrix a, long double *const *b, Matrix out) {
  if (out == nullptr) out = a;
  if (!same_shape(a, b) || !same_shape(a, out)) die_dimension("sum_matrix");
  for (int i = 0; i < matrix_rows(a); i++)
    for (int j = 0; j < matrix_cols(a); j++) out[i][j] = a[i][j] + b[i][j];
}

void diff_matrix(Matrix a, long double *const *b, Matrix out) {
  if (out == nullptr) out = a;
  if (!same_shape(a, b) || !same_shape(a, out)) die_dimension("diff_matrix");
  for (int i = 0; i < matrix_rows(a); i++)
    for (int j = 0; j < matrix_cols(a); j++) out[i][j] = a[i][j] - b[i][j];
}

void sum_vector(Vector a, const long double *b, Vector out) {
  if (out == nullptr) out = a;
  int n = vector_size(a);
  if (vector_size(b) != n || vector_size(out) != n) die_dimension("sum_vector");
  for (int i = 0; i < n; i++) out[i] = a[i] + b[i];
}

void diff_vector(Vector a, const long double *b, Vector out) {
  if (out == nullptr) out = a;
  int n = vector_size(a);
  if (vector_size(b) != n || vector_size(out) != n) die_dimension("diff_vector");
  for (int i = 0; i < n; i++) out[i] = a[i] - b[i];
}

long double prod_vector(const long double *a, const long double *b) {
  int n = vector_size(a);
  if (vector_size(b) != n) die_dimension("prod_vector");
  long double s = 0.0L;
  for (int i = 0; i < n; i++) s += a[i] * b[i];
  return s;
}

void mul_const_matrix(Matrix m, long double x) {
  for (int i = 0; i < matrix_rows(m); i++)
    for (int j = 0; j < matrix_cols(m); j++) m[i][j] *= x;
}

void div_const_matrix(Matrix m, long double x) {
  for (int i = 0; i < matrix_rows(m); i++)
    for (int j = 0; j < matrix_cols(m); j++) m[i][j] /= x;
}

void proj_vector(const long double *src, const int *flags, Vector out) {
  int n = vector_size(src);
  if (count_flags(flags, n) != vector_size(out)) die_dimension("proj_vector");
  int k = 0;
  for (int i = 0; i < n; i++)
    if (flags[i]) out[k++] = src[i];
}

void proj_matrix(long double *const *src, const int *row_flags, const int *col_flags,
                 Matrix out) {
  int rows = matrix_rows(src), cols = matrix_cols(src);
  if (count_flags(row_flags, rows) != matrix_rows(out) ||
      count_flags(col_flags, cols) != matrix_cols(out))
    die_dimension("proj_matrix");
  int oi = 0;
  for (int i = 0; i < rows; i++) {
    if (!row_flags[i]) continue;
    int oj = 0;
    for (int j = 0; j < cols; j++)
      if (col_flags[j]) out[oi][oj++] = src[i][j];
    oi++;
  }
}

void set_vprod_matrix(Matrix out, const long double *a, const long double *b) {
  int rows = vector_size(a), cols = vector_size(b);
  if (matrix_rows(out) != rows || matrix_cols(out) != cols) die_dimension("set_vprod_matrix");
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++) out[i][j] = a[i] * b[j];
}

void prod_matrix_vector(long double *const *m, const long double *v, Vector out) {
  int rows = matrix_rows(m), cols = matrix_cols(m);
  if (vector_size(v) != cols || vector_size(out) != rows) die_dimension("prod_matrix_vector");
  clear_vector(out);
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++) out[i] += m[i][j] * v[j];
}

void prod_matrix(long double *const *a, long double *const *b, Matrix out) {
  int rows = matrix_rows(a), inner = matrix_cols(a), cols = matrix_cols(b);
  if (matrix_rows(b) != inner || matrix_rows(out) != rows || matrix_cols(out) != cols)
    die_dimension("prod_matrix");
  clear_matrix(out);
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++)
      for (int k = 0; k < inner; k++) out[i][j] += a[i][k] * b[k][j];
}

void copy_upper_to_lower(Matrix m) {
  if (!is_square(m)) die_dimension("copy_upper_to_lower");
  for (int i = 1; i < matrix_rows(m); i++)
    for (int j = 0; j < i; j++) m[i][j] = m[j][i];
}

// A one-row or one-column matrix into a vector of its length.
void matrix2vector(long double *const *m, Vector v) {
  int rows = matrix_rows(m), cols = matrix_cols(m);
  if ((rows != 1 && cols != 1) || vector_size(v) != rows * cols) die_dimension("matrix2vector");
  int k = 0;
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++) v[k++] = m[i][j];
}

// The vector fills the matrix's element block from its start, row after row.
void vector2matrix(const long double *v, Matrix m) {
  int n = vector_size(v), cols = matrix_cols(m);
  if (n > matrix_rows(m) * cols) die_dimension("vector2matrix");
  for (int k = 0; k < n; k++) m[k / cols][k % cols] = v[k];
}

// Diagnostic dumps: tab-separated elements, rows on their own lines, closed
// by "   ]".
namespace {

void fprint_rows(FILE *fp, long double *const *m, const char *fmt) {
  const char *f = conv_msg(fmt);
  int rows = matrix_rows(m), cols = matrix_cols(m);
  for (int i = 0; i < rows; i++) {
    for (int j = 0; j < cols; j++) fprintf(fp, f, m[i][j]);
    if (i + 1 < rows) fputc('\n', fp);
  }
  fputs("   ]\n", fp);
}

}  // namespace

void fprint_vector(FILE *fp, const long double *v) {
  const char *f = conv_msg("\t%.Nf");
  for (int i = 0; i < vector_size(v); i++) fprintf(fp, f, v[i]);
  fputs("   ]\n", fp);
}

void fprint_matrix(FILE *fp, long double *const *m) { fprint_rows(fp, m, "\t%.Nf"); }
void fprint_matrix_p(FILE *fp, long double *const *m) { fprint_rows(fp, m, "\t%.Ng"); }

// ---- factorisations, determinants and inverses ----

namespace {

const long double TINY = 1e-60;
enum { FIXED_ORDER = 256 };  // orders handled without heap scratch space

// Scratch integers or reals: fixed storage up to FIXED_ORDER, heap beyond.
template <typename T>
struct Scratch {
  T fixed[FIXED_ORDER];
  T *p;
  explicit Scratch(int n)
      : p(n <= FIXED_ORDER ? fixed
                           : static_cast<T *>(xmalloc0(sizeof(T) * n, "matrix.cpp", 1))) {}
  ~Scratch() {
    if (p != fixed) free(p);
  }
};

long double det3(long double *const *m) {
  return (m[0][1] * m[2][0] * m[1][2] + m[1][0] * m[2][1] * m[0][2] + m[2][2] * m[0][0] * m[1][1]) -
         m[1][2] * m[2][1] * m[0][0] - m[0][2] * m[2][0] * m[1][1] - m[2][2] * m[0][1] * m[1][0];
}

long double det_small(long double *const *m, int n) {
  if (n == 1) return m[0][0];
  if (n == 2) return m[0][0] * m[1][1] - m[1][0] * m[0][1];
  return det3(m);
}

// Adjugate divided by the determinant; no singularity test.
long double invert3(long double *const *a, Matrix out) {
  long double det = det3(a);
  out[0][0] = (a[1][1] * a[2][2] - a[1][2] * a[2][1]) / det;
  out[0][1] = (a[0][2] * a[2][1] - a[0][1] * a[2][2]) / det;
  out[0][2] = (a[0][1] * a[1][2] - a[0][2] * a[1][1]) / det;
  out[1][0] = (a[1][2] * a[2][0] - a[1][0] * a[2][2]) / det;
  out[1][1] = (a[0][0] * a[2][2] - a[0][2] * a[2][0]) / det;
  out[1][2] = (a[0][2] * a[1][0] - a[0][0] * a[1][2]) / det;
  out[2][0] = (a[1][0] * a[2][1] - a[1][1] * a[2][0]) / det;
  out[2][1] = (a[0][1] * a[2][0] - a[0][0] * a[2][1]) / det;
  out[2][2] = (a[0][0] * a[1][1] - a[0][1] * a[1][0]) / det;
  return det;
}

// Closed-form inverses for orders 1 to 3 (order 0: determinant 1).
long double invert_small(long double *const *a, Matrix out, int n) {
  if (n == 0) return 1.0L;
  if (n == 1) {
    out[0][0] = 1.0L / a[0][0];
    return a[0][0];
  }
  if (n == 2) {
    long double det = a[0][0] * a[1][1] - a[1][0] * a[0][1];
    out[0][0] = a[1][1] / det;
    out[0][1] = -a[0][1] / det;
    out[1][0] = -a[1][0] / det;
    out[1][1] = a[0][0] / det;
    return det;
  }
  return invert3(a, out);
}

void check_square_pair(long double *const *a, long double *const *b, const char *func) {
  int n = matrix_rows(a);
  if (matrix_cols(a) != n || matrix_rows(b) != n || matrix_cols(b) != n) die_dimension(func);
}

// Largest magnitude of each row; 0 with err_lu set when a row is negligible.
bool lu_scales(long double *const *a, int n, long double *scale, int *perm) {
  for (int i = 0; i < n; i++) {
    long double s = 0.0L;
    for (int j = 0; j < n; j++)
      if (fabsl(a[i][j]) > s) s = fabsl(a[i][j]);
    scale[i] = s;
    if (s < TINY) return false;
    perm[i] = i;
  }
  return true;
}

// Pivot position for column k. The running maximum persists across columns
// and starts at the last row's scale, so well-scaled rows keep their order.
int lu_pivot(long double *const *a, int n, int k, const long double *scale, const int *perm,
             long double *running_max) {
  int p = k;
  for (int r = k; r < n; r++) {
    long double ratio = fabsl(a[perm[r]][k]) / scale[perm[r]];
    if (ratio > *running_max) {
      *running_max = ratio;
      p = r;
    }
  }
  return p;
}

// Row k of U and column k of L (rows stored at their input index).
bool lu_column(long double *const *a, Matrix l, Matrix u, const int *perm, int n, int k) {
  int r = perm[k];
  l[r][k] = 1.0L;
  long double ukk = a[r][k];
  for (int s = 0; s < k; s++) ukk -= u[perm[s]][k] * l[r][s];
  u[r][k] = ukk;
  if (fabsl(ukk) < TINY) return false;
  for (int q = k + 1; q < n; q++) {
    int t = perm[q];
    long double x = a[r][q];
    for (int s = 0; s < k; s++) x -= u[perm[s]][q] * l[r][s];
    u[r][q] = x / l[r][k];
    long double y = a[t][k];
    for (int s = 0; s < k; s++) y -= u[perm[s]][k] * l[t][s];
    l[t][k] = y / u[r][k];
  }
  return true;
}

// The factorisation proper; false on a negligible row or pivot.
bool lu_steps(long double *const *a, Matrix l, Matrix u, int *perm, long double *scale,
              long double *det_out) {
  int n = matrix_rows(a);
  if (!lu_scales(a, n, scale, perm)) return false;
  long double running_max = scale[n - 1], det = 1.0L;
  for (int k = 0; k < n; k++) {
    int p = lu_pivot(a, n, k, scale, perm, &running_max);
    if (p != k) {
      int tmp = perm[p];
      perm[p] = perm[k];
      perm[k] = tmp;
      det = -det;
    }
    if (!lu_column(a, l, u, perm, n, k)) return false;
    det *= u[perm[k]][k];
  }
  *det_out = det;
  return true;
}

// out = U^-1 L^-1 P for P A = L U, both inverses stored in the permuted row
// order of the factors.
void lu_combine(long double *const *uinv, long double *const *linv, const int *perm, int n,
                Matrix out) {
  for (int i = 0; i < n; i++)
    for (int k = 0; k < n; k++) {
      long double s = 0.0L;
      for (int m = 0; m < n; m++) s += uinv[perm[i]][m] * linv[perm[m]][k];
      out[i][perm[k]] = s;
    }
}

}  // namespace

long double lu(long double *const *a, Matrix l, Matrix u, int *perm) {
  check_square_pair(a, l, "lu");
  check_square_pair(a, u, "lu");
  matrix_err.err_lu = 0;
  clear_matrix(l);
  clear_matrix(u);
  int n = matrix_rows(a);
  if (n < 1) return 1.0L;
  Scratch<long double> scale(n);
  long double det = 0.0L;
  if (!lu_steps(a, l, u, perm, scale.p, &det)) {
    matrix_err.err_lu = 1;
    return 0.0L;
  }
  return det;
}

long double cholesky(long double *const *a, Matrix l) {
  check_square_pair(a, l, "cholesky");
  matrix_err.err_cho = 0;
  int n = matrix_rows(a);
  if (n < 1) return 1.0L;
  long double prod = 1.0L;
  for (int k = 0; k < n; k++) {
    long double d = a[k][k];
    for (int s = 0; s < k; s++) d -= l[k][s] * l[k][s];
    if (d < 0.0L) {
      matrix_err.err_cho = 1;
      return 0.0L;
    }
    long double lkk = sqrtl(d);
    l[k][k] = lkk;
    prod *= lkk;
    for (int i = k + 1; i < n; i++) {
      long double x = a[i][k];
      for (int s = 0; s < k; s++) x -= l[i][s] * l[k][s];
      l[i][k] = x / lkk;
    }
  }
  return prod * prod;
}

long double determinant(long double *const *m) {
  int n = matrix_rows(m);
  if (matrix_cols(m) != n) die_dimension("determinant");
  if (n >= 1 && n <= 3) return det_small(m, n);
  matrix_err.err_det = 0;
  Matrix l = alloc_matrix(n, n), u = alloc_matrix(n, n);
  Scratch<int> perm(n);
  long double det = lu(m, l, u, perm.p);
  release_matrix0(u);
  release_matrix0(l);
  if (matrix_err.err_lu) {
    matrix_err.err_det = 1;
    return 0.0L;
  }
  return det;
}

long double determinant_c(long double *const *m) {
  int n = matrix_rows(m);
  if (matrix_cols(m) != n) die_dimension("determinant_c");
  if (n >= 1 && n <= 3) return det_small(m, n);
  matrix_err.err_det = 0;
  matrix_err.err_cho = 0;
  Matrix l = alloc_matrix(n, n);
  long double det = cholesky(m, l);
  release_matrix0(l);
  if (matrix_err.err_cho) {
    matrix_err.err_det = 1;
    return 0.0L;
  }
  return det;
}

long double invert(long double *const *a, Matrix out) {
  check_square_pair(a, out, "invert");
  int n = matrix_rows(a);
  if (n <= 3) return invert_small(a, out, n);
  matrix_err.err_inv = 0;
  Matrix l = alloc_matrix(n, n), u = alloc_matrix(n, n);
  Scratch<int> perm(n);
  long double det = lu(a, l, u, perm.p);
  if (matrix_err.err_lu) {
    matrix_err.err_inv = 1;
    det = 0.0L;
  } else {
    Matrix linv = alloc_matrix(n, n), uinv = alloc_matrix(n, n);
    invert_l_p(l, linv, perm.p);
    invert_u_p(u, uinv, perm.p);
    lu_combine(uinv, linv, perm.p, n, out);
    release_matrix0(uinv);
    release_matrix0(linv);
  }
  release_matrix0(u);
  release_matrix0(l);
  return det;
}

// For symmetric positive-definite a: out = (L^-1)' L^-1 from the Cholesky
// factor L.
long double invert_c(long double *const *a, Matrix out) {
  check_square_pair(a, out, "invert_c");
  int n = matrix_rows(a);
  if (n <= 3) return invert_small(a, out, n);
  matrix_err.err_inv = 0;
  matrix_err.err_cho = 0;
  Matrix l = alloc_matrix(n, n);
  long double det = cholesky(a, l);
  if (matrix_err.err_cho) {
    matrix_err.err_inv = 1;
    release_matrix0(l);
    return 0.0L;
  }
  Matrix linv = alloc_matrix(n, n);
  invert_l(l, linv);
  for (int i = 0; i < n; i++)
    for (int j = 0; j < n; j++) {
      long double s = 0.0L;
      for (int k = i > j ? i : j; k < n; k++) s += linv[k][i] * linv[k][j];
      out[i][j] = s;
    }
  release_matrix0(linv);
  release_matrix0(l);
  return det;
}

// Triangular inverses by substitution: diagonal 1/t_kk, off-diagonal
// -(sum of t times the inverse so far) / t_ii. The _p forms read and write
// row k at index perm[k].
void invert_u(long double *const *t, Matrix out) { invert_u_p(t, out, nullptr); }

void invert_l(long double *const *t, Matrix out) { invert_l_p(t, out, nullptr); }

void invert_u_p(long double *const *t, Matrix out, const int *perm) {
  check_square_pair(t, out, perm ? "invert_u_p" : "invert_u");
  int n = matrix_rows(t);
  clear_matrix(out);
  auto row = [perm](int k) { return perm ? perm[k] : k; };
  for (int k = 0; k < n; k++) {
    out[row(k)][k] = 1.0L / t[row(k)][k];
    for (int i = k - 1; i >= 0; i--) {
      long double s = 0.0L;
      for (int j = i + 1; j <= k; j++) s += t[row(i)][j] * out[row(j)][k];
      out[row(i)][k] = -s / t[row(i)][i];
    }
  }
}

void invert_l_p(long double *const *t, Matrix out, const int *perm) {
  check_square_pair(t, out, perm ? "invert_l_p" : "invert_l");
  int n = matrix_rows(t);
  clear_matrix(out);
  auto row = [perm](int k) { return perm ? perm[k] : k; };
  for (int k = 0; k < n; k++) {
    out[row(k)][k] = 1.0L / t[row(k)][k];
    for (int i = k + 1; i < n; i++) {
      long double s = 0.0L;
      for (int j = k; j < i; j++) s += t[row(i)][j] * out[row(j)][k];
      out[row(i)][k] = -s / t[row(i)][i];
    }
  }
}
