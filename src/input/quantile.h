// Quantiles of a sample, plain or given as distinct values with counts.
#ifndef VESK_INPUT_QUANTILE_H
#define VESK_INPUT_QUANTILE_H

long double get_quantile(long double q, int n, long double *values);
long double get_quantile_count(long double q, int n, const long double *values, const int *counts);
// The two steps of get_quantile_count, for taking several quantiles of one
// sample: sort the values (with their counts turned into running sums), then
// read a quantile off the sorted arrays.
void sort_with_counts(int n, const long double *values, const int *counts, long double *sorted, long long *cum);
long double get_quantile_cum(long double q, int n, const long double *sorted, const long long *cum);

#endif
