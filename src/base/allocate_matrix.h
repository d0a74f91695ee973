// Vector and matrix handles and their two pools. A vector handle points at its
// first element with the length stored in a header just before it; a matrix
// handle points at its row pointers with the shape stored just before them.
// A released block is reused only by a later request of exactly the same shape.
#ifndef VESK_BASE_ALLOCATE_MATRIX_H
#define VESK_BASE_ALLOCATE_MATRIX_H

#include <cstddef>

typedef long double *Vector;
typedef long double **Matrix;

int vector_size(const long double *v);
int matrix_rows(long double *const *m);
int matrix_cols(long double *const *m);

void initialize_vector_pool();
void initialize_matrix_pool();
void release_vector_pool();
void release_matrix_pool();

Vector alloc_vector(int n);
Matrix alloc_matrix(int rows, int cols);
void release_vector0(Vector v);
// Ends the run with the pool's message at once when `count` more vectors of
// n elements cannot be had (free blocks of that length, then fresh ones).
void reserve_vectors(long long count, int n);
void release_matrix0(Matrix m);

void clear_vector(Vector v);
void clear_matrix(Matrix m);
void set_vector(Vector v, long double x);
void set_matrix(Matrix m, long double x);
void copy_vector(Vector dst, const long double *src);
void copy_matrix(Matrix dst, long double *const *src);
Vector alloc_clear_vector(int n);
Matrix alloc_clear_matrix(int rows, int cols);
Matrix dup_matrix(long double *const *m);
Vector alloc_proj_vector(const long double *v, const int *flags);
Vector alloc_proj_vector_n(const long double *v, const int *flags, int n);
Matrix alloc_proj_matrix(long double *const *m, const int *row_flags, const int *col_flags);
Matrix alloc_proj_matrix_n(long double *const *m, const int *row_flags, const int *col_flags,
                           int rows, int cols);

// Vectors living outside the pool (for example in the case table): the bytes
// one needs, and a handle formatted in caller-owned memory of that size.
size_t vector_block_bytes(int n);
Vector make_vector_view(void *mem, int n);

#endif
