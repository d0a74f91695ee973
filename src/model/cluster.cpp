// Membership distributions of cases and attribute values under the current
// parameter set, the hard clustering derived from them, and the run that
// reads a parameter file instead of fitting one.
#include "model/cluster.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "base/misc.h"
#include "base/parallel.h"
#include "base/scratch.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/case_values.h"
#include "model/em.h"
#include "model/gauss.h"

Membership member;
Clusters clusters;

namespace {

const char kModule[] = "cluster.cpp";

int num_k() { return model.num_class; }
int num_e() { return cases.num_entry; }
int num_d() { return settings.mode_nominal ? settings.tuple_size_d : 0; }
int num_g() { return settings.mode_gauss ? settings.gauss_size : 0; }

template <typename T>
T *new_array(int n, int site) {
  return static_cast<T *>(calloc_str0(sizeof(T) * (n > 0 ? n : 1), kModule, site));
}

// [rows][cols] of T, zero-filled.
template <typename T>
T **new_table(int rows, int cols, int site) {
  T **p = new_array<T *>(rows, site);
  for (int i = 0; i < rows; i++) p[i] = new_array<T>(cols, site);
  return p;
}

template <typename T>
void free_table(T **&p, int rows) {
  if (p == nullptr) return;
  for (int i = 0; i < rows; i++) free(p[i]);
  free(p);
  p = nullptr;
}

// [K][D][V_d] of long double.
long double ***new_value_table(int site) {
  long double ***p = new_array<long double **>(num_k(), site);
  for (int k = 0; k < num_k(); k++) {
    p[k] = new_array<long double *>(num_d(), site);
    for (int d = 0; d < num_d(); d++) p[k][d] = new_array<long double>(cases.num_word[d], site);
  }
  return p;
}

void free_value_table(long double ***&p) {
  if (p == nullptr) return;
  for (int k = 0; k < num_k(); k++) free_table(p[k], num_d());
  free(p);
  p = nullptr;
}

// [K][G][E] of long double.
long double ***new_group_table(int site) {
  long double ***p = new_array<long double **>(num_k(), site);
  for (int k = 0; k < num_k(); k++) p[k] = new_table<long double>(num_g(), num_e(), site);
  return p;
}

void free_group_table(long double ***&p) {
  if (p == nullptr) return;
  for (int k = 0; k < num_k(); k++) free_table(p[k], num_g());
  free(p);
  p = nullptr;
}

// ---- case memberships ---------------------------------------------------------

// E-step pieces on the current parameters; the working arrays are made here
// when the caller has not kept them.
bool run_estep() {
  bool own = model.prob_comp == nullptr;
  if (own) alloc_prob();
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  return own;
}

// Case memberships from the E-step values, the cases split over threads. In
// the log path the class probability itself (not its log) is subtracted: the
// component column of that path is P(k) P(x|k) exp(-P(k)).
void case_members(bool log) {
  bool own = run_estep();
  parallel_ranges(num_e(), 40.0 * num_e() * num_k(), [log](int begin, int end) {
    for (int n = begin; n < end; n++) {
      for (int k = 0; k < num_k(); k++) {
        member.prob_mem_case[k][n] = model.prob_cond[k][n];
        member.prob_compo_case[k][n] = log ? expl(model.prob_comp[k][n] - model.param_c[k])
                                           : model.prob_comp[k][n] / model.param_c[k];
      }
      member.prob_case[n] = log ? expl(model.prob_incomp[n]) : model.prob_incomp[n];
    }
  });
  if (own) release_prob();
}

void compute_case_member_prob_nolog() { case_members(false); }
void compute_case_member_prob_log() { case_members(true); }

// ---- attribute memberships ------------------------------------------------------

void compute_attr_member_prob_nolog_w() {
  for (int d = 0; d < num_d(); d++)
    for (int v = 0; v < cases.num_word[d]; v++) {
      member.prob_w[d][v] = 0.0L;
      for (int k = 0; k < num_k(); k++) {
        member.prob_mem_w[k][d][v] = model.param_c[k] * model.param_w[k][d][v];
        member.prob_w[d][v] += member.prob_mem_w[k][d][v];
      }
      for (int k = 0; k < num_k(); k++) {
        member.prob_compo_w[k][d][v] = model.param_w[k][d][v];
        member.prob_mem_w[k][d][v] /= member.prob_w[d][v];
      }
    }
}

// log of the sum of exp(a_k) over the classes, scaled by the largest term
// (the first class wins ties).
long double log_sum_exp(const long double *a, int n) {
  if (n < 1) return 0.0L;
  long double m = a[0];
  for (int k = 1; k < n; k++)
    if (a[k] > m) m = a[k];
  long double s = 0.0L;
  for (int k = 0; k < n; k++) s += expl(a[k] - m);
  return m + logl(s);
}

void compute_attr_member_prob_log_w() {
  std::vector<long double> a(num_k() > 0 ? num_k() : 1);
  for (int d = 0; d < num_d(); d++)
    for (int v = 0; v < cases.num_word[d]; v++) {
      for (int k = 0; k < num_k(); k++) {
        a[k] = logl(model.param_c[k]) + logl(model.param_w[k][d][v]);
        member.prob_mem_w[k][d][v] = a[k];
      }
      member.prob_w[d][v] = log_sum_exp(a.data(), num_k());
      for (int k = 0; k < num_k(); k++) {
        member.prob_mem_w[k][d][v] = expl(a[k] - member.prob_w[d][v]);
        member.prob_compo_w[k][d][v] = model.param_w[k][d][v];
      }
    }
}

// Density of group g of case n under class k (a log density when `log`);
// *present is false when the whole group is missing. A failed density is
// noted at the place a walk over groups, cases and classes meets it.
long double group_density(int k, int g, int n, bool log, bool *present, FirstFault *fault) {
  const GaussForm *f = group_form(k, g, n);
  *present = f != nullptr;
  if (!*present) return 0.0L;
  long double lg = 0.0L;
  int bad = lgauss_form_checked(*f, cases.freq_list[n].gauss[g], &lg);
  if (bad == GAUSS_OK) return log ? lg : expl(lg);
  fault->note((static_cast<long long>(g) * num_e() + n) * num_k() + k, bad);
  return 0.0L;
}

void group_member_nolog(int g, int n, FirstFault *fault) {
  member.prob_g[g][n] = 0.0L;
  for (int k = 0; k < num_k(); k++) {
    bool present = false;
    long double f = group_density(k, g, n, false, &present, fault);
    member.prob_mem_g[k][g][n] = model.param_c[k];
    if (present) {
      member.prob_compo_g[k][g][n] = f;
      member.prob_mem_g[k][g][n] *= f;
    }
    member.prob_g[g][n] += member.prob_mem_g[k][g][n];
  }
  for (int k = 0; k < num_k(); k++) member.prob_mem_g[k][g][n] /= member.prob_g[g][n];
}

void group_member_log(int g, int n, long double *a, FirstFault *fault) {
  for (int k = 0; k < num_k(); k++) {
    bool present = false;
    long double f = group_density(k, g, n, true, &present, fault);
    a[k] = logl(model.param_c[k]);
    if (present) {
      member.prob_compo_g[k][g][n] = f;
      a[k] += f;
    }
  }
  member.prob_g[g][n] = log_sum_exp(a, num_k());
  for (int k = 0; k < num_k(); k++) member.prob_mem_g[k][g][n] = expl(a[k] - member.prob_g[g][n]);
}

// Group memberships of every case, the cases split over threads.
void compute_attr_member_prob_g(bool log) {
  refresh_derived();
  FirstFault fault;
  static ScratchArray<long double> terms;  // per thread: one term per class
  size_t share = per_thread_count<long double>(num_k() + 1);
  terms.resize(share * max_threads(), kModule, 40);
  for (int g = 0; g < num_g(); g++)
    parallel_ranges(num_e(), 40.0 * num_e() * num_k(), [&](int begin, int end) {
      long double *a = &terms[share * thread_index()];
      for (int n = begin; n < end; n++) {
        if (log) group_member_log(g, n, a, &fault);
        else group_member_nolog(g, n, &fault);
      }
    });
  if (fault.any()) die_gauss_fault(fault.code);
}

void compute_attr_member_prob_nolog() {
  compute_attr_member_prob_nolog_w();
  compute_attr_member_prob_g(false);
}

void compute_attr_member_prob_log() {
  compute_attr_member_prob_log_w();
  compute_attr_member_prob_g(true);
}

// ---- hard clustering ----------------------------------------------------------------

// Class with the largest probability; ties and all-zero columns go to the
// lowest class.
int most_probable(long double *const *prob, int item) {
  int best = 0;
  long double max = 0.0L;
  for (int k = 0; k < num_k(); k++)
    if (prob[k][item] > max) {
      max = prob[k][item];
      best = k;
    }
  return best;
}

// Counts the members of each class and lists them in item order.
void list_members(const int *pred, int n, int *freq, int **lists) {
  for (int k = 0; k < num_k(); k++) freq[k] = 0;
  for (int i = 0; i < n; i++) freq[pred[i]]++;
  std::vector<int> fill(num_k() > 0 ? num_k() : 1, 0);
  for (int k = 0; k < num_k(); k++) lists[k] = new_array<int>(freq[k], 20);
  for (int i = 0; i < n; i++) lists[pred[i]][fill[pred[i]]++] = i;
}

void cluster_cases() {
  clusters.cluster_case_pred = new_array<int>(num_e(), 21);
  clusters.cluster_case_freq = new_array<int>(num_k(), 22);
  clusters.cluster_case = new_array<int *>(num_k(), 23);
  for (int n = 0; n < num_e(); n++) clusters.cluster_case_pred[n] = most_probable(member.prob_mem_case, n);
  list_members(clusters.cluster_case_pred, num_e(), clusters.cluster_case_freq, clusters.cluster_case);
}

void cluster_values() {
  clusters.cluster_w_pred = new_array<int *>(num_d(), 24);
  clusters.cluster_w_freq = new_table<int>(num_d(), num_k(), 25);
  clusters.cluster_w = new_array<int **>(num_d(), 26);
  std::vector<long double *> column(num_k() > 0 ? num_k() : 1);
  for (int d = 0; d < num_d(); d++) {
    int nv = cases.num_word[d];
    clusters.cluster_w_pred[d] = new_array<int>(nv, 27);
    for (int k = 0; k < num_k(); k++) column[k] = member.prob_mem_w[k][d];
    for (int v = 0; v < nv; v++) clusters.cluster_w_pred[d][v] = most_probable(column.data(), v);
    clusters.cluster_w[d] = new_array<int *>(num_k(), 28);
    list_members(clusters.cluster_w_pred[d], nv, clusters.cluster_w_freq[d], clusters.cluster_w[d]);
    const char **words = cases.word_list[d];
    for (int k = 0; k < num_k(); k++) {
      int *list = clusters.cluster_w[d][k];
      std::stable_sort(list, list + clusters.cluster_w_freq[d][k],
                       [words](int x, int y) { return compare_word(words[x], words[y]) < 0; });
    }
  }
}

void cluster_groups() {
  clusters.cluster_g_pred = new_array<int *>(num_g(), 29);
  clusters.cluster_g_freq = new_table<int>(num_g(), num_k(), 30);
  clusters.cluster_g = new_array<int **>(num_g(), 31);
  std::vector<long double *> column(num_k() > 0 ? num_k() : 1);
  for (int g = 0; g < num_g(); g++) {
    clusters.cluster_g_pred[g] = new_array<int>(num_e(), 32);
    for (int k = 0; k < num_k(); k++) column[k] = member.prob_mem_g[k][g];
    for (int n = 0; n < num_e(); n++) clusters.cluster_g_pred[g][n] = most_probable(column.data(), n);
    clusters.cluster_g[g] = new_array<int *>(num_k(), 33);
    list_members(clusters.cluster_g_pred[g], num_e(), clusters.cluster_g_freq[g], clusters.cluster_g[g]);
  }
}

}  // namespace

