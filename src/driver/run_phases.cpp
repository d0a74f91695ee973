// The phases after the fit (memberships, clusters, evaluation, ranking,
// dissimilarities) with their clocks and result files, and the run that reads
// a parameter file instead of fitting.
#include <cstdio>

#include "analysis/dissim.h"
#include "analysis/eval.h"
#include "analysis/rank.h"
#include "base/misc.h"
#include "base/result_file.h"
#include "driver/run.h"
#include "input/read_freq.h"
#include "input/read_param.h"
#include "input/report.h"
#include "model/allocate.h"
#include "model/cluster.h"
#include "model/em.h"
#include "model/install.h"
#include "model/report.h"
#include "output/print.h"
#include "settings/settings.h"
#include "smem/report.h"

PhaseTimes run_times;

namespace {

void write_cluster_file() {
  FILE *fp = open_output(settings.fname_cluster);
  print_cluster(fp);
  close_output(fp);
}

// The evaluation against the answer classes, timed as a phase of its own.
void evaluate_clusters() {
  print_msg("Evaluating clusters...");
  stamp_time(&run_times.stime_eval, &run_times.stime_lap_eval);
  alloc_eval();
  compute_eval();
  FILE *fp = open_output(settings.fname_eval);
  print_eval(fp);
  close_output(fp);
  release_eval();
  stamp_time(&run_times.etime_eval, &run_times.etime_lap_eval);
  print_msg("done\n");
}

void read_phase_no_em() {
  stamp_time(&run_times.stime_read, &run_times.stime_lap_read);
  read_param();
  read_cases();
  stamp_time(&run_times.etime_read, &run_times.etime_lap_read);
}

}  // namespace

void install_report_hooks() {
  model_report = {print_param,           print_decrease,          print_complete_prob,
                  print_incomplete_prob, print_conditional_prob, print_expectation};
  smem_report = {print_decrease_sm, print_jmerge, print_jsplit};
  input_report = {print_hparam, print_attr_list};
}

void read_cases() {
  read_freq();
  print_reader_sections(settings.fp_log);
}

void set_smooth_auto() {
  set_autoclass_smoothing();
  if (settings.mode_smooth_auto) print_smooth(settings.fp_log);
  set_smooth_strictness();
}

// Membership distributions of cases and attribute values, always computed
// (clusters, ranking and dissimilarities read them); the membership file and
// its timing only with --mem-prob.
void member_main() {
  if (settings.mode_memp) {
    print_msg("Computing membership distributions...");
    stamp_time(&run_times.stime_memp, &run_times.stime_lap_memp);
  }
  alloc_prob_mem();
  alloc_prob();
  compute_case_member_prob();
  compute_attr_member_prob();
  release_prob();
  if (!settings.mode_memp) return;
  FILE *fp = open_output(settings.fname_memp);
  print_case_member_prob(fp);
  if (settings.mode_show_attr_memp) print_attr_member_prob(fp);
  close_output(fp);
  stamp_time(&run_times.etime_memp, &run_times.etime_lap_memp);
  print_msg("done\n");
}

void cluster_main() {
  stamp_time(&run_times.stime_cluster, &run_times.stime_lap_cluster);
  if (settings.mode_show_attr_cluster)
    print_msg("Clustering cases and attribute values...");
  else
    print_msg("Clustering cases...");
  if (settings.cl_type != 1) die("Internal error: Unsupported clustering method\n");
  compute_clusters();
  write_cluster_file();
  print_cluster_freq(settings.fp_log);
  stamp_time(&run_times.etime_cluster, &run_times.etime_lap_cluster);
  print_msg("done\n");
  if (settings.mode_eval) evaluate_clusters();
}

void rank_main() {
  print_msg("Ranking relevant cases/attvals...");
  stamp_time(&run_times.stime_rank, &run_times.stime_lap_rank);
  alloc_rank();
  compute_rank();
  FILE *fp = open_output(settings.fname_rank);
  print_rank(fp);
  close_output(fp);
  release_rank();
  stamp_time(&run_times.etime_rank, &run_times.etime_lap_rank);
  print_msg("done\n");
}

void dissim_main() {
  print_msg("Computing dissimilarities between attribute values...");
  stamp_time(&run_times.stime_dissim, &run_times.stime_lap_dissim);
  FILE *fp = open_output(settings.fname_dissim);
  print_dissim_case(fp);
  if (settings.mode_nominal)
    for (int a = 0; a < settings.tuple_size; a++)
      if (discrete_index(a) >= 0) print_dissim_cat(fp, a);
  if (settings.mode_gauss)
    for (int g = 0; g < settings.gauss_size; g++) print_dissim_gauss(fp, g);
  close_output(fp);
  stamp_time(&run_times.etime_dissim, &run_times.etime_lap_dissim);
  print_msg("done\n");
}

void no_em_main() {
  read_phase_no_em();
  set_smooth_auto();
  model.num_kvalue = 1;  // the size section describes the one model read
  print_size(settings.fp_log);
  member_main();
  cluster_main();
  if (settings.mode_rank) rank_main();
  if (settings.mode_dissim) dissim_main();
  release_cluster();
  release_param();
  release_prob_mem();
  print_time(settings.fp_log, run_times);
}
