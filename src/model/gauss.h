// Multivariate normal log densities (and their exponentials): single
// observations, weighted sufficient statistics, and partly missing vectors.
#ifndef VESK_MODEL_GAUSS_H
#define VESK_MODEL_GAUSS_H

#include <vector>

#include "base/allocate_matrix.h"

long double lgauss(const long double *x, const long double *mu, long double *const *s);
long double gauss(const long double *x, const long double *mu, long double *const *s);
long double lgauss_prec(const long double *x, const long double *mu, long double *const *s,
                        long double *const *p, long double det);
long double gauss_prec(const long double *x, const long double *mu, long double *const *s,
                       long double *const *p, long double det);
long double lgauss_mv(const long double *x, const long double *mu, long double *const *s);
long double lgauss_bv(const long double *x, const long double *mu, long double *const *s);
long double lgauss_stat(long double n, const long double *sum, long double *const *q,
                        const long double *mu, long double *const *s);
long double gauss_stat(long double n, const long double *sum, long double *const *q,
                       const long double *mu, long double *const *s);
long double lgauss_stat_prec(long double n, const long double *sum, long double *const *q,
                             const long double *mu, long double *const *s, long double *const *p,
                             long double det);
long double gauss_stat_prec(long double n, const long double *sum, long double *const *q,
                            const long double *mu, long double *const *s, long double *const *p,
                            long double det);
long double lgauss_stat_mv_prec(long double n, const long double *sum, long double *const *q,
                                const long double *mu, long double *const *p, long double det);
long double lgauss_marginal(const long double *x, const long double *mu, long double *const *s,
                            const int *observed);
long double gauss_marginal(const long double *x, const long double *mu, long double *const *s,
                           const int *observed);
long double lgauss_cond(const long double *x, const long double *mu, long double *const *s,
                        const int *observed);
long double gauss_cond(const long double *x, const long double *mu, long double *const *s,
                       const int *observed);

// ---- prepared densities ----
//
// A Gaussian log density prepared for many evaluations: what depends only on
// the mean and the covariance (closed-form factors, the packed precision, the
// log-determinant term) is computed once, with exactly the operations of the
// direct forms above, so a prepared evaluation and a direct call give the same
// bits. Preparing may use the matrix pools; evaluating touches no shared state
// and may run on several threads at once.

enum GaussFault { GAUSS_OK = 0, GAUSS_NAN, GAUSS_INF, GAUSS_SINGULAR };

struct GaussForm {
  int dim;                    // components evaluated
  int fault;                  // GAUSS_SINGULAR when the block could not be inverted
  int use_prec;               // 1: the precision form; 0: the closed forms of 1 and 2 dimensions
  std::vector<int> index;     // their positions in x
  std::vector<long double> mu;
  long double var;                       // dim 1
  long double sd1, sd2, rho, one_r2;     // dim 2
  long double lconst;                    // the constant term
  std::vector<long double> prec;         // dim >= 3: diagonal, then the strict upper triangle by rows
};

// From a mean, covariance, precision and determinant (the precision is used
// from three dimensions on, as lgauss_prec does).
void prepare_gauss_prec(GaussForm *f, const long double *mu, long double *const *s,
                        long double *const *p, long double det);
// The observed block of a covariance (the whole matrix when `observed` is
// null) and its inverse by invert_c, made once for every use.
struct InvertedBlock {
  Matrix packed;              // the observed rows and columns (null: the whole matrix)
  long double *const *block;  // the block that was inverted
  Matrix p;                   // its inverse
  long double det;            // its determinant, as invert_c returns it
  int failed;                 // invert_c set its failure flag
};
void invert_block(InvertedBlock *b, long double *const *s, const int *observed);
void release_block(InvertedBlock *b);

// The density of the observed components only (all flags set: the density
// lgauss computes). From three observed components on it needs the inverse
// of their block: `inverted` when given, else it inverts the block itself.
void prepare_gauss_marginal(GaussForm *f, const long double *mu, long double *const *s,
                            const int *observed, const InvertedBlock *inverted = nullptr);
// log density of x without checks (the form must have no fault).
long double lgauss_form(const GaussForm &f, const long double *x);
// The checked evaluation: GAUSS_OK with *out set, or the fault met first.
int lgauss_form_checked(const GaussForm &f, const long double *x, long double *out);
// Stops the run with the report of a fault, as the direct forms do.
[[noreturn]] void die_gauss_fault(int fault);

#endif
