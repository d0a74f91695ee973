// Evaluation of the hard clustering against the answer classes: the
// contingency table of predicted clusters and answer classes, purity,
// pair-counting and information-theoretic measures, and the evaluation file.
#ifndef VESK_ANALYSIS_EVAL_H
#define VESK_ANALYSIS_EVAL_H

struct Evaluation {
  // [K][A]: occurrence counts of the entries of cluster k and answer class a
  int **cluster_case_freq_joint;
  long double purity, purity_inv, purity_f;
  long double rand_index, wallance1, wallance2, wallance_f, fowlkes_mallows;
  long double adj_rand_index, jaccard, mirkin;
  long double nmi_score, vi_score, nvi_score;
};
extern Evaluation eval;

void alloc_eval();
void release_eval();
// Fills the contingency table from the predicted clusters of the entries and
// computes every measure from it, the cluster sizes and the answer-class
// sizes.
void compute_eval();

#endif
