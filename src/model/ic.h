// Model scores: BIC and the Cheeseman-Stutz score.
#ifndef VESK_MODEL_IC_H
#define VESK_MODEL_IC_H

long double compute_bic();
long double compute_cs();
int count_free_params();

#endif
