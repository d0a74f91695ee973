// Options: the option scanner, structured values and roles, the checks once
// all options are read, and sizes beyond the int range or memory.

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/misc.h"
#include "driver/init.h"
#include "driver/vesk.h"
#include "driver/xgetopt.h"
#include "em_fixture.h"

namespace {

// Option parser: word classification, value taking, bounded copies, display
// forms, scalar value parsers and the fixed texts.
// One command line, walked call by call from a rewound parser.
struct Line {
  std::vector<std::string> words;
  std::vector<char *> argv;
  explicit Line(std::vector<std::string> w) : words(std::move(w)) {
    words.insert(words.begin(), "vesk");
    for (std::string &s : words) argv.push_back(&s[0]);
    init_xgetopt();
  }
  int next() { return xgetopt(static_cast<int>(argv.size()), argv.data(), vesk_opts); }
};

// The words of one command line and the (code, value) of each parser call.
struct WalkCase {
  std::vector<std::string> words;
  std::vector<std::pair<int, std::string>> expected;
};

TEST(Xgetopt, ClassifiesWords) {
  const WalkCase cases[] = {
      {{"-k", "5"}, {{OPT_N_CLASS, "5"}}},
      {{"-k5"}, {{-2, ""}}},
      {{"--target=base"}, {{-2, ""}}},
      {{"--targ", "base"}, {{-2, ""}, {0, "base"}}},
      {{"--Target", "base"}, {{-2, ""}, {0, "base"}}},
      {{"-e", "-1e-3"}, {{OPT_EPSILON, "-1e-3"}}},
      {{"-s", "-x"}, {{-2, ""}, {-2, ""}}},
      {{"-f", "--help"}, {{-2, ""}, {OPT_HELP, ""}}},
      {{"-f", "--5"}, {{OPT_TARGET, "--5"}}},
      {{"-x", "3", "-f"}, {{OPT_N_ATTR, "3"}, {-2, ""}}},
      {{"extra", "5", "-", "--", "-0.5", "---x"},
       {{0, "extra"}, {0, "5"}, {0, "-"}, {0, "--"}, {0, "-0.5"}, {0, "---x"}}},
      {{"-i", "csv"}, {{-2, ""}, {0, "csv"}}},
      {{"--input", "csv", "-j", "TXT"}, {{OPT_INPUT, "csv"}, {OPT_OUTPUT, "TXT"}}},
  };
  for (const WalkCase &c : cases) {
    Line line(c.words);
    std::vector<std::pair<int, std::string>> got;
    for (int code; (code = line.next()) != -1;) got.emplace_back(code, xopt.xoptarg);
    EXPECT_EQ(got, c.expected) << c.words[0];
  }
}

// The offending word stays in optstr for the message, cut to its buffer.
TEST(Xgetopt, KeepsOffendingWordWithinBounds) {
  std::string huge(100000, 'a');
  Line line({"-Z", "--" + huge});
  EXPECT_EQ(line.next(), -2);
  EXPECT_STREQ(xopt.optstr, "-Z");
  EXPECT_EQ(line.next(), -2);
  EXPECT_EQ(std::string(xopt.optstr), "--" + std::string(OPTSTR_SIZE - 3, 'a'));
  EXPECT_EQ(line.next(), -1);
  EXPECT_STREQ(xopt.optstr, "");
}

std::string display_form(int id, int long_only) {
  char *s = get_option_str(id, vesk_opts, long_only);
  std::string text = s != nullptr ? s : "(null)";
  free(s);
  return text;
}

TEST(Xgetopt, DisplayForms) {
  EXPECT_EQ(display_form(OPT_TARGET, 0), "--target (-f)");
  EXPECT_EQ(display_form(OPT_TARGET, 1), "--target");
  EXPECT_EQ(display_form(OPT_PREC_OUT, 0), "--prec-out");
  EXPECT_EQ(display_form(26, 0), "(null)");  // an unused id
  // The forms used in messages stay valid for two calls.
  const char *a = option_name(OPT_N_CLASS), *b = option_name(OPT_ID);
  EXPECT_STREQ(a, "--n-class (-k)");
  EXPECT_STREQ(b, "--id (-I)");
}

// Out-of-range numbers saturate as the 32-bit conversions do; they never wrap
// into a small value (4294967298 is not 2).
TEST(ParseValues, AcceptsStandardForms) {
  EXPECT_EQ(parse_int(" -7"), -7);
  EXPECT_EQ(parse_int("4294967298"), 2147483647);
  EXPECT_EQ(parse_int("-3000000000"), -2147483647 - 1);
  EXPECT_EQ(parse_uint("-1"), 4294967295u);
  EXPECT_EQ(parse_uint("4294967296"), 4294967295u);
  EXPECT_EQ(parse_float("-1e-3"), -1e-3L);
}

TEST(ParseValuesDeathTest, RejectsEmptyAndTrailingText) {
  FreshProcessDeathChecks fresh;  // a fork of this process may hold threads by now
  const std::pair<void (*)(), const char *> cases[] = {
      {[] { parse_int(""); }, "Null string specified for an integer\n"},
      {[] { parse_int("3x"); }, "Couldn't parse as an integer -- 3x\n"},
      {[] { parse_uint(""); }, "Null string specified for an unsigned integer\n"},
      {[] { parse_uint("12a"); }, "Couldn't parse as an unsigned integer -- 12a\n"},
      {[] { parse_float(""); }, "Null string specified for a floating-point number\n"},
      {[] { parse_float("0.1.2"); }, "Couldn't parse as floating-point number -- 0.1.2\n"},
  };
  for (const auto &c : cases)
    EXPECT_EXIT(c.first(), testing::ExitedWithCode(1), testing::Eq(std::string(c.second))) << c.second;
}

// Structured option values and the attribute roles built from them.
void reset(int tuple_size) {
  if (work_buf.buf_base == nullptr) initialize_buffer();  // messages are converted in place
  release_attr_info();
  release_smooth_nominal();
  set_default_settings();
  settings.tuple_size = tuple_size;
}

std::vector<std::vector<int>> groups() {
  std::vector<std::vector<int>> out;
  for (int g = 0; g < settings.gauss_size; g++)
    out.emplace_back(settings.gauss_attr[g], settings.gauss_attr[g] + settings.gauss_attr_size[g]);
  return out;
}

struct GaussCase {
  int tuple_size;
  std::vector<const char *> specs;
  std::vector<std::vector<int>> expected;
  int tuple_size_d;
};

TEST(Gauss, BuildsGroups) {
  const GaussCase cases[] = {
      {6, {"0-2#5"}, {{0, 1, 2}, {5}}, 2},
      {4, {"0~2"}, {{0}, {1}, {2}}, 1},
      {4, {"2~"}, {{2}, {3}}, 2},
      {5, {"-2,4"}, {{0, 1, 2, 4}}, 1},
      {5, {"3-,1,1"}, {{1, 3, 4}}, 2},
      {5, {"0", "2#3"}, {{0}, {2}, {3}}, 2},
  };
  for (const GaussCase &c : cases) {
    reset(c.tuple_size);
    for (const char *spec : c.specs) add_gauss(spec);
    build_attr_info();
    EXPECT_EQ(groups(), c.expected) << c.specs[0];
    EXPECT_EQ(settings.tuple_size_d, c.tuple_size_d) << c.specs[0];
    EXPECT_EQ(settings.mode_nominal, c.tuple_size_d > 0 ? 1 : 0);
  }
}

// Columns: 0 ID, 1 and 4 one Gaussian, 2 and 5 discrete, 3 ignored, 6 answer.
TEST(AttrInfo, AssignsRolesInColumnOrder) {
  reset(7);
  settings.mode_id = 1;
  settings.attr_id = 0;
  settings.mode_eval = 1;
  settings.attr_eval = 6;
  add_attr_ignore("3");
  add_gauss("4,1");
  check_tuple_size();
  build_attr_info();
  EXPECT_EQ(settings.tuple_size_c, 2);
  EXPECT_EQ(settings.tuple_size_d, 2);
  EXPECT_EQ(settings.tuple_size_all, 4);
  const struct {
    int cont, group, index, model;
  } expected[] = {{0, 0, 0, 0}, {1, 0, 0, 1}, {0, 0, 0, 1}, {0, 0, 0, 0},
                  {1, 0, 1, 1}, {0, 0, 1, 1}, {0, 0, 0, 0}};
  for (int a = 0; a < 7; a++) {
    EXPECT_EQ(settings.attr_info[a].cont, expected[a].cont) << a;
    EXPECT_EQ(is_model_attr(a), expected[a].model) << a;
    if (expected[a].model) {
      EXPECT_EQ(settings.attr_info[a].group, expected[a].group) << a;
      EXPECT_EQ(settings.attr_info[a].index, expected[a].index) << a;
    }
  }
}

struct FailCase {
  std::string message;
  std::function<void()> run;
};

void expect_failures(const std::vector<FailCase> &cases) {
  for (const FailCase &c : cases)
    EXPECT_EXIT(c.run(), testing::ExitedWithCode(1), testing::Eq(c.message)) << c.message;
}

// Runs the option handlers the driver would, then the attribute checks.
std::function<void()> roles(int n, int id, int eval, std::vector<const char *> ignore,
                            std::vector<const char *> gauss) {
  return [=]() {
    reset(n);
    if (id >= 0) settings.mode_id = 1, settings.attr_id = id;
    if (eval >= 0) settings.mode_eval = 1, settings.attr_eval = eval;
    for (const char *g : gauss) add_gauss(g);
    for (const char *i : ignore) add_attr_ignore(i);
    check_tuple_size();
    build_attr_info();
  };
}

TEST(RolesDeathTest, RejectsBadSpecifications) {
  expect_failures({
      {"Confliction between --gauss (-u) and --id (-I) options\n", roles(5, 0, -1, {}, {"0-4"})},
      {"Confliction between --gauss (-u) and --eval (-E) options\n", roles(5, -1, 2, {}, {"2"})},
      {"Overlapping continuous attrubute: 3\n", roles(5, -1, -1, {}, {"1-3#3"})},
      {"Illegal specification of continuous attributes -- 3-1\n", roles(5, -1, -1, {}, {"3-1"})},
      {"Illegal specification for continuous attribute(s) -- 1-2-3\n",
       roles(5, -1, -1, {}, {"1-2-3"})},
      {"Out-of-range specification of a continuous attribute -- 1-5\n",
       roles(4, -1, -1, {}, {"0,1-5"})},
      {"No descriptive attributes\n", roles(3, 0, 1, {"2"}, {})},
      {"Out-of-range specification of an ignored attribute -- 7\n", roles(4, -1, -1, {"7"}, {})},
      {"Confliction between --id (-I) and --ignore (-y) options\n", roles(4, 1, -1, {"0-2"}, {})},
      {"Confliction between --eval (-E) and --ignore (-y) options\n", roles(4, -1, 1, {"1"}, {})},
      {"Illegal specification of ignored attributes -- 2-0\n", roles(4, -1, -1, {"2-0"}, {})},
      {"Null string specified for an integer\n", roles(4, -1, -1, {"1,,2"}, {})},
  });
}

TEST(StructuredValues, ReadClassesRankAndSchedules) {
  for (const char *text : {"2:8:2", "2,8,2", "2-8-2"}) {
    reset(3);
    parse_num_class(text);
    EXPECT_EQ(settings.mode_search_num_class, 1) << text;
    EXPECT_EQ(settings.kmin, 2) << text;
    EXPECT_EQ(settings.kmax, 8) << text;
    EXPECT_EQ(settings.kstep, 2) << text;
  }
  parse_num_class("2:1234567890:1");  // a field holds at most nine characters
  EXPECT_EQ(settings.kmax, 123456789);

  parse_rank("1");  // the integer reading comes first
  EXPECT_EQ(settings.num_rank, 1);
  EXPECT_EQ(settings.mode_rank_th, 0);
  parse_rank("0.2");
  EXPECT_EQ(settings.mode_rank_th, 1);
  EXPECT_EQ(settings.rank_th, 0.2L);

  parse_itemp(":2.0");  // an empty side keeps its value
  EXPECT_EQ(settings.itemp_init, 0.1L);
  EXPECT_EQ(settings.itemp_rate, 2.0L);
}

// One parser call on a fresh three-attribute setting.
template <typename Fn>
std::function<void()> call(Fn fn, std::string text) {
  return [=]() {
    reset(3);
    fn(text.c_str());
  };
}

TEST(ValuesDeathTest, RejectBadValues) {
  expect_failures({
      {"Illegal value for --n-class (-k) option\n", call(parse_num_class, "2:8")},
      {"Unexpected number of classes -- \n", call(parse_num_class, "")},
      {"Null string specified for an integer\n", call(parse_num_class, "2::2")},
      {"Illegal specification for ranking -- 1.5\n", call(parse_rank, "1.5")},
      {"Illegal value for the increasing rate of inverse temperature -- 1.000000\n",
       call(parse_itemp, "0.1:1")},
      {"Illegal specification of the inverse temperature -- 0.1\n", call(parse_itemp, "0.1")},
      {"Illegal value for --extreme option\n", call(parse_extreme, "1.5")},
      {"Illegal value for --tau (-T) option\n", call(parse_smooth_tau, "-2")},
      {"Null string specified for a floating-point number\n", call(parse_smooth_w, "0.5,,1")},
      {"Unexpected value -- -0.5\n", call(parse_smooth_w, "1,-0.5")},
      {"Too long input for a floating-point number: " + std::string(60, '1') + "\n",
       call(parse_smooth_w, "0.5," + std::string(60, '1'))},
      {"Illegal value for --smooth-var (-L) option\n", call(parse_smooth_s, "foo:1")},
      {"Null string specified for a floating-point number\n", call(parse_smooth_s, "const:")},
  });
}

TEST(Smoothing, ReadsVarianceForms) {
  reset(3);
  const struct {
    const char *text;
    long double value;
    int mode;
  } cases[] = {{"sample", 1.0L, 1},     {"const", 1.0L, 2},   {"2.5", 2.5L, 1},
               {"sample:0.5", 0.5L, 1}, {"const:3", 3.0L, 2}};
  for (const auto &c : cases) {
    parse_smooth_s(c.text);
    EXPECT_EQ(settings.smooth_s, c.value) << c.text;
    EXPECT_EQ(settings.mode_smooth_s, c.mode) << c.text;
  }
}

// Three discrete attributes; `given` is the --smooth-a value.
void smooth_for_three(const char *given) {
  reset(3);
  settings.num_smooth_w = parse_smooth_w(given);
  build_attr_info();
  build_smooth_nominal(settings.num_smooth_w);
}

// A single value serving every attribute is seen in the settings log tests.
TEST(SmoothNominal, TakesOneValuePerDiscreteAttribute) {
  smooth_for_three("1,auto,2");
  const long double value[3] = {1, -1, 2};
  const int mode[3] = {1, 2, 1};
  for (int a = 0; a < 3; a++) {
    EXPECT_EQ(settings.smooth_w[a], value[a]) << a;
    EXPECT_EQ(settings.mode_smooth_auto_w[a], mode[a]) << a;
  }
  EXPECT_EXIT(smooth_for_three("auto,0.5"), testing::ExitedWithCode(1),
              testing::Eq(std::string("Too many or too few smoothing constants for --smooth-a (-w)\n")));
}

// Checks and derived values of the settings once all options are read.
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

struct PostprocFail {
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
  const PostprocFail cases[] = {
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
  for (const PostprocFail &c : cases) {
    auto run = [&c]() {
      reset_valid();
      c.setup();
      postproc_args();
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(1), testing::Eq(std::string(c.message))) << c.message;
  }
}

// Sizes beyond the int range or beyond memory: the annealing step count and
// the traces it sizes, the room left in the vector pool, and tables that
// cannot fit, which end at once with the allocation message.
// trunc(-ln Binit / ln Brate) + 1 steps: how often Binit can be multiplied by
// the rate and stay below 1 (counted here by multiplying), plus one; 13 for
// 0.1 and 1.2, as 1.2^12 < 10 < 1.2^13. (A count beyond the int range is
// refused: see the black-box reproducers.)
TEST(SizeLimits, AnnealingStepCount) {
  const long double cases[][2] = {{0.1L, 1.2L},     {1.0L, 1.2L},     {0.5L, 1.5L},
                                  {1e-300L, 1.001L}, {1e-4930L, 1.2L}, {0.5L, 1.0000001L}};
  for (const auto &c : cases) {
    setup_process_state();
    settings.tuple_size = 3;
    settings.num_class = 2;
    settings.mode_daem = 1;
    settings.itemp_init = c[0];
    settings.itemp_rate = c[1];
    postproc_args();
    int k = 1;
    for (long double b = c[0]; b * c[1] < 1.0L; b *= c[1]) k++;
    EXPECT_EQ(settings.num_itemp, k) << static_cast<double>(c[0]);
  }
}

// The reservation answers exactly what the pool can give: carving 16 MB
// vectors one by one, each reservation of one more that passes is followed by
// an allocation that succeeds, and the first that fails is the one the pool
// could not have served; a released block counts again.
bool in_reservation = false;

TEST(SizeLimits, VectorPoolRoomIsCountedExactly) {
  setup_process_state();
  const int n = 1000000;  // 16,000,016-byte blocks: at most four fit the 64 MiB arena
  EXPECT_EXIT(reserve_vectors(5, n), testing::ExitedWithCode(1),
              "^Ran out of memory for vectors \\(allocated size: 8388608 bytes\\)\n$");
  EXPECT_EXIT(
      {
        set_exit_handler([](int) { exit(in_reservation ? 0 : 2); });
        Vector made[8];
        int count = 0;
        for (;;) {
          in_reservation = true;
          reserve_vectors(1, n);
          in_reservation = false;
          made[count++] = alloc_vector(n);
          if (count == 2) {  // a released block is served again before fresh space
            release_vector0(made[1]);
            reserve_vectors(1, n);
            if (alloc_vector(n) != made[1]) exit(3);
          }
        }
      },
      testing::ExitedWithCode(0), "");
}

// A score table for a K range, or attribute roles, that could not fit in this
// machine's memory end with the allocation message before anything large is
// allocated (tables of K classes: see the black-box reproducers).
TEST(SizeLimits, TablesBeyondMemoryEndAtOnce) {
  if (physical_memory_bytes() >= 90e9L) GTEST_SKIP() << "memory enough for the tables";
  em_fixture::load(2, 1, nullptr, "a\nb\n");
  settings.mode_search_num_class = 1;
  settings.kmin = 2, settings.kmax = 999999999, settings.kstep = 1;
  EXPECT_EXIT(alloc_ic(), testing::ExitedWithCode(1), "^Couldn't allocate memory \\(allocate.cpp, line 16\\)\n$");
  settings.mode_search_num_class = 0;
  em_fixture::unload();
  setup_process_state();
  settings.tuple_size = INT_MAX;
  EXPECT_EXIT(build_attr_info(), testing::ExitedWithCode(1), "^Couldn't allocate memory \\(init.cpp, line 13\\)\n$");
}

}  // namespace
