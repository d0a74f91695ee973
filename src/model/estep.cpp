// E-step: complete-data, incomplete-data and conditional probabilities of
// every distinct case, and the expected sufficient statistics. The passes
// read the derived values of the parameters (refresh_derived) and split their
// work over threads: the probabilities by cases, the sums by classes, so that
// every sum keeps its sequential order and the results do not depend on the
// number of threads.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/matrix.h"
#include "base/misc.h"
#include "base/parallel.h"
#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/gauss.h"
#include "output/print.h"

namespace {

const long double kMinProb = 1e-60L;
enum { FAULT_IMPUTE = 100 };  // a singular observed block met while imputing
enum { STACK_DIM = 32 };      // group sizes imputed without heap scratch

bool all_discrete_present(const CaseRecord &rec) {
  return cases.total_num_miss_w == 0 || rec.num_miss == 0;
}

int num_a() { return settings.mode_nominal ? settings.tuple_size_d : 0; }
int num_g() { return settings.mode_gauss ? settings.gauss_size : 0; }

// Flat value indices (into the derived value tables) of the discrete values
// present in a case, in attribute order; returns their number.
int present_values(const CaseRecord &rec, int *idx) {
  const int *off = model.derived.w_offset.data();
  bool all = all_discrete_present(rec);
  int n = 0;
  for (int a = 0; a < num_a(); a++)
    if (all || !rec.miss_w[a]) idx[n++] = off[a] + rec.word[a];
  return n;
}

// The prepared density of group g of case e under class k, or null when the
// whole group is missing.
const GaussForm *group_form(int k, int g, int e) {
  const DerivedValues &dv = model.derived;
  const CaseRecord &rec = cases.freq_list[e];
  int m = rec.num_miss_gauss[g];
  if (m == 0) return &dv.full[static_cast<size_t>(k) * num_g() + g];
  if (m >= settings.gauss_attr_size[g]) return nullptr;
  return &dv.marginal[g][k * dv.patterns[g].size() + dv.case_pattern[g][e]];
}

// ---- complete-data probabilities ----------------------------------------------

// The class factor and the factor of every discrete value for one pass: a
// logarithm (times beta) or a probability (raised to beta when tempered).
struct PassTerms {
  bool log, tempered;
  long double beta;
  std::vector<long double> c, w;  // [K], [K][values]
};
PassTerms terms;

void prepare_terms(bool log, bool tempered, long double beta) {
  const DerivedValues &dv = model.derived;
  int nk = settings.num_class, nv = dv.num_values;
  terms.log = log;
  terms.tempered = tempered;
  terms.beta = beta;
  terms.c.resize(nk);
  terms.w.resize(static_cast<size_t>(nk) * nv);
  for (int k = 0; k < nk; k++) {
    long double c = model.param_c[k];
    terms.c[k] = log ? beta * dv.log_c[k] : tempered ? powl(c, beta) : c;
    for (int a = 0; a < num_a(); a++)
      for (int v = 0; v < cases.num_word[a]; v++) {
        size_t i = static_cast<size_t>(k) * nv + dv.w_offset[a] + v;
        long double w = model.param_w[k][a][v];
        terms.w[i] = log ? beta * dv.log_w[i] : tempered ? powl(w, beta) : w;
      }
  }
}

// P(k, x_e) (its logarithm when LOG) for every class k of case e.
template <bool LOG>
void complete_case(int e, int *idx, FirstFault *fault) {
  const CaseRecord &rec = cases.freq_list[e];
  int nk = settings.num_class, nv = model.derived.num_values;
  int n = present_values(rec, idx);
  for (int k = 0; k < nk; k++) {
    long double p = terms.c[k];
    const long double *w = terms.w.data() + static_cast<size_t>(k) * nv;
    for (int i = 0; i < n; i++) {
      if (LOG) p += w[idx[i]];
      else p *= w[idx[i]];
    }
    for (int g = 0; g < num_g(); g++) {
      const GaussForm *f = group_form(k, g, e);
      if (f == nullptr) continue;
      long double lg = 0.0L;
      int bad = lgauss_form_checked(*f, rec.gauss[g], &lg);
      if (bad != GAUSS_OK) {
        fault->note(static_cast<long long>(k) * cases.num_entry + e, bad);
        break;
      }
      if (LOG) {
        p += terms.beta * lg;
      } else {
        long double q = expl(lg);
        p *= terms.tempered ? powl(q, terms.beta) : q;
      }
    }
    model.prob_comp[k][e] = p;
  }
}

void fill_complete(bool log, bool tempered, long double beta) {
  refresh_derived();
  prepare_terms(log, tempered, beta);
  int ne = cases.num_entry, nk = settings.num_class;
  FirstFault fault;
  double work = static_cast<double>(ne) * nk * (4 + num_a() + 16 * num_g());
  parallel_ranges(ne, work, [&](int begin, int end) {
    std::vector<int> idx(num_a() + 1);
    for (int e = begin; e < end; e++) {
      if (log) complete_case<true>(e, idx.data(), &fault);
      else complete_case<false>(e, idx.data(), &fault);
    }
  });
  if (fault.any()) die_gauss_fault(fault.code);
  if (settings.mode_verbose) print_complete_prob(settings.fp_log);
}

}  // namespace

