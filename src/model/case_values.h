// Small helpers shared by the per-case passes: the model's attribute counts,
// the discrete values present in a case and the density of a case's group.
#ifndef VESK_MODEL_CASE_VALUES_H
#define VESK_MODEL_CASE_VALUES_H

#include "settings/settings.h"
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

// The classes a pass computes: all, or a list given by the caller.
struct ClassList {
  const int *list;  // null: 0 .. n-1
  int n;
  int operator[](int i) const { return list != nullptr ? list[i] : i; }
};

inline ClassList all_classes() { return ClassList{nullptr, model.num_class}; }

// The prepared density of group g of case e under class k, or null when the
// whole group is missing (valid after refresh_derived).
inline const GaussForm *group_form(int k, int g, int e) {
  const DerivedValues &dv = model.derived;
  int m = cases.freq_list[e].num_miss_gauss[g];
  if (m == 0) return &dv.full[static_cast<size_t>(k) * num_groups() + g];
  if (m >= settings.gauss_attr_size[g]) return nullptr;
  return &dv.marginal[g][k * dv.patterns[g].size() + dv.case_pattern[g][e]];
}

#endif
