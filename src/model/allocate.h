// The mixture model: parameter set with its best and optimal copies, the
// hyperparameters, the E-step arrays, the per-iteration traces, the restart
// bookkeeping, the scores, and the values derived from the parameters for the
// per-case passes. One instance, `model`.
#ifndef VESK_MODEL_ALLOCATE_H
#define VESK_MODEL_ALLOCATE_H

#include <vector>

#include "base/allocate_matrix.h"
#include "base/scratch.h"
#include "model/gauss.h"

// ---- values derived from the parameters, shared by the per-case passes ----

// One missing-value pattern of a Gaussian group: which components are seen.
struct MissPattern {
  std::vector<int> observed;  // per component: 1 when observed
  std::vector<int> obs, mis;  // positions of the observed and of the missing components
};

// Conditional moments of the missing components of one pattern given the
// observed ones, under one class: the imputed mean of missing component m is
// mu_m + sum_c gain[m][c] (x_oc - mu_oc), and cov holds S_mm - S_mo S_oo^-1 S_om
// in the rows and columns of the missing components.
// A group of two components with one missing uses the scalar form instead:
// mu_m + (x_o - mu_o) s_mo / s_oo and cov[0] = s_mm - s_mo^2 / s_oo.
struct ImputeForm {
  int singular;                   // the observed block cannot be inverted
  int scalar;                     // the two-component form
  long double s_mo, s_oo;         // scalar form
  std::vector<long double> gain;  // [missing][observed]
  std::vector<long double> cov;   // d x d, zero outside the missing block
  std::vector<const long double *> cov_rows;
};

struct DerivedValues {
  std::vector<long double> seen, now;  // bit copies of the parameters they were made from
  int log_scale;                       // whether the logarithms below were made
  int num_values;                      // discrete values over all attributes
  std::vector<int> w_offset;           // [A]: first flat index of each attribute's values
  std::vector<long double> log_c;      // [K]: logl(param_c)
  std::vector<long double> log_w;      // [K][num_values]: logl(param_w), flattened
  std::vector<GaussForm> full;         // [K*G]: density of a fully observed group
  std::vector<std::vector<MissPattern>> patterns;  // [G][P]
  std::vector<ScratchArray<int>> case_pattern;     // [G][E]: pattern of a partly observed group, else -1
  std::vector<std::vector<GaussForm>> marginal;    // [G][K*P]: density of the observed part
  std::vector<std::vector<ImputeForm>> impute;     // [G][K*P]
};

// The smoothing of the K being fitted: the option values with the AutoClass
// rules applied for that K (or what a hyperparameter file implies), and
// whether they make the fit a MAP fit.
struct Smoothing {
  long double c, tau;          // class pseudo count; Gaussian prior tau
  std::vector<long double> w;  // per discrete attribute: pseudo count
  int any;                     // some prior is used: objective and traces are a posteriori
  int strict;                  // every pseudo count positive (log-scale passes, AutoClass score)
  int gauss;                   // Normal-Wishart priors on the Gaussian groups
};

struct Model {
  // K of the working parameter set: the K being fitted, or the K read
  int num_class;
  // smoothing constants of that K
  Smoothing smooth;

  // working parameter set (K = num_class)
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

  // Derived values; valid only right after refresh_derived().
  DerivedValues derived;
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

// The smoothing constants of the current K (model.smooth): the option values
// with the AutoClass rules applied (set_autoclass_smoothing), then the
// strictness flags, which fail with the AutoClass score unless every
// constant is positive.
void set_autoclass_smoothing();
void set_smooth_strictness();
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

// Brings model.derived up to date with the current parameters and case
// table: the logarithms of param_c and param_w (log scale only), one prepared
// density per class and group, and per missing-value pattern of each group
// the marginal density and the conditional moments used for imputation.
// Every pass that reads model.derived calls it first (the E-step entry
// points and the membership computation do so themselves), so code that
// changes parameters directly needs nothing more than to call those entry
// points afterwards. It recomputes only when a parameter bit, the scale or a
// missing pattern changed; preparing never fails: a singular block is marked
// and reported by the pass that meets it, in the order a case-by-case
// evaluation would have met it.
void refresh_derived();
// The pattern of a group whose components are missing where miss[i] != 0.
void make_pattern(MissPattern *p, const int *miss, int d);
// The imputation moments of pattern `pat` of group g under class k; a group
// of three or more components needs the inverse of the observed block:
// `inverted` when given, else it is made here.
void prepare_impute(ImputeForm *f, int k, int g, const MissPattern &pat,
                    const InvertedBlock *inverted = nullptr);

#endif
