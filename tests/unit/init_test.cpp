// Structured option values and the attribute roles built from them.
#include "driver/init.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "base/misc.h"
#include "driver/vesk.h"

namespace {

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

}  // namespace
