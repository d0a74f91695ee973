// External measures of the hard clustering. n_ka adds the occurrence counts
// of the entries of cluster k and answer class a, while n_k, n_a and N count
// case-table entries: with repeated cases the two scales differ, and the
// measures are computed from both as they stand.
#include "analysis/eval.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/cluster.h"

Evaluation eval;

namespace {

const char kModule[] = "eval.cpp";
const long double kLn2 = 0.6931471805599453;

int num_k() { return model.num_class; }
int num_a() { return cases.num_ans_class; }

// Pairs among m items.
long long pairs(long long m) { return m >= 2 ? m * (m - 1) / 2 : 0; }

long double log2_of(long double x) { return logl(x) / kLn2; }

void compute_contingency() {
  for (int k = 0; k < num_k(); k++)
    for (int a = 0; a < num_a(); a++) eval.cluster_case_freq_joint[k][a] = 0;
  for (int n = 0; n < cases.num_entry; n++) {
    int a = cases.freq_list[n].ans_class;
    if (a >= 0) eval.cluster_case_freq_joint[clusters.cluster_case_pred[n]][a] += cases.freq_list[n].count;
  }
}

void compute_purity(long double n_total) {
  long long by_cluster = 0, by_class = 0;
  for (int k = 0; k < num_k(); k++) {
    int best = 0;
    for (int a = 0; a < num_a(); a++)
      if (eval.cluster_case_freq_joint[k][a] > best) best = eval.cluster_case_freq_joint[k][a];
    by_cluster += best;
  }
  for (int a = 0; a < num_a(); a++) {
    int best = 0;
    for (int k = 0; k < num_k(); k++)
      if (eval.cluster_case_freq_joint[k][a] > best) best = eval.cluster_case_freq_joint[k][a];
    by_class += best;
  }
  eval.purity = by_cluster / n_total;
  eval.purity_inv = by_class / n_total;
  long double b2 = settings.weight_purity * settings.weight_purity;
  eval.purity_f = (b2 + 1) * eval.purity * eval.purity_inv / (b2 * eval.purity + eval.purity_inv);
}

void compute_pair_measures(long long n_total) {
  long long tp = 0, s_pred = 0, s_ans = 0;
  for (int k = 0; k < num_k(); k++)
    for (int a = 0; a < num_a(); a++) tp += pairs(eval.cluster_case_freq_joint[k][a]);
  for (int k = 0; k < num_k(); k++) s_pred += pairs(clusters.cluster_case_freq[k]);
  for (int a = 0; a < num_a(); a++) s_ans += pairs(cases.cluster_case_freq_ans[a]);
  long double m = pairs(n_total), t = tp, sp = s_pred, sa = s_ans;
  long double tn = m - (sp + sa - t);
  eval.rand_index = (tn + t) / m;
  eval.wallance1 = t / sp;
  eval.wallance2 = t / sa;
  long double b2 = settings.weight_wallance * settings.weight_wallance;
  eval.wallance_f = (b2 + 1) * eval.wallance1 * eval.wallance2 / (b2 * eval.wallance1 + eval.wallance2);
  eval.fowlkes_mallows = sqrtl(eval.wallance1 * eval.wallance2);
  long double expected = sp * sa / m;
  eval.adj_rand_index = (t - expected) / ((sp + sa) / 2 - expected);
  eval.jaccard = t / (sp + sa - t);
  eval.mirkin = 2 * m * (1 - eval.rand_index);
}

// Entropy in bits of a distribution given by counts over a total.
long double entropy(const int *count, int n, long double total) {
  long double h = 0.0L;
  for (int i = 0; i < n; i++) {
    long double p = count[i] / total;
    if (p > 0) h -= p * log2_of(p);
  }
  return h;
}

void compute_info_measures(long double n_total) {
  long double info = 0.0L;
  for (int k = 0; k < num_k(); k++)
    for (int a = 0; a < num_a(); a++) {
      long double nka = eval.cluster_case_freq_joint[k][a];
      long double nk = clusters.cluster_case_freq[k], na = cases.cluster_case_freq_ans[a];
      if (nka > 0 && nk > 0 && na > 0) info += nka / n_total * log2_of(nka * n_total / (nk * na));
    }
  long double h_pred = entropy(clusters.cluster_case_freq, num_k(), n_total);
  long double h_ans = entropy(cases.cluster_case_freq_ans, num_a(), n_total);
  eval.nmi_score = 2 * info / (h_pred + h_ans);
  eval.vi_score = h_pred + h_ans - 2 * info;
  eval.nvi_score = 1 - eval.nmi_score;
}

}  // namespace

void alloc_eval() {
  int k = num_k() > 0 ? num_k() : 1;
  eval.cluster_case_freq_joint = static_cast<int **>(calloc_str0(sizeof(int *) * k, kModule, 1));
  for (int i = 0; i < num_k(); i++)
    eval.cluster_case_freq_joint[i] =
        static_cast<int *>(calloc_str0(sizeof(int) * (num_a() > 0 ? num_a() : 1), kModule, 2));
}

void release_eval() {
  if (eval.cluster_case_freq_joint == nullptr) return;
  for (int i = 0; i < num_k(); i++) free(eval.cluster_case_freq_joint[i]);
  free(eval.cluster_case_freq_joint);
  eval.cluster_case_freq_joint = nullptr;
}

void compute_eval() {
  int n = cases.num_entry;
  compute_contingency();
  compute_purity(n);
  compute_pair_measures(n);
  compute_info_measures(n);
}
