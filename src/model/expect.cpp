// E-step, second part: the expected sufficient statistics. Each sum runs over
// the cases in their order; the classes are split over threads, and a class's
// sums are formed in registers over blocks of cases (the discrete counts over
// the list of cases holding each value), which adds the same terms in the
// same order as a case-by-case walk.
#include <cmath>
#include <cstring>
#include <vector>

#include "base/misc.h"
#include "base/parallel.h"
#include "base/scratch.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/case_values.h"
#include "model/em.h"
#include "model/report.h"

namespace {

enum { SUM_CLASS = 1, SUM_NOMINAL = 2, SUM_GAUSS = 4 };
enum { BLOCK = 128 };      // cases per block of the Gaussian sums
enum { CHUNK = 4 };        // accumulators of one row held at once

// ---- imputation -------------------------------------------------------------------

// x with each missing component replaced by its conditional mean.
void impute_mean(const ImputeForm &f, const MissPattern &pat, const long double *mu,
                 const long double *x, long double *xt, int d) {
  memcpy(xt, x, sizeof(long double) * d);  // a byte copy: no slow 80-bit loads and stores
  if (f.scalar) {
    int m = pat.mis[0], o = pat.obs[0];
    xt[m] = mu[m] + (x[o] - mu[o]) * f.s_mo / f.s_oo;
    return;
  }
  int no = static_cast<int>(pat.obs.size());
  for (size_t a = 0; a < pat.mis.size(); a++) {
    const long double *b = &f.gain[a * no];
    long double xm = mu[pat.mis[a]];
    for (int c = 0; c < no; c++) xm += b[c] * (x[pat.obs[c]] - mu[pat.obs[c]]);
    xt[pat.mis[a]] = xm;
  }
}

// What a case adds to the sums of group g under class k: the moments of
// *vec and, when *extra is set, that matrix (the conditional covariance of
// an imputed part, zero elsewhere, or the class covariance of a wholly
// missing group). A partly observed group needs its pattern and imputation;
// xt is room for the imputed vector. False on a singular block.
bool case_terms(int k, int g, const CaseRecord &rec, const MissPattern *pat, const ImputeForm *f,
                long double *xt, const long double **vec, const long double *const **extra) {
  int d = settings.gauss_attr_size[g], m = rec.num_miss_gauss[g];
  *vec = rec.gauss[g];
  *extra = nullptr;
  if (m >= d) {
    *vec = model.param_u[k][g];
    *extra = model.param_s[k][g];
  } else if (m > 0) {
    if (f->singular) return false;
    impute_mean(*f, *pat, model.param_u[k][g], rec.gauss[g], xt, d);
    *vec = xt;
    *extra = f->cov_rows.data();
  }
  return true;
}

// ---- the Gaussian sums of one class over a block of cases ----------------------------

// Row i, columns j0 .. j1-1 of the second moments (and the first moment i
// when j0 = i), held in registers over the block: per case, w x_i x_j and
// then the extra term w e_ij, as a case-by-case walk adds them.
inline __attribute__((always_inline)) void row_chunk(int n, const long double *const *vec,
                                                    const long double *w,
                                                    const long double *const *const *extra, int i,
                                                    int j0, int j1, long double *u,
                                                    long double *const *q) {
  long double acc[CHUNK] = {};
  long double acc_u = u[i];
#pragma GCC unroll 4
  for (int j = j0; j < j1; j++) acc[j - j0] = q[i][j];
  for (int b = 0; b < n; b++) {
    const long double *x = vec[b];
    long double wx = w[b] * x[i];
    if (j0 == i) acc_u += wx;
#pragma GCC unroll 4
    for (int j = j0; j < j1; j++) acc[j - j0] += wx * x[j];
    if (extra[b] != nullptr) {
      const long double *e = extra[b][i];
#pragma GCC unroll 4
      for (int j = j0; j < j1; j++) acc[j - j0] += w[b] * e[j];
    }
  }
  if (j0 == i) u[i] = acc_u;
#pragma GCC unroll 4
  for (int j = j0; j < j1; j++) q[i][j] = acc[j - j0];
}

// The rows i with rows[i] set.
inline __attribute__((always_inline)) void block_core(int n, const long double *const *vec,
                                                     const long double *w,
                                                     const long double *const *const *extra, int d,
                                                     const char *rows, long double *u,
                                                     long double *const *q) {
#pragma GCC unroll 8
  for (int i = 0; i < d; i++) {
    if (!rows[i]) continue;
#pragma GCC unroll 4
    for (int j0 = i; j0 < d; j0 += CHUNK)
      row_chunk(n, vec, w, extra, i, j0, j0 + CHUNK < d ? j0 + CHUNK : d, u, q);
  }
}

template <int D>
void block_fixed(int n, const long double *const *vec, const long double *w,
                 const long double *const *const *extra, const char *rows, long double *u,
                 long double *const *q) {
  block_core(n, vec, w, extra, D, rows, u, q);
}

void block_any(int n, const long double *const *vec, const long double *w,
               const long double *const *const *extra, int d, const char *rows, long double *u,
               long double *const *q) {
  block_core(n, vec, w, extra, d, rows, u, q);
}

void add_block(int n, const long double *const *vec, const long double *w,
               const long double *const *const *extra, int d, const char *rows, long double *u,
               long double *const *q) {
  switch (d) {
    case 1: block_fixed<1>(n, vec, w, extra, rows, u, q); break;
    case 2: block_fixed<2>(n, vec, w, extra, rows, u, q); break;
    case 3: block_fixed<3>(n, vec, w, extra, rows, u, q); break;
    case 4: block_fixed<4>(n, vec, w, extra, rows, u, q); break;
    case 5: block_fixed<5>(n, vec, w, extra, rows, u, q); break;
    case 6: block_fixed<6>(n, vec, w, extra, rows, u, q); break;
    default: block_any(n, vec, w, extra, d, rows, u, q); break;
  }
}

// ---- per-thread work ---------------------------------------------------------------

// The cases holding each discrete value, ascending: flat value i is held by
// cases[start[i] .. start[i+1]).
struct ValueLists {
  ScratchArray<int> start, cases;
};
ValueLists lists;

// For attributes a0 .. a1-1: counts (fill = false) or places (fill = true)
// the cases holding each value. The running counters are kept in `local`,
// so that threads working on other attributes share no cache lines.
void walk_values(int a0, int a1, bool fill, long long *local) {
  const int *off = model.derived.w_offset.data();
  int first = off[a0], last = a1 < num_discrete() ? off[a1] : model.derived.num_values;
  for (int i = first; i < last; i++) local[i - first] = fill ? lists.start[i] : 0;
  for (int e = 0; e < cases.num_entry; e++) {
    const CaseRecord &rec = cases.freq_list[e];
    bool all = all_discrete_present(rec);
    for (int a = a0; a < a1; a++) {
      if (!all && rec.miss_w[a]) continue;
      long long &slot = local[off[a] + rec.word[a] - first];
      if (fill) lists.cases[slot] = e;
      slot++;
    }
  }
  if (!fill)
    for (int i = first; i < last; i++) lists.start[i + 1] = static_cast<int>(local[i - first]);
}

void build_value_lists() {
  int na = num_discrete(), nv = model.derived.num_values;
  double work = static_cast<double>(cases.num_entry) * na;
  lists.start.resize(nv + 1, "expect.cpp", 1);
  static ScratchArray<long long> counters;  // per thread: one per value
  size_t share = per_thread_count<long long>(nv + 1);
  counters.resize(share * max_threads(), "expect.cpp", 2);
  auto walk = [&](bool fill) {
    parallel_ranges(na, work, [&](int a0, int a1) { walk_values(a0, a1, fill, &counters[share * thread_index()]); });
  };
  lists.start[0] = 0;
  walk(false);
  for (int i = 0; i < nv; i++) lists.start[i + 1] += lists.start[i];
  lists.cases.resize(lists.start[nv], "expect.cpp", 3);
  walk(true);
}

// One piece of the sums: the class and discrete sums of a class (group -1),
// or a share of the rows of one group's moments of a class.
struct SumItem {
  int k, g;
  int order;               // the class's place in the pass (the order of failures)
  std::vector<char> rows;  // per row of the group: 1 when it is this item's
};
std::vector<SumItem> items;

// Splits each group's rows into `parts` shares of about equal work (row i
// holds d - i + 1 sums): rows go to the shares back and forth.
void make_items(int what, int parts, const ClassList &classes) {
  items.clear();
  for (int c = 0; c < classes.n; c++) {
    int k = classes[c];
    if (what & (SUM_CLASS | SUM_NOMINAL)) items.push_back({k, -1, c, {}});
    if (!(what & SUM_GAUSS)) continue;
    for (int g = 0; g < num_groups(); g++) {
      int d = settings.gauss_attr_size[g], np = parts < d ? parts : d;
      for (int p = 0; p < np; p++) {
        SumItem it = {k, g, c, std::vector<char>(d, 0)};
        for (int i = 0; i < d; i++) {
          int r = i % (2 * np);
          it.rows[i] = (r < np ? r : 2 * np - 1 - r) == p;
        }
        items.push_back(it);
      }
    }
  }
}

// Room of one thread: the weights of a class over all cases, and the block
// arrays of the Gaussian sums with room for the imputed vectors.
struct ThreadScratch {
  long double *w, *xt;
  const long double *vec[BLOCK];
  const long double *const *extra[BLOCK];
};

// The weight sums over the case lists of four values at once: four
// independent chains of additions, each in its case order.
void sum_lists4(const long double *w, const int *const *list, const int *len, long double *out) {
  long double a0 = 0, a1 = 0, a2 = 0, a3 = 0;
  int common = len[0];
  for (int j = 1; j < 4; j++) common = len[j] < common ? len[j] : common;
  for (int p = 0; p < common; p++) {
    a0 += w[list[0][p]];
    a1 += w[list[1][p]];
    a2 += w[list[2][p]];
    a3 += w[list[3][p]];
  }
  out[0] = a0;
  out[1] = a1;
  out[2] = a2;
  out[3] = a3;
  for (int j = 0; j < 4; j++) {
    long double a = out[j];
    for (int p = common; p < len[j]; p++) a += w[list[j][p]];
    out[j] = a;
  }
}

void sum_nominal(int k, const long double *w) {
  const int *start = lists.start.data, *all = lists.cases.data;
  for (int a = 0; a < num_discrete(); a++) {
    int first = model.derived.w_offset[a], nv = cases.num_word[a];
    for (int v0 = 0; v0 < nv; v0 += 4) {
      const int *list[4];
      int len[4];
      long double out[4];
      for (int j = 0; j < 4; j++) {
        int i = first + (v0 + j < nv ? v0 + j : v0);  // past the end: a repeat, not stored
        list[j] = all + start[i];
        len[j] = start[i + 1] - start[i];
      }
      sum_lists4(w, list, len, out);
      for (int j = 0; j < 4 && v0 + j < nv; j++) model.expect_w[k][a][v0 + j] = out[j];
    }
  }
}

void sum_class(int k, int what, ThreadScratch *t) {
  long double c = 0;
  for (int e = 0; e < cases.num_entry; e++) {
    t->w[e] = model.prob_cond[k][e] * cases.freq_list[e].count;
    c += t->w[e];
  }
  if (what & SUM_CLASS) model.expect_c[k] = c;
  if (what & SUM_NOMINAL) sum_nominal(k, t->w);
}

// The rows of one item over all cases; false (with the case) when an
// imputation met a singular block.
bool sum_rows(const SumItem &it, ThreadScratch *t, int *bad_case) {
  const DerivedValues &dv = model.derived;
  int k = it.k, g = it.g, d = settings.gauss_attr_size[g], ne = cases.num_entry;
  long double *u = model.expect_u[k][g];
  long double *const *q = model.expect_s[k][g];
  for (int i = 0; i < d; i++) {
    if (!it.rows[i]) continue;
    u[i] = 0;
    for (int j = 0; j < d; j++) q[i][j] = 0;
  }
  for (int e0 = 0; e0 < ne; e0 += BLOCK) {
    int n = ne - e0 < BLOCK ? ne - e0 : BLOCK;
    for (int b = 0; b < n; b++) {
      int e = e0 + b, p = dv.case_pattern[g][e];
      const CaseRecord &rec = cases.freq_list[e];
      const MissPattern *pat = p >= 0 ? &dv.patterns[g][p] : nullptr;
      const ImputeForm *f = p >= 0 ? &dv.impute[g][k * dv.patterns[g].size() + p] : nullptr;
      t->w[b] = model.prob_cond[k][e] * rec.count;
      if (case_terms(k, g, rec, pat, f, t->xt + static_cast<size_t>(b) * d, &t->vec[b], &t->extra[b]))
        continue;
      *bad_case = e;
      return false;
    }
    add_block(n, t->vec, t->w, t->extra, d, it.rows.data(), u, q);
  }
  return true;
}

int max_group_size() {
  int d = 0;
  for (int g = 0; g < num_groups(); g++)
    if (settings.gauss_attr_size[g] > d) d = settings.gauss_attr_size[g];
  return d;
}

void sum_classes(int what, const ClassList &classes) {
  refresh_derived();
  if (what & SUM_NOMINAL) build_value_lists();
  int nk = classes.n, ne = cases.num_entry, threads = max_threads();
  // Enough pieces for the threads to share the work evenly.
  int groups = nk * (num_groups() > 0 ? num_groups() : 1);
  make_items(what, threads < 2 ? 1 : (4 * threads + groups - 1) / groups, classes);
  // Per thread: the weights of a class, then room for a block of imputed vectors.
  size_t per_thread = per_thread_count<long double>((ne > BLOCK ? ne : BLOCK) + static_cast<size_t>(BLOCK) * max_group_size());
  static ScratchArray<long double> room;
  room.resize(per_thread * threads, "expect.cpp", 4);
  FirstFault fault;
  double work = static_cast<double>(ne) * nk * (2 + num_discrete() + 16 * num_groups());
  parallel_ranges(static_cast<int>(items.size()), work, [&](int begin, int end) {
    ThreadScratch t;
    t.w = &room[per_thread * thread_index()];
    t.xt = t.w + (ne > BLOCK ? ne : BLOCK);
    for (int i = begin; i < end; i++) {
      int bad = 0;
      if (items[i].g < 0) sum_class(items[i].k, what, &t);
      else if (!sum_rows(items[i], &t, &bad)) fault.note(static_cast<long long>(items[i].order) * ne + bad, 1);
    }
  });
  if (fault.any()) die_numeric("compute_expect_gauss0", "Failed to invert covariances\n");
}

}  // namespace

