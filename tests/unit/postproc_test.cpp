// Checks and derived values of the settings once all options are read.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "driver/init.h"
#include "driver/vesk.h"

namespace {

// A valid EM run over three discrete attributes and two classes.
void reset_valid() {
  set_default_settings();
  settings.tuple_size = 3;
  settings.num_class = 2;
}

TEST(Postproc, DerivesDefaults) {
  reset_valid();
  postproc_args();
  EXPECT_EQ(settings.mode_as_is, 1);
  EXPECT_EQ(settings.min_smem_improve, 10 * 0.001L);
  EXPECT_STREQ(settings.ic_type_str, "BIC");
  EXPECT_STREQ(settings.cl_type_str, "MEMBERSHIP_DIST");
  EXPECT_STREQ(settings.rel_m_str, "MEMBERSHIP_DIST");
  EXPECT_STREQ(settings.init_type_str_class, "NOISY_UNIFORM");
  EXPECT_STREQ(settings.init_type_str_word, "NOISY_UNIFORM");
  EXPECT_EQ(settings.tuple_size_d, 3);
  ASSERT_NE(settings.smooth_w, nullptr);
  EXPECT_EQ(settings.smooth_w[2], 0.0L);
  EXPECT_EQ(settings.mode_smooth_gauss, 0);
}

TEST(Postproc, SetsLabelsForOtherChoices) {
  const struct {
    int ic, init_c, init_a;
    const char *ic_str, *c_str, *a_str;
  } cases[] = {{2, 1, 1, "Cheeseman-Stutz score", "RANDOM", "RANDOM"},
               {1, 2, 3, "BIC", "NOISY_UNIFORM", "WORD_FREQ"}};
  for (const auto &c : cases) {
    reset_valid();
    settings.ic_type = c.ic;
    settings.init_type_class = c.init_c;
    settings.init_type_word = c.init_a;
    postproc_args();
    EXPECT_STREQ(settings.ic_type_str, c.ic_str);
    EXPECT_STREQ(settings.init_type_str_class, c.c_str);
    EXPECT_STREQ(settings.init_type_str_word, c.a_str);
  }
}

TEST(Postproc, CountsAnnealingSteps) {
  const struct {
    long double init, rate;
    int steps;
  } cases[] = {{0.1L, 1.2L, 13}, {1.0L, 1.2L, 1}, {0.5L, 1.5L, 2}, {0.01L, 10.0L, 3}};
  for (const auto &c : cases) {
    reset_valid();
    settings.mode_daem = 1;
    settings.itemp_init = c.init;
    settings.itemp_rate = c.rate;
    postproc_args();
    // Independent count: how many times the rate must be applied to reach 1.
    int k = 0;
    for (long double b = c.init; b * c.rate <= 1.0L + 1e-12L; b *= c.rate) k++;
    EXPECT_EQ(settings.num_itemp, c.steps);
    EXPECT_EQ(settings.num_itemp, k + 1);
  }
}

TEST(Postproc, AcceptsBoundaryValues) {
  const std::vector<std::function<void()>> setups = {
      [] { settings.max_iterate = 0; },
      [] { settings.max_iterate = 10000; },
      [] { settings.prec_out = 1; settings.prec_msg = 36; },
      [] { settings.prec_out = 36; settings.prec_msg = 1; },
      [] { settings.num_class = 0; settings.mode_read_hparam = 1; },
      [] { settings.num_class = 0; settings.mode_em = 0; },
      [] { settings.mode_search_num_class = 1; settings.kmin = 2; settings.kmax = 2; settings.kstep = 1; },
  };
  for (const auto &setup : setups) {
    reset_valid();
    setup();
    postproc_args();
  }
  SUCCEED();
}

TEST(Postproc, TurnsOnGaussianPriors) {
  reset_valid();
  add_gauss("0-1");
  settings.tau = 1.0L;
  settings.alpha_w = 2.5L;
  postproc_args();
  EXPECT_EQ(settings.mode_smooth_gauss, 1);
  EXPECT_EQ(settings.tuple_size_d, 1);
}

struct FailCase {
  const char *message;
  std::function<void()> setup;
};

TEST(PostprocDeathTest, RejectsBadCombinations) {
  const FailCase cases[] = {
      {"Maximum number of iterations cannot exceed 10000\n", [] { settings.max_iterate = 10001; }},
      {"Illegal value for the number of iterations\n", [] { settings.max_iterate = -1; }},
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
      {"Confliction between --id (-I) and --eval (-E) options\n",
       [] {
         settings.tuple_size = 4;
         settings.mode_id = settings.mode_eval = 1;
         settings.attr_id = settings.attr_eval = 2;
       }},
      {"Illegal value for --id (-I) option\n",
       [] { settings.mode_id = 1, settings.attr_id = 3; }},
      {"Illegal value for --eval (-E) option\n",
       [] { settings.mode_eval = 1, settings.attr_eval = -1; }},
      {"Missing or illegal --n-class (-k) option (Use -h for usage)\n",
       [] { settings.num_class = 1; }},
      {"Illegal value for --n-class (-k) option (Use -h for usage)\n",
       [] {
         settings.mode_search_num_class = 1;
         settings.kmin = 1, settings.kmax = 4, settings.kstep = 1;
       }},
      {"Illegal value for --n-class (-k) option (Use -h for usage)\n",
       [] {
         settings.mode_search_num_class = 1;
         settings.kmin = 4, settings.kmax = 3, settings.kstep = 1;
       }},
      {"Illegal value for --n-class (-k) option (Use -h for usage)\n",
       [] {
         settings.mode_search_num_class = 1;
         settings.kmin = 2, settings.kmax = 3, settings.kstep = 0;
       }},
      {"Missing or illegal value for --alpha (-O) option\n",
       [] {
         add_gauss("0-1");
         settings.tau = 1.0L;
         settings.alpha_w = 2.0L;
       }},
      {"Illegal value for --weight-purity option\n",
       [] {
         settings.mode_eval = 1, settings.attr_eval = 0;
         settings.weight_purity = -1;
       }},
      {"Illegal value for --weight-wallance option\n",
       [] {
         settings.mode_eval = 1, settings.attr_eval = 0;
         settings.weight_wallance = -1;
       }},
      {"Too many or too few smoothing constants for --smooth-a (-w)\n",
       [] { settings.num_smooth_w = parse_smooth_w("0.5,1"); }},
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
