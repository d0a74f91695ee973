// Small helpers shared by the E-step passes: the model's attribute counts and
// the discrete values present in a case.
#ifndef VESK_MODEL_CASE_VALUES_H
#define VESK_MODEL_CASE_VALUES_H

#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"

inline int num_discrete() { return settings.mode_nominal ? settings.tuple_size_d : 0; }
inline int num_groups() { return settings.mode_gauss ? settings.gauss_size : 0; }

inline bool all_discrete_present(const CaseRecord &rec) {
  return cases.total_num_miss_w == 0 || rec.num_miss == 0;
}

// Flat value indices (into the derived value tables) of the discrete values
// present in a case, in attribute order; returns their number.
inline int present_values(const CaseRecord &rec, int *idx) {
  const int *off = model.derived.w_offset.data();
  bool all = all_discrete_present(rec);
  int n = 0;
  for (int a = 0; a < num_discrete(); a++)
    if (all || !rec.miss_w[a]) idx[n++] = off[a] + rec.word[a];
  return n;
}

#endif