// Adds case e's Gaussian moments to the sums of class k, working out the
// imputation of its missing components on the spot.
void compute_expect_gauss0(int k, int e) {
  const CaseRecord &rec = cases.freq_list[e];
  long double w = model.prob_cond[k][e] * rec.count;
  thread_local MissPattern pat;
  thread_local ImputeForm f;
  thread_local std::vector<long double> xt;
  for (int g = 0; g < settings.gauss_size; g++) {
    int d = settings.gauss_attr_size[g], m = rec.num_miss_gauss[g];
    if (m > 0 && m < d) {
      make_pattern(&pat, rec.miss_g[g], d);
      prepare_impute(&f, k, g, pat);
    }
    xt.resize(d);
    const long double *vec;
    const long double *const *extra;
    if (!case_terms(k, g, rec, &pat, &f, xt.data(), &vec, &extra))
      die_numeric("compute_expect_gauss0", "Failed to invert covariances\n");
    std::vector<char> all(d, 1);
    add_block(1, &vec, &w, &extra, d, all.data(), model.expect_u[k][g], model.expect_s[k][g]);
  }
}

void compute_expect_gauss() { sum_classes(SUM_GAUSS, all_classes()); }

namespace {

int all_sums() {
  int what = SUM_CLASS;
  if (settings.mode_nominal) what |= SUM_NOMINAL;
  if (settings.mode_gauss) what |= SUM_GAUSS;
  return what;
}

}  // namespace

void compute_expect() {
  sum_classes(all_sums(), all_classes());
  if (settings.mode_verbose) model_report.expectation(settings.fp_log);
}

void compute_expect_classes(const int *classes, int n) { sum_classes(all_sums(), ClassList{classes, n}); }
