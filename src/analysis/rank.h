// Relevance ranking: for every class, from the most to the least probable,
// the cases, discrete attribute values and Gaussian groups of cases ordered
// by their membership probability in that class.
#ifndef VESK_ANALYSIS_RANK_H
#define VESK_ANALYSIS_RANK_H

struct Ranking {
  int *rank_class;      // [K] classes by decreasing P(k)
  int **rank_mem_case;  // [K][E] entries by decreasing P(k|x)
  int ***rank_mem_w;    // [K][D][V_d] value ids by decreasing P(k|x_d)
  int ***rank_mem_g;    // [K][G][E] entries by decreasing P(k|group)
};
extern Ranking ranking;

// 0..n-1 ordered by decreasing key; equal keys keep their index order and
// NaN keys come last.
void rank_indices(int *idx, int n, const long double *key);

void alloc_rank();
void release_rank();
void compute_rank();

#endif