int use_log_scale() { return settings.mode_log_scale && settings.mode_smooth_strict; }

void compute_complete_prob_log() { fill_complete(true, false, 1.0L); }
void compute_complete_prob_nolog() { fill_complete(false, false, 1.0L); }
void compute_complete_prob_daem_log() { fill_complete(true, true, model.itemp); }
void compute_complete_prob_daem_nolog() { fill_complete(false, true, model.itemp); }

void compute_complete_prob() {
  if (use_log_scale()) compute_complete_prob_log();
  else compute_complete_prob_nolog();
}

void compute_complete_prob_daem() {
  if (use_log_scale()) compute_complete_prob_daem_log();
  else compute_complete_prob_daem_nolog();
}

// ---- incomplete and conditional probabilities ---------------------------------

namespace {

// P(x_e) as the class-ordered sum, or its logarithm by the largest term.
long double incomplete_one(int e, bool log_scale) {
  int nk = settings.num_class;
  long double sum = 0;
  if (!log_scale) {
    for (int k = 0; k < nk; k++) sum += model.prob_comp[k][e];
    return sum;
  }
  if (nk < 1) return 0;
  long double mx = model.prob_comp[0][e];
  for (int k = 1; k < nk; k++)
    if (model.prob_comp[k][e] > mx) mx = model.prob_comp[k][e];
  for (int k = 0; k < nk; k++) sum += expl(model.prob_comp[k][e] - mx);
  return mx + logl(sum);
}

}  // namespace

void compute_incomplete_prob() {
  bool log_scale = use_log_scale();
  double work = static_cast<double>(cases.num_entry) * settings.num_class * (log_scale ? 8 : 1);
  parallel_ranges(cases.num_entry, work, [&](int begin, int end) {
    for (int e = begin; e < end; e++) model.prob_incomp[e] = incomplete_one(e, log_scale);
  });
  if (settings.mode_verbose) print_incomplete_prob(settings.fp_log);
}

void compute_conditional_prob() {
  bool log_scale = use_log_scale();
  int nk = settings.num_class;
  double work = static_cast<double>(cases.num_entry) * nk * (log_scale ? 8 : 2);
  parallel_ranges(cases.num_entry, work, [&](int begin, int end) {
    for (int e = begin; e < end; e++) {
      long double px = model.prob_incomp[e];
      for (int k = 0; k < nk; k++) {
        if (log_scale) model.prob_cond[k][e] = expl(model.prob_comp[k][e] - px);
        else model.prob_cond[k][e] = px <= kMinProb ? 0.0L : model.prob_comp[k][e] / px;
      }
    }
  });
  if (settings.mode_verbose) print_conditional_prob(settings.fp_log);
}

