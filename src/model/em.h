// The EM fit: E-step, M-step with log prior and log likelihood, the EM
// iteration with restarts and annealing, and the main run over the K range.
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
long double compute_loglike();
long double compute_log_prior();

// EM driver
void initialize_param();
int em_iterate_body(int r, int i0, int max, long double beta0);
void em_iterate(int kidx);

// The whole EM run: read, fit over the K range, write results.
void em_main();

#endif
