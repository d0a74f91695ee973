// Special functions: digamma and the logarithm of |Gamma|.
#ifndef VESK_BASE_GAMMA_F_H
#define VESK_BASE_GAMMA_F_H

long double digamma(double x);
long double lngamma(double x);

#endif
