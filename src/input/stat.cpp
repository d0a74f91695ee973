// Sample statistics of the case table, weighted by the count of each record:
// means and covariances of every Gaussian group (all observed values, and
// without extreme values), and per-attribute descriptive statistics.
#include "input/stat.h"

#include <cmath>
#include <cstdlib>

#include "input/quantile.h"
#include "base/guards.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"

SampleStats stats;

namespace {

const char *const MODULE = "stat.cpp";
const long double PCT_Q[7] = {0.05L, 0.1L, 0.25L, 0.5L, 0.75L, 0.9L, 0.95L};

// Observed values of one member of a group, sorted, with the running sums
// of their counts.
struct Column {
  long double *sorted;
  long long *cum;
  int n;
};

Column collect_column(int g, int k) {
  int e_max = cases.num_entry > 0 ? cases.num_entry : 1;
  long double *vals = static_cast<long double *>(xmalloc0(sizeof(long double) * e_max, MODULE, 1));
  int *counts = static_cast<int *>(xmalloc0(sizeof(int) * e_max, MODULE, 2));
  int n = 0;
  for (int e = 0; e < cases.num_entry; e++) {
    const CaseRecord &r = cases.freq_list[e];
    if (r.miss_g[g][k]) continue;
    vals[n] = r.gauss[g][k];
    counts[n] = r.count;
    n++;
  }
  Column c;
  c.n = n;
  c.sorted = static_cast<long double *>(xmalloc0(sizeof(long double) * e_max, MODULE, 12));
  c.cum = static_cast<long long *>(xmalloc0(sizeof(long long) * e_max, MODULE, 13));
  sort_with_counts(n, vals, counts, c.sorted, c.cum);
  free(vals);
  free(counts);
  return c;
}

// A quantile of the column; -1 when it has no observed value.
long double column_quantile(const Column &c, long double q) {
  return c.n > 0 ? get_quantile_cum(q, c.n, c.sorted, c.cum) : -1;
}

void free_column(Column *c) {
  free(c->sorted);
  free(c->cum);
}

// Whether member k of group g counts as observed in record e. With bounds,
// values outside [lo, hi] are treated as missing.
bool observed(const CaseRecord &r, int g, int k, const long double *lo, const long double *hi) {
  if (r.miss_g[g][k]) return false;
  if (lo == nullptr) return true;
  long double x = r.gauss[g][k];
  return x >= lo[k] && x <= hi[k];
}

// A ratio whose divisor can vanish (no observed value, or a single case).
long double safe_div(long double sum, long double div) { return div > 0 ? sum / div : 0.0L; }

// Mean vector and covariance matrix of group g over the observed values.
// Cases where exactly one of a pair is unobserved are left out of the sum
// but not out of the divisor.
void group_moments(int g, const long double *lo, const long double *hi, Vector u, Matrix s) {
  int d = settings.gauss_attr_size[g];
  long double n_total = cases.total_freq;
  for (int i = 0; i < d; i++) {
    long double sum = 0, missing = 0;
    for (int e = 0; e < cases.num_entry; e++) {
      const CaseRecord &r = cases.freq_list[e];
      if (observed(r, g, i, lo, hi)) sum += r.count * r.gauss[g][i];
      else missing += r.count;
    }
    u[i] = safe_div(sum, n_total - missing);
  }
  for (int i = 0; i < d; i++) {
    for (int j = i; j < d; j++) {
      long double sum = 0, both_missing = 0;
      for (int e = 0; e < cases.num_entry; e++) {
        const CaseRecord &r = cases.freq_list[e];
        bool oi = observed(r, g, i, lo, hi), oj = observed(r, g, j, lo, hi);
        if (oi && oj) sum += r.count * (r.gauss[g][i] - u[i]) * (r.gauss[g][j] - u[j]);
        else if (!oi && !oj) both_missing += r.count;
      }
      s[i][j] = s[j][i] = safe_div(sum, n_total - both_missing - 1);
    }
  }
}

void check_singular(Matrix s) {
  if (fabsl(determinant(s)) < kSingularDet)
    die("Sample covariance matrix is singular; please specify a diagonal covariance matrix by '%s const:Var'",
        "--smooth-var (-L)");
}

void alloc_group_arrays() {
  int gs = settings.gauss_size > 0 ? settings.gauss_size : 1;
  stats.sample_u_raw = static_cast<Vector *>(xmalloc0(sizeof(Vector) * gs, MODULE, 3));
  stats.sample_s_raw = static_cast<Matrix *>(xmalloc0(sizeof(Matrix) * gs, MODULE, 4));
  stats.regular_u = static_cast<Vector *>(xmalloc0(sizeof(Vector) * gs, MODULE, 5));
  stats.regular_s = static_cast<Matrix *>(xmalloc0(sizeof(Matrix) * gs, MODULE, 6));
  stats.regular_min = static_cast<long double **>(xmalloc0(sizeof(long double *) * gs, MODULE, 7));
  stats.regular_max = static_cast<long double **>(xmalloc0(sizeof(long double *) * gs, MODULE, 8));
  for (int g = 0; g < settings.gauss_size; g++) {
    int d = settings.gauss_attr_size[g];
    stats.sample_u_raw[g] = alloc_clear_vector(d);
    stats.sample_s_raw[g] = alloc_clear_matrix(d, d);
    stats.regular_u[g] = alloc_clear_vector(d);
    stats.regular_s[g] = alloc_clear_matrix(d, d);
    stats.regular_min[g] = static_cast<long double *>(xmalloc0(sizeof(long double) * d, MODULE, 9));
    stats.regular_max[g] = static_cast<long double *>(xmalloc0(sizeof(long double) * d, MODULE, 10));
  }
}

void compute_sample_stats() {
  for (int g = 0; g < settings.gauss_size; g++) {
    group_moments(g, nullptr, nullptr, stats.sample_u_raw[g], stats.sample_s_raw[g]);
    if (settings.mode_smooth_gauss && settings.mode_smooth_s != 2) check_singular(stats.sample_s_raw[g]);
  }
}

// Minimum, maximum and percentiles of an attribute, from its sorted column.
void order_stats(AttrStat *st, const Column &c) {
  st->min = c.n > 0 ? c.sorted[0] : -1;
  st->max = c.n > 0 ? c.sorted[c.n - 1] : -1;
  for (int p = 0; p < 7; p++) st->pct[p] = column_quantile(c, PCT_Q[p]);
  st->median = st->pct[3];
}

// Bounds of the non-extreme values (an attribute with no observed value gets
// the sentinel -1 and excludes nothing more) and, from the same sorted
// column, the order statistics of the attribute.
void compute_regular_stats() {
  for (int g = 0; g < settings.gauss_size; g++) {
    for (int k = 0; k < settings.gauss_attr_size[g]; k++) {
      Column c = collect_column(g, k);
      stats.regular_min[g][k] = column_quantile(c, settings.q_regular_min);
      stats.regular_max[g][k] = column_quantile(c, settings.q_regular_max);
      order_stats(&stats.attr_stat[settings.gauss_attr[g][k]], c);
      free_column(&c);
    }
    group_moments(g, stats.regular_min[g], stats.regular_max[g], stats.regular_u[g], stats.regular_s[g]);
    if (settings.mode_smooth_gauss && settings.mode_smooth_s == 1) check_singular(stats.regular_s[g]);
  }
}

void discrete_attr_stat(AttrStat *st, int a) {
  st->num_values = cases.num_word[a];
  get_mode_key(&cases.ht[a], &st->mode_value, &st->mode_count);
}

void continuous_attr_stat(AttrStat *st, int g, int k) {
  st->mean = stats.sample_u_raw[g][k];
  st->var = stats.sample_s_raw[g][k][k];
  st->std = sqrtl(st->var);
}

// Mean, variance and mode of each model attribute (order statistics are
// filled with the regular statistics).
void compute_attr_stats() {
  for (int a = 0; a < settings.tuple_size; a++) {
    if (!is_model_attr(a)) continue;
    const AttrInfo &info = settings.attr_info[a];
    if (info.cont) continuous_attr_stat(&stats.attr_stat[a], info.group, info.index);
    else discrete_attr_stat(&stats.attr_stat[a], info.index);
  }
}

}  // namespace

void compute_stats() {
  int n = settings.tuple_size > 0 ? settings.tuple_size : 1;
  stats.attr_stat = static_cast<AttrStat *>(calloc_str0(sizeof(AttrStat) * n, MODULE, 11));
  alloc_group_arrays();
  compute_sample_stats();
  compute_regular_stats();
  stats.sample_u = settings.mode_regular_stat ? stats.regular_u : stats.sample_u_raw;
  stats.sample_s = settings.mode_regular_stat ? stats.regular_s : stats.sample_s_raw;
  compute_attr_stats();
}

void release_stats() {
  for (int g = 0; g < settings.gauss_size; g++) {
    release_vector0(stats.sample_u_raw[g]);
    release_matrix0(stats.sample_s_raw[g]);
    release_vector0(stats.regular_u[g]);
    release_matrix0(stats.regular_s[g]);
    free(stats.regular_min[g]);
    free(stats.regular_max[g]);
  }
  free(stats.sample_u_raw);
  free(stats.sample_s_raw);
  free(stats.regular_u);
  free(stats.regular_s);
  free(stats.regular_min);
  free(stats.regular_max);
  free(stats.attr_stat);
  stats = SampleStats();
}
