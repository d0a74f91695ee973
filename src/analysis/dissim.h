// Dissimilarities between cases, between the values of each discrete
// attribute and between cases seen through each Gaussian group: the
// Kullback-Leibler divergence of their class-membership distributions, for
// every ordered pair, written to the dissimilarity file as it is computed.
#ifndef VESK_ANALYSIS_DISSIM_H
#define VESK_ANALYSIS_DISSIM_H

#include <cstdio>

// The rows of the three section families (their headers are the writer's),
// from the membership arrays of the current model, written as they are
// computed; each fails (after writing every row before the failing pair) when
// a divergence is undefined.
void write_dissim_case_rows(FILE *fp);
void write_dissim_cat_rows(FILE *fp, int attr);
void write_dissim_gauss_rows(FILE *fp, int g);

#endif