void compute_clusters() {
  cluster_cases();
  cluster_values();
  cluster_groups();
}

void alloc_prob_mem() {
  member.prob_mem_case = new_table<long double>(num_k(), num_e(), 1);
  member.prob_compo_case = new_table<long double>(num_k(), num_e(), 2);
  member.prob_case = new_array<long double>(num_e(), 3);
  if (num_d() > 0) {
    member.prob_mem_w = new_value_table(4);
    member.prob_compo_w = new_value_table(5);
    member.prob_w = new_array<long double *>(num_d(), 6);
    for (int d = 0; d < num_d(); d++) member.prob_w[d] = new_array<long double>(cases.num_word[d], 7);
  }
  if (num_g() > 0) {
    member.prob_mem_g = new_group_table(8);
    member.prob_compo_g = new_group_table(9);
    member.prob_g = new_table<long double>(num_g(), num_e(), 10);
  }
}

void release_prob_mem() {
  free_table(member.prob_mem_case, num_k());
  free_table(member.prob_compo_case, num_k());
  free(member.prob_case);
  member.prob_case = nullptr;
  free_value_table(member.prob_mem_w);
  free_value_table(member.prob_compo_w);
  free_table(member.prob_w, num_d());
  free_group_table(member.prob_mem_g);
  free_group_table(member.prob_compo_g);
  free_table(member.prob_g, num_g());
}

void compute_case_member_prob() {
  if (use_log_scale())
    compute_case_member_prob_log();
  else
    compute_case_member_prob_nolog();
}

void compute_attr_member_prob() {
  if (use_log_scale())
    compute_attr_member_prob_log();
  else
    compute_attr_member_prob_nolog();
}

void release_cluster() {
  free(clusters.cluster_case_pred);
  free(clusters.cluster_case_freq);
  clusters.cluster_case_pred = clusters.cluster_case_freq = nullptr;
  free_table(clusters.cluster_case, num_k());
  free_table(clusters.cluster_w_pred, num_d());
  free_table(clusters.cluster_w_freq, num_d());
  for (int d = 0; d < num_d() && clusters.cluster_w != nullptr; d++) free_table(clusters.cluster_w[d], num_k());
  free(clusters.cluster_w);
  clusters.cluster_w = nullptr;
  free_table(clusters.cluster_g_pred, num_g());
  free_table(clusters.cluster_g_freq, num_g());
  for (int g = 0; g < num_g() && clusters.cluster_g != nullptr; g++) free_table(clusters.cluster_g[g], num_k());
  free(clusters.cluster_g);
  clusters.cluster_g = nullptr;
}

