// Relevance ranking of cases, attribute values and Gaussian groups of cases
// per class, by membership probability.
#include "analysis/rank.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/cluster.h"

Ranking ranking;

namespace {

const char kModule[] = "rank.cpp";

int num_k() { return model.num_class; }
int num_e() { return cases.num_entry; }
int num_d() { return settings.mode_nominal ? settings.tuple_size_d : 0; }
int num_g() { return settings.mode_gauss ? settings.gauss_size : 0; }

int *new_ints(int n) { return static_cast<int *>(calloc_str0(sizeof(int) * (n > 0 ? n : 1), kModule, 1)); }

int **new_int_rows(int n) {
  return static_cast<int **>(calloc_str0(sizeof(int *) * (n > 0 ? n : 1), kModule, 2));
}

void free_rows(int **rows, int n) {
  if (rows == nullptr) return;
  for (int i = 0; i < n; i++) free(rows[i]);
  free(rows);
}

// Decreasing order with NaN below every number, so that the comparison is a
// strict weak ordering whatever the keys hold.
bool ranks_before(long double a, long double b) {
  if (std::isnan(b)) return !std::isnan(a);
  return a > b;
}

}  // namespace

void rank_indices(int *idx, int n, const long double *key) {
  for (int i = 0; i < n; i++) idx[i] = i;
  std::stable_sort(idx, idx + n, [key](int a, int b) { return ranks_before(key[a], key[b]); });
}

void alloc_rank() {
  ranking.rank_class = new_ints(num_k());
  ranking.rank_mem_case = new_int_rows(num_k());
  ranking.rank_mem_w = static_cast<int ***>(calloc_str0(sizeof(int **) * (num_k() > 0 ? num_k() : 1), kModule, 3));
  ranking.rank_mem_g = static_cast<int ***>(calloc_str0(sizeof(int **) * (num_k() > 0 ? num_k() : 1), kModule, 4));
  for (int k = 0; k < num_k(); k++) {
    ranking.rank_mem_case[k] = new_ints(num_e());
    ranking.rank_mem_w[k] = new_int_rows(num_d());
    for (int d = 0; d < num_d(); d++) ranking.rank_mem_w[k][d] = new_ints(cases.num_word[d]);
    ranking.rank_mem_g[k] = new_int_rows(num_g());
    for (int g = 0; g < num_g(); g++) ranking.rank_mem_g[k][g] = new_ints(num_e());
  }
}

void release_rank() {
  for (int k = 0; k < num_k() && ranking.rank_mem_w != nullptr; k++) {
    free_rows(ranking.rank_mem_w[k], num_d());
    free_rows(ranking.rank_mem_g[k], num_g());
  }
  free(ranking.rank_mem_w);
  free(ranking.rank_mem_g);
  free_rows(ranking.rank_mem_case, num_k());
  free(ranking.rank_class);
  ranking = Ranking();
}

void compute_rank() {
  std::vector<long double> class_prob(model.param_c, model.param_c + num_k());
  rank_indices(ranking.rank_class, num_k(), class_prob.data());
  if (settings.rel_m != 1)
    die("Internal error: Unexpected relevance measure between classes and attribute values\n");
  for (int k = 0; k < num_k(); k++) {
    rank_indices(ranking.rank_mem_case[k], num_e(), member.prob_mem_case[k]);
    for (int d = 0; d < num_d(); d++)
      rank_indices(ranking.rank_mem_w[k][d], cases.num_word[d], member.prob_mem_w[k][d]);
    for (int g = 0; g < num_g(); g++) rank_indices(ranking.rank_mem_g[k][g], num_e(), member.prob_mem_g[k][g]);
  }
}
