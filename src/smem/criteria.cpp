// The merge and split criteria of the current model, the list of candidate
// operations in their order, and the filters applied while it is walked.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "base/guards.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/gauss.h"
#include "smem/smem.h"

namespace {

const char kModule[] = "criteria.cpp";

int num_k() { return model.num_class; }

// Observed-component flags of group g of a case, in a buffer of `cap` ints.
const int *observed_flags(const CaseRecord &rec, int g, int *buf) {
  for (int i = 0; i < settings.gauss_attr_size[g]; i++) buf[i] = rec.miss_g[g][i] ? 0 : 1;
  return buf;
}

int max_dim() {
  int d = 1;
  for (int g = 0; g < settings.gauss_size; g++) d = std::max(d, settings.gauss_attr_size[g]);
  return d;
}

bool uses_discrete(const CaseRecord &rec, int a) {
  return cases.total_num_miss_w == 0 || rec.num_miss == 0 || !rec.miss_w[a];
}

// P(x_e | k): observed discrete values times the density of each wholly or
// partly observed Gaussian group.
long double class_density(int k, int e, int *flags) {
  const CaseRecord &rec = cases.freq_list[e];
  long double p = 1;
  for (int a = 0; a < settings.tuple_size_d; a++)
    if (uses_discrete(rec, a)) p *= model.param_w[k][a][rec.word[a]];
  for (int g = 0; g < settings.gauss_size; g++) {
    int m = rec.num_miss_gauss[g];
    const long double *mu = model.param_u[k][g];
    if (m == 0)
      p *= gauss_prec(rec.gauss[g], mu, model.param_s[k][g], model.param_p[k][g], model.param_sdet[k][g]);
    else if (m < settings.gauss_attr_size[g])
      p *= gauss_marginal(rec.gauss[g], mu, model.param_s[k][g], observed_flags(rec, g, flags));
  }
  return p;
}

// log P(x_e | k), summed directly.
long double class_log_density(int k, int e, int *flags) {
  const CaseRecord &rec = cases.freq_list[e];
  long double p = 0;
  for (int a = 0; a < settings.tuple_size_d; a++)
    if (uses_discrete(rec, a)) p += logl(model.param_w[k][a][rec.word[a]]);
  for (int g = 0; g < settings.gauss_size; g++) {
    int m = rec.num_miss_gauss[g];
    const long double *mu = model.param_u[k][g];
    if (m == 0)
      p += lgauss_prec(rec.gauss[g], mu, model.param_s[k][g], model.param_p[k][g], model.param_sdet[k][g]);
    else if (m < settings.gauss_attr_size[g])
      p += lgauss_marginal(rec.gauss[g], mu, model.param_s[k][g], observed_flags(rec, g, flags));
  }
  return p;
}

// Empirical density of class k at case e, floored.
long double class_share(int k, int e) {
  long double f = cases.freq_list[e].count * model.prob_cond[k][e] / smem.expect_c_sm[k];
  return f < kMinProb ? kMinProb : f;
}

// Jsplit of every class; log_density selects the scale of the model density.
void fill_jsplit(bool log_density) {
  int *flags = static_cast<int *>(xmalloc0(sizeof(int) * max_dim(), kModule, 1));
  for (int k = 0; k < num_k(); k++) {
    long double js = 0;
    for (int e = 0; e < cases.num_entry; e++) {
      long double f = class_share(k, e), lp;
      if (log_density) {
        lp = class_log_density(k, e, flags);
        if (lp < kLogMinProb) lp = kLogMinProb;
      } else {
        long double p = class_density(k, e, flags);
        lp = logl(p < kMinProb ? kMinProb : p);
      }
      js += f * (logl(f) - lp);
    }
    smem.jsplit[k] = js;
    check_jsplit(k);
  }
  free(flags);
}

// Weighted squared norm of the posteriors of class k.
long double posterior_norm(int k) {
  long double q = 0;
  for (int e = 0; e < cases.num_entry; e++) {
    long double p = model.prob_cond[k][e];
    q += cases.freq_list[e].count * p * p;
  }
  return q;
}

}  // namespace

void alloc_jmerge() { smem.jmerge = alloc_clear_matrix(num_k(), num_k()); }

