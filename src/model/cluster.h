// Membership distributions of cases and attribute values, the hard cluster
// assignment derived from them.
#ifndef VESK_MODEL_CLUSTER_H
#define VESK_MODEL_CLUSTER_H

#include <cstdio>

struct Membership {
  long double **prob_mem_case;    // [K][E]
  long double **prob_compo_case;  // [K][E]
  long double *prob_case;         // [E]
  long double ***prob_mem_w;      // [K][A][V_a]
  long double ***prob_compo_w;    // [K][A][V_a]
  long double **prob_w;           // [A][V_a]
  long double ***prob_mem_g;      // [K][G][E]
  long double ***prob_compo_g;    // [K][G][E]
  long double **prob_g;           // [G][E]
};
extern Membership member;

struct Clusters {
  int *cluster_case_pred;       // [E]
  int **cluster_w_pred;         // [A][V_a]
  int **cluster_g_pred;         // [G][E]
  int *cluster_case_freq;       // [K]
  int **cluster_w_freq;         // [A][K]
  int **cluster_g_freq;         // [G][K]
  int **cluster_case;           // [K][members]
  int ***cluster_w;             // [A][K][members]
  int ***cluster_g;             // [G][K][members]
};
extern Clusters clusters;

void alloc_prob_mem();
void release_prob_mem();
void compute_case_member_prob();
void compute_attr_member_prob();
// The hard assignment of cases, attribute values and Gaussian groups to the
// class of highest membership.
void compute_clusters();
void release_cluster();

#endif
