// Model scores: BIC and the Cheeseman-Stutz score.
#ifndef VESK_MODEL_IC_H
#define VESK_MODEL_IC_H

long double compute_bic();
long double compute_cs();
long long count_free_params();
// Parts of the free-parameter count for k classes (used by the size report).
long long count_class_params(int k);
long long count_discrete_params(int k);
long long count_gauss_params(int k);
// Log marginal likelihood of the expected complete data of class k, group g.
long double compute_complete_marginal_loglike_gauss(int k, int g);

#endif
