// A small model for the E-step, M-step, EM and score tests: a csv case table
// read by the real reader, its sample statistics, and the model arrays for
// K classes. Discrete value ids follow first appearance; a field after the
// last attribute is the case count.
#ifndef VESK_TESTS_EM_FIXTURE_H
#define VESK_TESTS_EM_FIXTURE_H

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "input/stat.h"
#include "driver/init.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "test_util.h"

namespace em_fixture {

// Reads `text` with `n_attr` columns, the Gaussian groups named as --gauss
// names them (nullptr: every column discrete), and allocates the model.
inline void load(int k, int n_attr, const char *gauss, const std::string &text) {
  static FILE *quiet = tmpfile(), *log = tmpfile();
  setup_process_state();
  settings.tuple_size = n_attr;
  if (gauss != nullptr) add_gauss(gauss);
  build_attr_info();
  std::string path = "/tmp/vesk_em_" + std::to_string(getpid()) + "_freq.csv";
  FILE *fp = fopen(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), fp);
  fclose(fp);
  snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s", path.c_str());
  settings.format_in = FORMAT_CSV;
  settings.format_out = FORMAT_TXT;
  settings.fp_msg = quiet;
  read_freq();
  remove(path.c_str());
  compute_stats();
  settings.fp_log = log;
  settings.fp_msg = nullptr;  // failures are checked on standard error
  model.num_class = k;
  settings.mode_set_seed = 1;
  settings.num_itemp = 13;  // 0.1 raised by 1.2 until it reaches 1
  int na = settings.tuple_size_d;
  settings.smooth_w = static_cast<long double *>(calloc(na + 1, sizeof(long double)));
  settings.mode_smooth_auto_w = static_cast<int *>(calloc(na + 1, sizeof(int)));
  model.smooth.w.assign(na + 1, 0);
  for (int a = 0; a < na; a++) settings.mode_smooth_auto_w[a] = 1;
  alloc_ic();
  alloc_seed();
  alloc_param();
  alloc_param_best();
  alloc_hparam_gauss();
  alloc_prob();
  alloc_expect();
  alloc_loglike();
}

// Releases the model arrays and the statistics; the case table stays.
inline void unload() {
  release_loglike();
  release_expect();
  release_prob();
  release_hparam_gauss();
  release_param_best();
  release_param();
  release_seed();
  release_ic();
  release_stats();
}

}  // namespace em_fixture

#endif
