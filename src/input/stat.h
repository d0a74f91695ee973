// Sample statistics of the case table: means and covariances of the Gaussian
// groups (with and without extreme values) and per-attribute statistics.
#ifndef VESK_INPUT_STAT_H
#define VESK_INPUT_STAT_H

#include "base/allocate_matrix.h"

struct AttrStat {
  // discrete attributes
  int num_values;
  const char *mode_value;
  int mode_count;
  // continuous attributes
  long double min, mean, median, max, var, std;
  long double pct[7];  // 5, 10, 25, 50, 75, 90, 95 percent
};

struct SampleStats {
  Vector *sample_u_raw;   // [G]
  Matrix *sample_s_raw;   // [G]
  Vector *regular_u;      // [G]
  Matrix *regular_s;      // [G]
  long double **regular_min, **regular_max;  // [G][d_g]
  Vector *sample_u;       // what the priors use: raw or regular
  Matrix *sample_s;
  AttrStat *attr_stat;    // per attribute (column)
};
extern SampleStats stats;

void compute_stats();
void release_stats();

#endif
