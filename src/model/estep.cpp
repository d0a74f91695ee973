// E-step, first part: complete-data, incomplete-data and conditional
// probabilities of every distinct case (the expected statistics are in
// expect.cpp). The passes read the derived values of the parameters
// (refresh_derived) and split the cases over threads; every value is
// computed by one thread in the sequential order of its operations.
#include <cmath>
#include <vector>

#include "base/guards.h"
#include "base/misc.h"
#include "base/parallel.h"
#include "base/scratch.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/case_values.h"
#include "model/em.h"
#include "model/gauss.h"
#include "model/report.h"

namespace {

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
  int nk = model.num_class, nv = dv.num_values;
  terms.log = log;
  terms.tempered = tempered;
  terms.beta = beta;
  terms.c.resize(nk);
  terms.w.resize(static_cast<size_t>(nk) * nv);
  for (int k = 0; k < nk; k++) {
    long double c = model.param_c[k];
    terms.c[k] = log ? beta * dv.log_c[k] : tempered ? powl(c, beta) : c;
    for (int a = 0; a < num_discrete(); a++)
      for (int v = 0; v < cases.num_word[a]; v++) {
        size_t i = static_cast<size_t>(k) * nv + dv.w_offset[a] + v;
        long double w = model.param_w[k][a][v];
        terms.w[i] = log ? beta * dv.log_w[i] : tempered ? powl(w, beta) : w;
      }
  }
}

// P(k, x_e) (its logarithm when LOG) for the classes of case e: first the
// class and discrete factors of every class (a loop without calls, which
// keeps the running value in a register), then the group densities.
template <bool LOG>
void complete_case(int e, const ClassList &classes, int *idx, FirstFault *fault) {
  const CaseRecord &rec = cases.freq_list[e];
  int nv = model.derived.num_values, ng = num_groups();
  int n = present_values(rec, idx);
  for (int c = 0; c < classes.n; c++) {
    int k = classes[c];
    long double p = terms.c[k];
    const long double *w = terms.w.data() + static_cast<size_t>(k) * nv;
    for (int i = 0; i < n; i++) {
      if (LOG) p += w[idx[i]];
      else p *= w[idx[i]];
    }
    model.prob_comp[k][e] = p;
  }
  for (int c = 0; c < classes.n && ng > 0; c++) {
    int k = classes[c];
    long double p = model.prob_comp[k][e];
    for (int g = 0; g < ng; g++) {
      const GaussForm *f = group_form(k, g, e);
      if (f == nullptr) continue;
      long double lg = 0.0L;
      int bad = lgauss_form_checked(*f, rec.gauss[g], &lg);
      if (bad != GAUSS_OK) {
        fault->note(static_cast<long long>(c) * cases.num_entry + e, bad);
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

void fill_complete(bool log, bool tempered, long double beta, ClassList classes) {
  refresh_derived();
  prepare_terms(log, tempered, beta);
  int ne = cases.num_entry;
  FirstFault fault;
  static ScratchArray<int> idx_all;  // per thread: the present values of a case
  size_t stride = per_thread_count<int>(num_discrete() + 1);
  idx_all.resize(stride * max_threads(), "estep.cpp", 1);
  double work = static_cast<double>(ne) * classes.n * (4 + num_discrete() + 16 * num_groups());
  parallel_ranges(ne, work, [&](int begin, int end) {
    int *idx = &idx_all[stride * thread_index()];
    for (int e = begin; e < end; e++) {
      if (log) complete_case<true>(e, classes, idx, &fault);
      else complete_case<false>(e, classes, idx, &fault);
    }
  });
  if (fault.any()) die_gauss_fault(fault.code);
  // The verbose table belongs to the whole pass, not to a few classes.
  if (settings.mode_verbose && classes.list == nullptr) model_report.complete_prob(settings.fp_log);
}

}  // namespace

int use_log_scale() { return settings.mode_log_scale && model.smooth.strict; }

void compute_complete_prob_log() { fill_complete(true, false, 1.0L, all_classes()); }
void compute_complete_prob_nolog() { fill_complete(false, false, 1.0L, all_classes()); }
void compute_complete_prob_daem_log() { fill_complete(true, true, model.itemp, all_classes()); }
void compute_complete_prob_daem_nolog() { fill_complete(false, true, model.itemp, all_classes()); }

void compute_complete_prob_classes(const int *classes, int n) {
  fill_complete(use_log_scale(), false, 1.0L, ClassList{classes, n});
}

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
  int nk = model.num_class;
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
  double work = static_cast<double>(cases.num_entry) * model.num_class * (log_scale ? 8 : 1);
  parallel_ranges(cases.num_entry, work, [&](int begin, int end) {
    for (int e = begin; e < end; e++) model.prob_incomp[e] = incomplete_one(e, log_scale);
  });
  if (settings.mode_verbose) model_report.incomplete_prob(settings.fp_log);
}

void compute_conditional_prob() {
  bool log_scale = use_log_scale();
  int nk = model.num_class;
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
  if (settings.mode_verbose) model_report.conditional_prob(settings.fp_log);
}
