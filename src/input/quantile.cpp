// Quantiles with linear interpolation between neighbouring order statistics.
#include "input/quantile.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "base/misc.h"

namespace {

const char *const MODULE = "quantile.cpp";
const long double EXACT_TOL = 1e-6L;

[[noreturn]] void too_small(int n, long double q) {
  die(conv_msg("Too small data (size = %d) for computing %.Nf-quantile\n"), n, q);
}

// Value at 1-based position `pos` of the sample in which each sorted value
// is repeated by its count (`cum` holds the running sums of the counts).
long double value_at(long long pos, int n, const long double *sorted, const long long *cum) {
  int k = static_cast<int>(std::lower_bound(cum, cum + n, pos) - cum);
  return sorted[k < n ? k : n - 1];
}

}  // namespace

void sort_with_counts(int n, const long double *values, const int *counts, long double *sorted, long long *cum) {
  struct Pair {
    long double value;
    int count;
  };
  Pair *pairs = static_cast<Pair *>(xmalloc0(sizeof(Pair) * (n > 0 ? n : 1), MODULE, 3));
  for (int k = 0; k < n; k++) pairs[k] = Pair{values[k], counts[k]};
  std::stable_sort(pairs, pairs + n, [](const Pair &a, const Pair &b) { return a.value < b.value; });
  long long total = 0;
  for (int k = 0; k < n; k++) {
    sorted[k] = pairs[k].value;
    cum[k] = total += pairs[k].count;
  }
  free(pairs);
}

long double get_quantile(long double q, int n, long double *values) {
  std::stable_sort(values, values + (n > 0 ? n : 0));
  long double h = q * (n - 1);
  if (h < 0 || n < 1) too_small(n, q);
  int i = static_cast<int>(h);
  if (i > n - 1) i = n - 1;
  if (fabsl(h - i) >= EXACT_TOL && i + 1 < n)
    return values[i + 1] * (h - i) + values[i] * ((i + 1) - h);
  return values[i];
}

long double get_quantile_cum(long double q, int n, const long double *sorted, const long long *cum) {
  long long total = n > 0 ? cum[n - 1] : 0;
  long double h = (1 - q) + q * total;
  if (n < 1 || h < 1) too_small(n, q);
  long long i = static_cast<long long>(h);
  long double lo = value_at(i, n, sorted, cum);
  if (fabsl(h - i) < EXACT_TOL || i + 1 > total) return lo;
  long double hi = value_at(i + 1, n, sorted, cum);
  return hi * (h - i) + lo * ((i + 1) - h);
}

long double get_quantile_count(long double q, int n, const long double *values, const int *counts) {
  if (n < 1) too_small(n, q);
  long double *sorted = static_cast<long double *>(xmalloc0(sizeof(long double) * n, MODULE, 1));
  long long *cum = static_cast<long long *>(xmalloc0(sizeof(long long) * n, MODULE, 2));
  sort_with_counts(n, values, counts, sorted, cum);
  long double result = get_quantile_cum(q, n, sorted, cum);
  free(sorted);
  free(cum);
  return result;
}
