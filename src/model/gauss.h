// Multivariate normal log densities (and their exponentials): single
// observations, weighted sufficient statistics, and partly missing vectors.
#ifndef VESK_MODEL_GAUSS_H
#define VESK_MODEL_GAUSS_H

#include "base/allocate_matrix.h"

long double lgauss(const long double *x, const long double *mu, long double *const *s);
long double gauss(const long double *x, const long double *mu, long double *const *s);
long double lgauss_prec(const long double *x, const long double *mu, long double *const *s,
                        long double *const *p, long double det);
long double gauss_prec(const long double *x, const long double *mu, long double *const *s,
                       long double *const *p, long double det);
long double lgauss_mv(const long double *x, const long double *mu, long double *const *s);
long double lgauss_bv(const long double *x, const long double *mu, long double *const *s);
long double lgauss_stat(long double n, const long double *sum, long double *const *q,
                        const long double *mu, long double *const *s);
long double gauss_stat(long double n, const long double *sum, long double *const *q,
                       const long double *mu, long double *const *s);
long double lgauss_stat_prec(long double n, const long double *sum, long double *const *q,
                             const long double *mu, long double *const *s, long double *const *p,
                             long double det);
long double gauss_stat_prec(long double n, const long double *sum, long double *const *q,
                            const long double *mu, long double *const *s, long double *const *p,
                            long double det);
long double lgauss_stat_mv_prec(long double n, const long double *sum, long double *const *q,
                                const long double *mu, long double *const *p, long double det);
long double lgauss_marginal(const long double *x, const long double *mu, long double *const *s,
                            const int *observed);
long double gauss_marginal(const long double *x, const long double *mu, long double *const *s,
                           const int *observed);
long double lgauss_cond(const long double *x, const long double *mu, long double *const *s,
                        const int *observed);
long double gauss_cond(const long double *x, const long double *mu, long double *const *s,
                       const int *observed);

#endif
