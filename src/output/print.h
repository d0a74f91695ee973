// Writers of the result sections, one per section family. Each takes the
// stream to write to. The writers are grouped by concern into several source
// files: print.cpp (settings), print_stat.cpp (case table and statistics),
// print_em.cpp (the fit), print_smem.cpp (split-and-merge EM),
// print_param.cpp (parameter and hyperparameter files), print_cluster.cpp
// (memberships, clusters and timing), print_rank.cpp (ranking),
// print_eval.cpp (evaluation).
#ifndef VESK_OUTPUT_PRINT_H
#define VESK_OUTPUT_PRINT_H

#include <cstdio>

#include "base/allocate_matrix.h"

// settings (print.cpp)
void print_settings(FILE *fp);
void print_model(FILE *fp);

// case table and statistics (print_stat.cpp)
void print_case_freq_list(FILE *fp);
void print_attr_freq_list(FILE *fp);
void print_ans_class_list(FILE *fp);
// What the case reader writes to the log: the answer classes with --eval, and
// the case and value lists with --verbose.
void print_reader_sections(FILE *fp);
// The dissimilarity sections: cases, the values of discrete attribute attr,
// cases seen through Gaussian group g.
void print_dissim_case(FILE *fp);
void print_dissim_cat(FILE *fp, int attr);
void print_dissim_gauss(FILE *fp, int g);
void print_basic_stats(FILE *fp);
void print_sample_stats(FILE *fp);
void print_regular_stat(FILE *fp);
// The basic statistics and, with Gaussian groups, the sample and regular
// statistics; nothing without a stream.
void print_stats(FILE *fp);

// the fit (print_em.cpp)
void print_size(FILE *fp);
void print_smooth(FILE *fp);
void print_ic(FILE *fp);
void print_seed(FILE *fp);
void print_loglike(FILE *fp, int last_iter);
// The column names of an objective trace from "Num. of updates" on.
void add_loglike_cols(bool map, bool daem);
void print_decrease(FILE *fp, int restart, int iter);
// The decrease report: `stage` names the row that carries stage_no
// ("Restart" or "SplitMergeOperation"), then the trace values at iter - 1 and iter.
void print_decrease_rows(FILE *fp, const char *stage, int stage_no, int iter, const long double *loglike,
                         const long double *lambda);
void print_complete_prob(FILE *fp);
void print_incomplete_prob(FILE *fp);
void print_conditional_prob(FILE *fp);
void print_expectation(FILE *fp);

// split-and-merge EM (print_smem.cpp)
void print_num_iterate_sm(FILE *fp);
void print_num_result_sm(FILE *fp);
void print_loglike_sm(FILE *fp);
void print_decrease_sm(FILE *fp, int op, int iter);
void print_jmerge(FILE *fp);
void print_jsplit(FILE *fp);

// parameter and hyperparameter files (print_param.cpp)
void print_param(FILE *fp);
void print_hparam(FILE *fp);
void print_attr_list(FILE *fp);
void print_gauss_moments(FILE *fp, const char *prefix, int g, int group_first, Vector *const *u,
                         Matrix *const *s);

// memberships, clusters and timing (print_cluster.cpp)
void print_case_member_prob(FILE *fp);
void print_attr_member_prob(FILE *fp);
void print_cluster(FILE *fp);
void print_cluster_freq(FILE *fp);

// The clocks of the run's phases (CPU and wall clock), start and end.
struct PhaseTimes {
  long double stime_read, etime_read, stime_em, etime_em, stime_memp, etime_memp;
  long double stime_cluster, etime_cluster, stime_eval, etime_eval;
  long double stime_rank, etime_rank, stime_dissim, etime_dissim;
  long double stime_lap_read, etime_lap_read, stime_lap_em, etime_lap_em;
  long double stime_lap_memp, etime_lap_memp, stime_lap_cluster, etime_lap_cluster;
  long double stime_lap_eval, etime_lap_eval, stime_lap_rank, etime_lap_rank;
  long double stime_lap_dissim, etime_lap_dissim;
};
void print_time(FILE *fp, const PhaseTimes &t);

// relevance ranking (print_rank.cpp) and evaluation (print_eval.cpp); the
// dissimilarity sections are written by their own module (analysis/dissim.h)
// as they are computed
void print_rank(FILE *fp);
void print_rank_ml(FILE *fp);
void print_eval(FILE *fp);

#endif
