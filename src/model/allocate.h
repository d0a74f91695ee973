// The mixture model: parameter set with its best and optimal copies, the
// hyperparameters, the E-step arrays, the per-iteration traces, the restart
// bookkeeping and the scores. One instance, `model`.
#ifndef VESK_MODEL_ALLOCATE_H
#define VESK_MODEL_ALLOCATE_H

#include "base/allocate_matrix.h"

struct Model {
  // working parameter set (K = settings.num_class)
  long double *param_c;     // [K]
  long double ***param_w;   // [K][A][V_a]
  Vector **param_u;         // [K][G]
  Matrix **param_s;         // [K][G]
  Matrix **param_p;         // [K][G], inverse of param_s
  long double **param_sdet; // [K][G], determinant of param_s

  // best restart within one K, and best model over the K range
  long double *param_c_best, ***param_w_best;
  Vector **param_u_best;
  Matrix **param_s_best;
  long double *param_c_opt, ***param_w_opt;
  Vector **param_u_opt;
  Matrix **param_s_opt;
  int num_class_opt;

  // expectations filled by the E-step
  long double *expect_c, ***expect_w;
  Vector **expect_u;
  Matrix **expect_s;

  // probabilities per class and distinct case (class-major), and per case
  long double **prob_comp, **prob_cond, *prob_incomp;

  // per-iteration traces and their best copies ("lambda" is the objective)
  long double *loglike, *lambda_, *log_prior, *log_itemp;
  long double *loglike_best, *lambda_best, *log_prior_best, *log_itemp_best;
  int ll_size;
  long double itemp, itemp_best;
  long double final_loglike, final_lambda, final_log_prior, final_lambda_best;

  // restart bookkeeping, one row per K value tried
  int num_kvalue;
  unsigned int **log_seed;
  int **log_num_iterate;
  long double **log_final_lambda;
  int *log_r_best;

  // scores per K value tried
  long double *ic, *bic, *autoclass;

  // hyperparameters (file-read arrays exist only with --read-hparam)
  long double *hparam_c;       // [K]
  long double ***hparam_w;     // [K][A][V_a]
  long double *hparam_tau;     // [K]
  long double **hparam_alpha_w;// [K][G]
  Vector **hparam_u;           // [K][G]
  Matrix **hparam_s, **hparam_p;
  long double **hparam_sdet;
};
extern Model model;

void alloc_param();
void release_param();
void alloc_param_best();
void release_param_best();
void save_param_best();
void restore_param_best();
void save_param_opt();
void restore_param_opt();
void release_param_opt();
void alloc_prob();
void release_prob();
void alloc_expect();
void release_expect();
void alloc_loglike();
void release_loglike();
void expand_loglike_all();
void alloc_ic();
void release_ic();
void alloc_seed();
void release_seed();
void alloc_hparam_gauss();
void release_hparam_gauss();
// Per-class arrays for hyperparameters read from a file.
void alloc_hparam_read();
void release_hparam_read();

// Hyperparameter accessors, whichever source they come from.
long double get_hparam_c(int k);
long double get_hparam_w(int k, int a, int v);
long double get_tau(int k);
long double get_alpha_w(int k, int g, int d);

void set_smooth_auto();
void initialize_hparam_gauss();
void check_read_hparam();

// A set of class, value, mean and covariance arrays for k classes (the shape
// of the saved copies and of the expectations), and a copy between two sets.
void new_param_set(long double *&c, long double ***&w, Vector **&u, Matrix **&s, int k);
void free_param_set(long double *&c, long double ***&w, Vector **&u, Matrix **&s, int k);
void copy_param_set(long double *c, long double ***w, Vector **u, Matrix **s, const long double *c0,
                    long double ***w0, Vector **u0, Matrix **s0, int k_size);

// Recomputes param_p and param_sdet of every class and group from param_s;
// returns 0 on success, 1 when an inversion failed.
int refresh_precisions();

#endif
