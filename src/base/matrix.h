// Operations on vectors and matrices, and the small-matrix linear algebra
// (closed forms up to size 3, LU and Cholesky beyond).
#ifndef VESK_BASE_MATRIX_H
#define VESK_BASE_MATRIX_H

#include <cstdio>

#include "base/allocate_matrix.h"

// Error flags of the factorisations (0 = success).
struct MatrixErrors {
  int err_lu, err_cho, err_det, err_inv;
};
extern MatrixErrors matrix_err;

long double trace(long double *const *m);
void set_diag(Matrix m, long double x);
void set_diag_matrix(Matrix m, long double x);
long double qform(long double *const *m, const long double *v);
void transpose(long double *const *m, Matrix out);
void sum_matrix(Matrix a, long double *const *b, Matrix out = nullptr);
void diff_matrix(Matrix a, long double *const *b, Matrix out = nullptr);
void sum_vector(Vector a, const long double *b, Vector out = nullptr);
void diff_vector(Vector a, const long double *b, Vector out = nullptr);
long double prod_vector(const long double *a, const long double *b);
void mul_const_matrix(Matrix m, long double x);
void div_const_matrix(Matrix m, long double x);
void proj_vector(const long double *src, const int *flags, Vector out);
void proj_matrix(long double *const *src, const int *row_flags, const int *col_flags, Matrix out);
void set_vprod_matrix(Matrix out, const long double *a, const long double *b);
void prod_matrix_vector(long double *const *m, const long double *v, Vector out);
void prod_matrix(long double *const *a, long double *const *b, Matrix out);
void copy_upper_to_lower(Matrix m);
void matrix2vector(long double *const *m, Vector v);
void vector2matrix(const long double *v, Matrix m);

void fprint_vector(FILE *fp, const long double *v);
void fprint_matrix(FILE *fp, long double *const *m);
void fprint_matrix_p(FILE *fp, long double *const *m);

long double lu(long double *const *a, Matrix l, Matrix u, int *perm);
long double determinant(long double *const *m);
long double determinant_c(long double *const *m);
long double cholesky(long double *const *a, Matrix l);
long double invert(long double *const *a, Matrix out);
long double invert_c(long double *const *a, Matrix out);
void invert_u(long double *const *t, Matrix out);
void invert_l(long double *const *t, Matrix out);
void invert_u_p(long double *const *t, Matrix out, const int *perm);
void invert_l_p(long double *const *t, Matrix out, const int *perm);

#endif
