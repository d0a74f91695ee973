// The fitting run: read the cases, fit every K of the range (or the one K
// given), keep the best by the score, then the phases after the fit.
#include <cstdio>

#include "input/stat.h"
#include "base/misc.h"
#include "base/result_file.h"
#include "driver/run.h"
#include "input/read_freq.h"
#include "input/read_hparam.h"
#include "model/install.h"
#include "model/allocate.h"
#include "model/cluster.h"
#include "model/em.h"
#include "model/ic.h"
#include "output/print.h"
#include "settings/settings.h"
#include "smem/smem.h"

namespace {

void score_model(int kidx) {
  if (settings.ic_type != 1 && settings.ic_type != 2)
    die("Internal error: Unsupported information criterion\n");
  model.bic[kidx] = compute_bic();
  if (settings.ic_type == 2) model.autoclass[kidx] = compute_cs();
  model.ic[kidx] = settings.ic_type == 1 ? model.bic[kidx] : model.autoclass[kidx];
}

// Fits the current K: split-and-merge EM when enabled and a split-merge
// triple exists (K >= 3), plain EM with restarts otherwise.
void fit_model(int kidx) {
  if (settings.num_sm > 0 && model.num_class >= 3) {
    smem_iterate(kidx);
    print_num_iterate_sm(settings.fp_log);
    print_num_result_sm(settings.fp_log);
    print_loglike_sm(settings.fp_log);
    release_smem();
  } else {
    print_loglike(settings.fp_log, em_iterate(kidx));
  }
}

void alloc_fit_arrays() {
  alloc_prob();
  alloc_expect();
  alloc_loglike();
}

void release_fit_arrays() {
  release_param_best();
  release_prob();
  release_expect();
  release_loglike();
}

void fit_k_range() {
  print_size(settings.fp_log);
  long double best = 0;
  for (int k = settings.kmin, kidx = 0; k <= settings.kmax; k += settings.kstep, kidx++) {
    model.num_class = k;
    print_msg("|Classes| = %d:\n", k);
    set_smooth_auto();
    alloc_param();
    alloc_param_best();
    alloc_hparam_gauss();
    initialize_hparam_gauss();
    alloc_fit_arrays();
    fit_model(kidx);
    score_model(kidx);
    release_fit_arrays();
    if (kidx == 0 || model.ic[kidx] > best) {
      if (kidx > 0) release_param_opt();
      save_param_opt();
      best = model.ic[kidx];
      print_msg("  %s = %.Nf (temporarily optimal)\n", settings.ic_type_str, model.ic[kidx]);
    } else {
      print_msg("  %s = %.Nf\n", settings.ic_type_str, model.ic[kidx]);
    }
    release_param();
    release_hparam_gauss();
  }
  print_msg("Optimal |Classes| = %d\n", model.num_class_opt);
  restore_param_opt();
  release_param_opt();
}

void setup_single_hparam() {
  if (settings.mode_read_hparam) {
    read_hparam();
    check_read_hparam();
    return;
  }
  set_smooth_auto();
  alloc_hparam_gauss();
  initialize_hparam_gauss();
}

void fit_single_k() {
  model.num_class = settings.num_class;
  // A hyperparameter file sets the class count, so it is read first.
  setup_single_hparam();
  print_msg("#classes = %d:\n", model.num_class);
  print_size(settings.fp_log);
  alloc_param();
  alloc_fit_arrays();
  alloc_param_best();
  fit_model(0);
  score_model(0);
  release_fit_arrays();
  model.num_class_opt = model.num_class;
  print_msg("  %s = %.Nf\n", settings.ic_type_str, model.ic[0]);
}

void write_param_file() {
  FILE *fp = open_output(settings.fname_param);
  print_param(fp);
  close_output(fp);
}

void read_phase() {
  stamp_time(&run_times.stime_read, &run_times.stime_lap_read);
  read_cases();
  compute_stats();
  print_stats(settings.fp_log);
  stamp_time(&run_times.etime_read, &run_times.etime_lap_read);
}

void fit_phase() {
  stamp_time(&run_times.stime_em, &run_times.stime_lap_em);
  if (settings.mode_search_num_class && !settings.mode_read_hparam) fit_k_range();
  else fit_single_k();
  stamp_time(&run_times.etime_em, &run_times.etime_lap_em);
}

void release_run() {
  release_cluster();
  release_prob_mem();
  release_param();
  if (settings.mode_read_hparam) release_hparam_read();
  else release_hparam_gauss();
  release_seed();
  release_ic();
  release_stats();
}

}  // namespace

void em_main() {
  read_phase();
  alloc_ic();
  alloc_seed();
  fit_phase();
  print_ic(settings.fp_log);
  print_seed(settings.fp_log);
  write_param_file();
  member_main();
  if (settings.mode_dissim) dissim_main();
  if (settings.mode_rank) rank_main();
  cluster_main();
  print_time(settings.fp_log, run_times);
  release_run();
}
