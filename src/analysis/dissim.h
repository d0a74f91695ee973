// Dissimilarities between cases, between the values of each discrete
// attribute and between cases seen through each Gaussian group: the
// Kullback-Leibler divergence of their class-membership distributions, for
// every ordered pair, written to the dissimilarity file as it is computed.
#ifndef VESK_ANALYSIS_DISSIM_H
#define VESK_ANALYSIS_DISSIM_H

#include <cstdio>

// The three section families, from the membership arrays of the current
// model; each fails (after writing every row before the failing pair) when a
// divergence is undefined.
void print_dissim_case(FILE *fp);
void print_dissim_cat(FILE *fp, int attr);
void print_dissim_gauss(FILE *fp, int g);

#endif
