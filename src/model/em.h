// The EM fit: E-step, M-step with log prior and log likelihood, the EM
// iteration with restarts and annealing.
#ifndef VESK_MODEL_EM_H
#define VESK_MODEL_EM_H

// E-step
void compute_complete_prob();
void compute_complete_prob_daem();
// The scale variants behind the two dispatchers above.
void compute_complete_prob_log();
void compute_complete_prob_nolog();
void compute_complete_prob_daem_log();
void compute_complete_prob_daem_nolog();
void compute_incomplete_prob();
void compute_conditional_prob();
void compute_expect();
void compute_expect_gauss();
void compute_expect_gauss0(int k, int e);
// True when probabilities are kept as logarithms (--log-scale with strict smoothing).
int use_log_scale();
// Per-class building blocks (partial EM over a few classes): the complete-data
// values (untempered, on the scale of use_log_scale) and all expectations of
// the n listed classes only, the same bits as the whole passes give them.
void compute_complete_prob_classes(const int *classes, int n);
void compute_expect_classes(const int *classes, int n);

// M-step and objective
void update_param();
// Discrete and Gaussian parameters of class k from its expectations (no class
// probability, no precision refresh).
void update_param_one(int k);
// Stops on a NaN or infinite value after writing the parameters to the log,
// naming `where` and the matching message.
void check_score(long double x, const char *where, const char *nan_msg, const char *inf_msg);
long double compute_loglike();
long double compute_log_prior();

// EM driver
enum EmVerdict { EM_GO_ON, EM_END_RUN, EM_END_PHASE };
// Pieces of one EM run, shared with split-and-merge EM. evaluate_objective
// computes the complete (tempered below beta = 1 under annealing) and
// incomplete probabilities, then compute_objective the log likelihood divided
// by beta, the log prior (written only when smoothing) and their sum.
void evaluate_objective(long double beta, long double *ll, long double *lp, long double *lambda);
void compute_objective(long double beta, long double *ll, long double *lp, long double *lambda);
// True, after reporting it, when a covariance of class k is singular.
bool check_singular_class(int k, int iter, long double lambda);
// Tests on an objective trace and its inverse-temperature trace at iteration i.
bool is_decreased_trace(const long double *lambda, const long double *log_itemp, int i);
EmVerdict is_converged_daem_trace(const long double *lambda, const long double *log_itemp, int i, int max,
                                  long double beta);
// Stops the program with the decrease message at iteration i of the trace,
// the message beginning with `lead`.
[[noreturn]] void die_decrease(const char *lead, const long double *lambda, const long double *log_itemp, int i);
// Prints the end-of-run message with iteration i and objective lambda.
EmVerdict report_stop(const char *fmt, int i, long double lambda);
// Raises the inverse temperature after an annealing phase (progress mark
// unless quiet); false once it is 1 or without annealing.
bool raise_itemp(int quiet, int i, long double *beta);
void initialize_param();
// Unless a seed was given, draws a restart's seed and re-seeds the generator
// with it; returns the seed to log (0 with a given seed).
unsigned int reseed_restart();
int em_iterate_body(int r, int i0, int max, long double beta0);
// Fits the kidx-th class count with restarts; returns the last iteration of
// the best restart.
int em_iterate(int kidx);

#endif