void release_jmerge() {
  release_matrix0(smem.jmerge);
  smem.jmerge = nullptr;
}

void alloc_jsplit() {
  smem.jsplit = alloc_clear_vector(num_k());
  smem.expect_c_sm = static_cast<long double *>(calloc_str0(sizeof(long double) * num_k(), kModule, 2));
}

void release_jsplit() {
  release_vector0(smem.jsplit);
  smem.jsplit = nullptr;
  free(smem.expect_c_sm);
  smem.expect_c_sm = nullptr;
}

void alloc_candidate() {
  int k = num_k();
  smem.num_candidate = k * (k - 1) * (k - 2) / 2;
  int n = smem.num_candidate > 0 ? smem.num_candidate : 1;
  smem.sm_candidate = static_cast<SmCandidate *>(calloc_str0(sizeof(SmCandidate) * n, kModule, 3));
}

void release_candidate() {
  free(smem.sm_candidate);
  smem.sm_candidate = nullptr;
  smem.num_candidate = 0;
}

void compute_jmerge() {
  int nk = num_k();
  Vector q = nullptr;
  if (settings.mode_norm) {
    q = alloc_vector(nk);
    for (int k = 0; k < nk; k++) q[k] = posterior_norm(k);
  }
  for (int i = 0; i < nk; i++)
    for (int j = i + 1; j < nk; j++) {
      long double s = 0;
      for (int e = 0; e < cases.num_entry; e++)
        s += cases.freq_list[e].count * model.prob_cond[i][e] * model.prob_cond[j][e];
      if (q != nullptr) s /= sqrtl(q[i] * q[j]);
      smem.jmerge[i][j] = s;
      check_jmerge(i, j);
    }
  if (q != nullptr) release_vector0(q);
}

void compute_jsplit_nolog() { fill_jsplit(false); }
void compute_jsplit_log() { fill_jsplit(true); }

void compute_jsplit() {
  if (use_log_scale()) compute_jsplit_log();
  else compute_jsplit_nolog();
}

void check_jmerge(int i, int j) {
  check_score(smem.jmerge[i][j], "check_jmerge", "Computed Jmerge is not a number -- see the log file\n",
              "Computed Jmerge is not finite -- see the log file\n");
}

void check_jsplit(int k) {
  char nan_msg[96], inf_msg[96];
  snprintf(nan_msg, sizeof nan_msg, "Computed Jsplit[%d] is not a number -- see the log file\n", k);
  snprintf(inf_msg, sizeof inf_msg, "Computed Jsplit[%d] is not finite -- see the log file\n", k);
  check_score(smem.jsplit[k], "check_jsplit", nan_msg, inf_msg);
}

void build_candidate() {
  int nk = num_k(), n = 0;
  for (int i = 0; i < nk; i++)
    for (int j = i + 1; j < nk; j++)
      for (int k = 0; k < nk; k++)
        if (k != i && k != j) smem.sm_candidate[n++] = SmCandidate{i, j, k};
}

// Pairs by decreasing Jmerge; within a pair, splits by decreasing Jsplit.
// Different pairs with equal Jmerge compare equal whatever their splits.
bool compare_candidate(const SmCandidate &a, const SmCandidate &b) {
  if (a.i == b.i && a.j == b.j) return smem.jsplit[a.k] > smem.jsplit[b.k];
  return smem.jmerge[a.i][a.j] > smem.jmerge[b.i][b.j];
}

void sort_candidate() {
  std::stable_sort(smem.sm_candidate, smem.sm_candidate + smem.num_candidate, compare_candidate);
}

bool skip_candidate(int pos) {
  const SmCandidate &c = smem.sm_candidate[pos];
  if (pos > 0 && c.i == smem.last_i && c.j == smem.last_j) smem.jsplit_run++;
  else smem.jsplit_run = 0;
  if (settings.max_jsplit >= 1 && smem.jsplit_run >= settings.max_jsplit) return true;
  long double lim = settings.min_param_c;
  if (lim > 0) {
    const long double *pc = model.param_c;
    // One of the two merged classes reaching the limit is enough.
    if (!((pc[c.i] >= lim || pc[c.j] >= lim) && pc[c.k] >= lim)) return true;
  }
  return false;
}
