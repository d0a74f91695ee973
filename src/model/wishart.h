// Wishart log densities used by the Normal-Wishart prior.
#ifndef VESK_MODEL_WISHART_H
#define VESK_MODEL_WISHART_H

#include "base/allocate_matrix.h"

long double lwishart_coeff(int d, long double nu);
long double lwishart_det(long double *const *x, long double *const *s, long double *const *s_inv,
                         long double det_x, long double det_s, long double nu);
long double wishart_det(long double *const *x, long double *const *s, long double *const *s_inv,
                        long double det_x, long double det_s, long double nu);
long double lwishart(long double *const *x, long double *const *s, long double nu);
long double wishart(long double *const *x, long double *const *s, long double nu);

#endif