// ---- expectations -------------------------------------------------------------------

namespace {

// Adds w x and w x x' (upper triangle) to the sums u and q of one group.
void add_moments(long double *u, long double *const *q, int d, long double w, const long double *x) {
  for (int i = 0; i < d; i++) {
    long double wx = w * x[i];
    u[i] += wx;
    long double *qi = q[i];
    for (int j = i; j < d; j++) qi[j] += wx * x[j];
  }
}

// The imputed vector: x with each missing component replaced by its
// conditional mean.
void impute_mean(const ImputeForm &f, const MissPattern &pat, const long double *mu,
                 const long double *x, long double *xt, int d) {
  for (int i = 0; i < d; i++) xt[i] = x[i];
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

// w times the conditional covariance into the upper triangle of q. Only the
// missing block is non-zero; the zeros of the rest matter only when w is not
// finite, and are added then.
void add_cond_cov(const ImputeForm &f, const MissPattern &pat, long double *const *q, int d,
                  long double w) {
  const long double *cov = f.cov.data();
  if (!std::isfinite(w)) {
    for (int i = 0; i < d; i++)
      for (int j = i; j < d; j++) q[i][j] += w * cov[i * d + j];
    return;
  }
  for (size_t a = 0; a < pat.mis.size(); a++)
    for (size_t b = a; b < pat.mis.size(); b++) {
      int i = pat.mis[a], j = pat.mis[b];
      q[i][j] += w * cov[i * d + j];
    }
}

// Case e's contribution with weight w to the sums of group g under class k:
// observed moments, imputed ones (`f` the imputation of its pattern), or the
// class's own moments for a wholly missing group. False on a singular block.
bool add_group(int k, int g, const CaseRecord &rec, const MissPattern *pat, const ImputeForm *f,
               long double w, long double *u, long double *const *q) {
  int d = settings.gauss_attr_size[g], m = rec.num_miss_gauss[g];
  const long double *mu = model.param_u[k][g];
  if (m == 0) {
    add_moments(u, q, d, w, rec.gauss[g]);
  } else if (m < d) {
    if (f->singular) return false;
    long double fixed[STACK_DIM];
    long double *xt = fixed;
    if (d > STACK_DIM) {
      thread_local std::vector<long double> wide;
      if (wide.size() < static_cast<size_t>(d)) wide.resize(d);
      xt = wide.data();
    }
    impute_mean(*f, *pat, mu, rec.gauss[g], xt, d);
    add_moments(u, q, d, w, xt);
    add_cond_cov(*f, *pat, q, d, w);
  } else {
    add_moments(u, q, d, w, mu);
    long double *const *s = model.param_s[k][g];
    for (int i = 0; i < d; i++)
      for (int j = i; j < d; j++) q[i][j] += w * s[i][j];
  }
  return true;
}

enum { SUM_CLASS = 1, SUM_NOMINAL = 2, SUM_GAUSS = 4 };

// The sums of one class during a pass, starting at zero.
struct ClassSums {
  long double c;
  std::vector<long double> w;                 // [values]
  std::vector<std::vector<long double>> u, q;  // [G][d], [G][d*d]
  std::vector<std::vector<long double *>> q_rows;

  void reset() {
    int ng = num_g();
    c = 0;
    w.assign(model.derived.num_values, 0.0L);
    u.resize(ng);
    q.resize(ng);
    q_rows.resize(ng);
    for (int g = 0; g < ng; g++) {
      int d = settings.gauss_attr_size[g];
      u[g].assign(d, 0.0L);
      q[g].assign(static_cast<size_t>(d) * d, 0.0L);
      q_rows[g].resize(d);
      for (int i = 0; i < d; i++) q_rows[g][i] = q[g].data() + static_cast<size_t>(i) * d;
    }
  }
};

// Case e's contributions to the sums of class k; false on a singular block.
bool add_case(int k, int e, int what, const int *idx, int n, ClassSums *s) {
  const CaseRecord &rec = cases.freq_list[e];
  long double w = model.prob_cond[k][e] * rec.count;
  if (what & SUM_CLASS) s->c += w;
  if (what & SUM_NOMINAL)
    for (int i = 0; i < n; i++) s->w[idx[i]] += w;
  if (!(what & SUM_GAUSS)) return true;
  const DerivedValues &dv = model.derived;
  for (int g = 0; g < num_g(); g++) {
    int p = dv.case_pattern[g][e];
    const MissPattern *pat = p >= 0 ? &dv.patterns[g][p] : nullptr;
    const ImputeForm *f = p >= 0 ? &dv.impute[g][k * dv.patterns[g].size() + p] : nullptr;
    if (!add_group(k, g, rec, pat, f, w, s->u[g].data(), s->q_rows[g].data())) return false;
  }
  return true;
}

void store_sums(int k, int what, const ClassSums &s) {
  if (what & SUM_CLASS) model.expect_c[k] = s.c;
  if (what & SUM_NOMINAL)
    for (int a = 0; a < num_a(); a++)
      memcpy(model.expect_w[k][a], &s.w[model.derived.w_offset[a]], sizeof(long double) * cases.num_word[a]);
  if (!(what & SUM_GAUSS)) return;
  for (int g = 0; g < num_g(); g++) {
    int d = settings.gauss_attr_size[g];
    for (int i = 0; i < d; i++) {
      model.expect_u[k][g][i] = s.u[g][i];
      for (int j = 0; j < d; j++) model.expect_s[k][g][i][j] = s.q[g][static_cast<size_t>(i) * d + j];
    }
  }
}

// One walk over the cases per thread, each thread summing its own classes.
void sum_classes(int what) {
  refresh_derived();
  int nk = settings.num_class, ne = cases.num_entry;
  FirstFault fault;
  double work = static_cast<double>(ne) * nk * (2 + num_a() + 16 * num_g());
  parallel_ranges(nk, work, [&](int k0, int k1) {
    std::vector<ClassSums> sums(k1 - k0);
    for (ClassSums &s : sums) s.reset();
    std::vector<int> idx(num_a() + 1);
    std::vector<bool> failed(k1 - k0, false);
    for (int e = 0; e < ne; e++) {
      int n = (what & SUM_NOMINAL) ? present_values(cases.freq_list[e], idx.data()) : 0;
      for (int k = k0; k < k1; k++) {
        if (failed[k - k0] || add_case(k, e, what, idx.data(), n, &sums[k - k0])) continue;
        failed[k - k0] = true;
        fault.note(static_cast<long long>(k) * ne + e, FAULT_IMPUTE);
      }
    }
    for (int k = k0; k < k1; k++) store_sums(k, what, sums[k - k0]);
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
  for (int g = 0; g < settings.gauss_size; g++) {
    int d = settings.gauss_attr_size[g], m = rec.num_miss_gauss[g];
    if (m > 0 && m < d) {
      make_pattern(&pat, rec.miss_g[g], d);
      prepare_impute(&f, k, g, pat);
    }
    if (!add_group(k, g, rec, &pat, &f, w, model.expect_u[k][g], model.expect_s[k][g]))
      die_numeric("compute_expect_gauss0", "Failed to invert covariances\n");
  }
}

void compute_expect_gauss() { sum_classes(SUM_GAUSS); }

void compute_expect() {
  int what = SUM_CLASS;
  if (settings.mode_nominal) what |= SUM_NOMINAL;
  if (settings.mode_gauss) what |= SUM_GAUSS;
  sum_classes(what);
  if (settings.mode_verbose) print_expectation(settings.fp_log);
}
