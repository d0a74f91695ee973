// Checks and derived values of the settings once all options are read.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "driver/init.h"
#include "driver/vesk.h"

namespace {

// A valid EM run over three discrete attributes and two classes.
void reset_valid() {
  release_attr_info();
  release_smooth_nominal();
  set_default_settings();
  settings.tuple_size = 3;
  settings.num_class = 2;
}

TEST(Postproc, AcceptsBoundaryValues) {
  const std::vector<std::function<void()>> setups = {
      [] { settings.max_iterate = 0; },
      [] { settings.max_iterate = 10000; },
      [] { settings.prec_out = 1; settings.prec_msg = 36; },
      [] { settings.prec_out = 36; settings.prec_msg = 1; },
      [] { settings.num_class = 0; settings.mode_read_hparam = 1; },
  };
  for (const auto &setup : setups) {
    reset_valid();
    setup();
    postproc_args();
  }
}

struct FailCase {
  const char *message;
  std::function<void()> setup;
};

std::function<void()> class_range(int kmin, int kmax, int kstep) {
  return [=] {
    settings.mode_search_num_class = 1;
    settings.kmin = kmin;
    settings.kmax = kmax;
    settings.kstep = kstep;
  };
}

TEST(PostprocDeathTest, RejectsBadCombinations) {
  const FailCase cases[] = {
      {"Maximum number of iterations cannot exceed 10000\n", [] { settings.max_iterate = 10001; }},
      {"Illegal value for the number of iterations\n", [] { settings.max_init_iterate = -1; }},
      {"Illegal value for the number of initial parameter sets\n", [] { settings.num_init = 0; }},
      {"Illegal value for the number of split candidate to be examined\n",
       [] { settings.max_jsplit = -1; }},
      {"Illegal value for the lower limit of prob. of the class to be split/merge\n",
       [] { settings.min_param_c = -0.5L; }},
      {"Illegal value for the lower limit of updated prob. of the splited/merged class\n",
       [] { settings.min_new_param_c = 0; }},
      {"Illegal value for --prec-out option\n", [] { settings.prec_out = 37; }},
      {"Illegal value for --prec-msg option\n", [] { settings.prec_msg = 0; }},
      {"Illegal value for --id (-I) option\n", [] { settings.mode_id = 1, settings.attr_id = 3; }},
      {"Illegal value for --n-class (-k) option (Use -h for usage)\n", class_range(1, 4, 1)},
      {"Illegal value for --n-class (-k) option (Use -h for usage)\n", class_range(2, 3, 0)},
      {"Illegal value for --n-class (-k) option (Use -h for usage)\n", class_range(4, 3, 1)},
      {"Missing or illegal value for --alpha (-O) option\n",
       [] {
         add_gauss("0-1");
         settings.tau = 1.0L;
         settings.alpha_w = 2.0L;
       }},
      {"Illegal value for --weight-wallance option\n",
       [] {
         settings.mode_eval = 1, settings.attr_eval = 0;
         settings.weight_wallance = -1;
       }},
  };
  for (const FailCase &c : cases) {
    auto run = [&c]() {
      reset_valid();
      c.setup();
      postproc_args();
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(1), testing::Eq(std::string(c.message))) << c.message;
  }
}

}  // namespace
