// Split-and-merge EM: the merge and split criteria, the ordered list of
// candidate operations, partial EM over the three classes of a candidate, and
// the loop that tries candidates and keeps the operations that improve the
// objective. One instance of the state, `smem`, live during one call of
// smem_iterate.
#ifndef VESK_SMEM_SMEM_H
#define VESK_SMEM_SMEM_H

#include "base/allocate_matrix.h"

// Merge classes i < j into i, split class k into j and k.
struct SmCandidate {
  int i, j, k;
};

struct Smem {
  // criteria of the current operation
  Matrix jmerge;            // K x K, upper triangle (i < j)
  Vector jsplit;            // [K]
  long double *expect_c_sm; // [K] expected class counts of the saved model
  SmCandidate *sm_candidate;
  int num_candidate;        // K (K-1) (K-2) / 2

  // --n-jsplit: run length of the current merge pair, and the merge pair of
  // the most recently tried candidate (-1 when none), kept across operations
  int jsplit_run;
  int last_i, last_j;

  // operation rows o = 0..num_sm (row 0: the initial EM), update t
  int num_row;
  long double **loglike_sm, **log_prior_sm, **lambda_sm, **log_itemp_sm;
  int *ll_sm_size;           // capacity of each row
  int *num_iterate_sm_part;  // [num_row]
  int *num_iterate_sm_full;  // [num_row]
  int *num_result_rejected;  // [num_sm]
  int *num_result_skipped;   // [num_sm]

  // the parameter set saved at the start of an operation
  long double *param_c_sm, ***param_w_sm;
  Vector **param_u_sm;
  Matrix **param_s_sm;

  // partial EM over the candidate's classes part_class[0..2] = i, j, k
  int part_class[3];
  long double *param_c_part;     // [3] their probabilities after initialisation
  long double *prob_incomp_part; // [E] share of the other classes in P(x)
};
extern Smem smem;

// ---- criteria and candidates (criteria.cpp) ----
void alloc_jmerge();
void release_jmerge();
void alloc_jsplit();
void release_jsplit();
void alloc_candidate();
void release_candidate();
// Both need the posteriors (prob_cond) and expect_c_sm of the current model.
void compute_jmerge();
void compute_jsplit();
void compute_jsplit_log();
void compute_jsplit_nolog();
void check_jmerge(int i, int j);
void check_jsplit(int k);
// Generates the triples in their fixed order, then sorts them.
void build_candidate();
bool compare_candidate(const SmCandidate &a, const SmCandidate &b);
void sort_candidate();
// Applies the --n-jsplit and --min-c-param filters to the candidate at
// position pos of the sorted list; true when it is skipped.
bool skip_candidate(int pos);

// ---- partial EM (partial.cpp) ----
void alloc_param_part();
void release_param_part();
void alloc_prob_part();
void release_prob_part();
void initialize_param_part(const SmCandidate &c);
void compute_complete_prob_part();
void save_incomplete_prob_part();
void compute_incomplete_prob_part();
void compute_incomplete_prob_part_log();
void compute_incomplete_prob_part_nolog();
void compute_conditional_prob_part();
void compute_expect_part();
void update_param_part();
// Partial EM of the candidate on row o, from the already recorded update 0
// up to `limit`; returns the update count reached.
int smem_iterate_part(int o, int limit);

// ---- the loop (smem.cpp) ----
void alloc_param_sm();
void release_param_sm();
void save_param_sm();
void restore_param_sm();
void alloc_ll_sm_size();
void alloc_loglike_sm();
void alloc_log_itemp_sm();
void release_loglike_sm();
void expand_loglike_sm_all(int o);
// The inverse-temperature row o (annealing only), else null.
long double *log_itemp_sm_row(int o);
void alloc_num_iterate_sm();
void release_num_iterate_sm();
void alloc_num_result_sm();
void release_num_result_sm();
// Records the objective of update t on row o from the current incomplete
// probabilities (log likelihood divided by itemp; plus the log prior).
void record_loglike_sm(int o, int t, long double itemp);
// Full EM from the current parameters on row o from update `start`.
int smem_iterate_full(int o, int start, int limit, long double itemp);
// Every array of the loop for the current K and num_sm, with the filter
// state reset; and their release.
void alloc_smem();
void release_smem();
// Phase 2: up to num_sm operations from the current model (the best
// restart); leaves the kept model and its final values in place.
void run_sm_operations(int limit);
// How a tried candidate is judged: its final objective against the one kept
// (an improvement must exceed --min-sm-imp), then, with --min-new-c-param,
// the probabilities of its three classes.
enum SmDecision { SM_ACCEPT, SM_NO_IMPROVEMENT, SM_SMALL_IMPROVEMENT, SM_SMALL_CLASS };
SmDecision judge_candidate(const SmCandidate &c, long double l_new, long double l_last);
// Fits the kidx-th class count: restarts, then split-merge operations. The
// counts and traces stay until release_smem.
void smem_iterate(int kidx);
void release_smem();

#endif
