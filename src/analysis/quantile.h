// Quantiles of a sample, plain or given as distinct values with counts.
#ifndef VESK_ANALYSIS_QUANTILE_H
#define VESK_ANALYSIS_QUANTILE_H

long double get_quantile(long double q, int n, long double *values);
long double get_quantile_count(long double q, int n, const long double *values, const int *counts);

#endif
