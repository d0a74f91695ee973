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
      {5, {"1,3#2"}, {{1, 3}, {2}}, 2},
      {4, {"0~2"}, {{0}, {1}, {2}}, 1},
      {4, {"~"}, {{0}, {1}, {2}, {3}}, 0},
      {4, {"2~"}, {{2}, {3}}, 2},
      {4, {"~1"}, {{0}, {1}}, 2},
      {5, {"-"}, {{0, 1, 2, 3, 4}}, 0},
      {5, {"-2,4"}, {{0, 1, 2, 4}}, 1},
      {5, {"3-,1,1"}, {{1, 3, 4}}, 2},
      {5, {"0", "2#3"}, {{0}, {2}, {3}}, 2},
      {5, {}, {}, 5},
  };
  for (const GaussCase &c : cases) {
    reset(c.tuple_size);
    for (const char *spec : c.specs) add_gauss(spec);
    build_attr_info();
    EXPECT_EQ(groups(), c.expected) << (c.specs.empty() ? "" : c.specs[0]);
    EXPECT_EQ(settings.tuple_size_d, c.tuple_size_d);
    EXPECT_EQ(settings.mode_nominal, c.tuple_size_d > 0 ? 1 : 0);
    EXPECT_EQ(settings.mode_gauss, c.expected.empty() ? 0 : 1);
    EXPECT_EQ(settings.gauss_list, nullptr);
  }
}

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

TEST(Ignore, AccumulatesFlags) {
  reset(6);
  add_attr_ignore("0,2-3");
  add_attr_ignore("5-");
  EXPECT_EQ(settings.num_attr_ignore, 4);
  EXPECT_EQ(settings.mode_ignore, 1);
  for (int a = 0; a < 6; a++) EXPECT_EQ(settings.attr_ignore[a], a != 1 && a != 4) << a;
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
      {"Confliction between --gauss (-u) and --ignore (-y) options\n", roles(5, -1, -1, {"1"}, {"1"})},
      {"Overlapping continuous attrubute: 3\n", roles(5, -1, -1, {}, {"1-3#3"})},
      {"Overlapping continuous attrubute: 2\n", roles(5, -1, -1, {}, {"2,3", "0~4"})},
      {"Illegal specification of continuous attributes -- 3-1\n", roles(5, -1, -1, {}, {"3-1"})},
      {"Illegal specification for continuous attribute(s) -- 1-2-3\n",
       roles(5, -1, -1, {}, {"1-2-3"})},
      {"Illegal specification for continuous attribute(s) -- 1~2~3\n",
       roles(5, -1, -1, {}, {"1~2~3"})},
      {"Illegal specification of continuous attributes -- 3~1\n", roles(5, -1, -1, {}, {"3~1"})},
      {"Out-of-range specification of a continuous attribute -- 2~7\n",
       roles(4, -1, -1, {}, {"2~7"})},
      {"Out-of-range specification of a continuous attribute -- 1-5\n",
       roles(4, -1, -1, {}, {"0,1-5"})},
      {"No descriptive attributes\n", roles(4, -1, -1, {"0-3"}, {})},
      {"No descriptive attributes\n", roles(3, 0, 1, {"2"}, {})},
      {"Out-of-range specification of an ignored attribute -- 7\n", roles(4, -1, -1, {"7"}, {})},
      {"Confliction between --id (-I) and --ignore (-y) options\n", roles(4, 1, -1, {"0-2"}, {})},
      {"Confliction between --eval (-E) and --ignore (-y) options\n", roles(4, -1, 1, {"1"}, {})},
      {"Illegal specification of ignored attributes -- 2-0\n", roles(4, -1, -1, {"2-0"}, {})},
      {"Illegal specification for ignored attribute(s) -- 0-1-2\n",
       roles(4, -1, -1, {"0-1-2"}, {})},
      {"Null string specified for an integer\n", roles(4, -1, -1, {"1,,2"}, {})},
      {"Couldn't parse as an integer -- x\n", roles(4, -1, -1, {"1-x"}, {})},
      {"Null string specified for an integer\n", roles(4, -1, -1, {}, {"0#"})},
  });
}

TEST(NumClass, ReadsCountOrRange) {
  for (const char *text : {"2:8:2", "2,8,2", "2-8-2"}) {
    reset(3);
    parse_num_class(text);
    EXPECT_EQ(settings.mode_search_num_class, 1) << text;
    EXPECT_EQ(settings.kmin, 2);
    EXPECT_EQ(settings.kmax, 8);
    EXPECT_EQ(settings.kstep, 2);
  }
  reset(3);
  parse_num_class("3");
  EXPECT_EQ(settings.num_class, 3);
  EXPECT_EQ(settings.mode_search_num_class, 0);
  parse_num_class("2:1234567890:1");
  EXPECT_EQ(settings.kmax, 123456789);
  parse_num_class("4294967298");  // saturates; never wraps to 2
  EXPECT_EQ(settings.num_class, 2147483647);
  parse_rank("4294967298");
  EXPECT_EQ(settings.num_rank, 2147483647);
}

TEST(RankAndRanges, ReadValues) {
  reset(3);
  parse_rank("10");
  EXPECT_EQ(settings.mode_rank, 1);
  EXPECT_EQ(settings.num_rank, 10);
  EXPECT_EQ(settings.mode_rank_th, 0);
  parse_rank("0.2");
  EXPECT_EQ(settings.mode_rank_th, 1);
  EXPECT_EQ(settings.rank_th, 0.2L);
  parse_rank("1");
  EXPECT_EQ(settings.mode_rank_th, 0);
  EXPECT_EQ(settings.num_rank, 1);

  parse_itemp(":2.0");
  EXPECT_EQ(settings.itemp_init, 0.1L);
  EXPECT_EQ(settings.itemp_rate, 2.0L);
  parse_itemp("0.5,");
  EXPECT_EQ(settings.itemp_init, 0.5L);
  EXPECT_EQ(settings.itemp_rate, 2.0L);
  parse_itemp("1:1.5");
  EXPECT_EQ(settings.itemp_init, 1.0L);
  EXPECT_EQ(settings.itemp_rate, 1.5L);

  parse_extreme("0.1");
  EXPECT_EQ(settings.q_regular_min, 0.1L);
  EXPECT_EQ(settings.q_regular_max, 1 - 0.1L);
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
      {"Illegal value for --n-class (-k) option\n", call(parse_num_class, "2:8:2:4")},
      {"Unexpected number of classes -- \n", call(parse_num_class, "")},
      {"Null string specified for an integer\n", call(parse_num_class, "2::2")},
      {"Couldn't parse as an integer -- a\n", call(parse_num_class, "a:b:c")},
      {"Illegal specification for ranking -- 1.5\n", call(parse_rank, "1.5")},
      {"Illegal specification for ranking -- -1\n", call(parse_rank, "-1")},
      {"Null string specified for a floating-point number\n", call(parse_rank, "")},
      {"Illegal value for the initial value of inverse temperature -- 1.500000\n",
       call(parse_itemp, "1.5:2")},
      {"Illegal value for the initial value of inverse temperature -- 0.000000\n",
       call(parse_itemp, "0:2")},
      {"Illegal value for the increasing rate of inverse temperature -- 1.000000\n",
       call(parse_itemp, "0.1:1")},
      {"Illegal specification of the inverse temperature -- \n", call(parse_itemp, "")},
      {"Illegal specification of the inverse temperature -- 0.1\n", call(parse_itemp, "0.1")},
      {"Illegal specification of the inverse temperature -- 0.1:2,3\n",
       call(parse_itemp, "0.1:2,3")},
      {"Couldn't parse as floating-point number -- x\n", call(parse_itemp, "x:2")},
      {"Illegal value for --extreme option\n", call(parse_extreme, "1.5")},
      {"Illegal value for --extreme option\n", call(parse_extreme, "-0.1")},
      {"Null string specified for a floating-point number\n", call(parse_extreme, "")},
  });
}

TEST(Smoothing, ReadsNumbersAndAuto) {
  reset(3);
  EXPECT_EQ(parse_smooth_c("0.5"), 0.5L);
  EXPECT_EQ(settings.mode_smooth_auto_c, 1);
  EXPECT_EQ(settings.mode_smooth_auto, 0);
  EXPECT_EQ(parse_smooth_c("auto"), -1.0L);
  EXPECT_EQ(settings.mode_smooth_auto_c, 2);
  EXPECT_EQ(settings.mode_smooth_auto, 1);
  EXPECT_EQ(parse_smooth_tau("auto"), -1.0L);
  EXPECT_EQ(settings.mode_smooth_auto_tau, 2);
  EXPECT_EQ(parse_smooth_tau("2"), 2.0L);
  EXPECT_EQ(settings.mode_smooth_auto_tau, 1);

  EXPECT_EQ(parse_smooth_w("auto,0.5,3"), 3);
  EXPECT_EQ(settings.mode_smooth_auto_w[0], 2);
  EXPECT_EQ(settings.smooth_w[0], -1.0L);
  EXPECT_EQ(settings.mode_smooth_auto_w[1], 1);
  EXPECT_EQ(settings.smooth_w[1], 0.5L);
  EXPECT_EQ(settings.smooth_w[2], 3.0L);
  EXPECT_EQ(parse_smooth_w("0.25"), 1);
  EXPECT_EQ(settings.smooth_w[0], 0.25L);
}

TEST(Smoothing, ReadsVarianceForms) {
  const struct {
    const char *text;
    long double value;
    int mode;
  } cases[] = {{"sample", 1.0L, 1}, {"const", 1.0L, 2},   {"2.5", 2.5L, 1},
               {"sample:0.5", 0.5L, 1}, {"const:3", 3.0L, 2}, {"0", 0.0L, 1}};
  for (const auto &c : cases) {
    reset(3);
    parse_smooth_s(c.text);
    EXPECT_EQ(settings.smooth_s, c.value) << c.text;
    EXPECT_EQ(settings.mode_smooth_s, c.mode) << c.text;
  }
}

TEST(SmoothingDeathTest, RejectsBadValues) {
  expect_failures({
      {"Unexpected value -- -1\n", call(parse_smooth_c, "-1")},
      {"Couldn't parse as floating-point number -- Auto\n", call(parse_smooth_c, "Auto")},
      {"Illegal value for --tau (-T) option\n", call(parse_smooth_tau, "-2")},
      {"Null string specified for a floating-point number\n", call(parse_smooth_w, "0.5,,1")},
      {"Null string specified for a floating-point number\n", call(parse_smooth_w, "0.5,")},
      {"Unexpected value -- -0.5\n", call(parse_smooth_w, "1,-0.5")},
      {"Too long input for a floating-point number: " + std::string(60, '1') + "\n",
       call(parse_smooth_w, "0.5," + std::string(60, '1'))},
      {"Illegal value for --smooth-var (-L) option\n", call(parse_smooth_s, "foo:1")},
      {"Illegal value for --smooth-var (-L) option\n", call(parse_smooth_s, "-1")},
      {"Illegal value for --smooth-var (-L) option\n", call(parse_smooth_s, "const:-1")},
      {"Null string specified for a floating-point number\n", call(parse_smooth_s, "const:")},
      {"Couldn't parse as floating-point number -- abc\n", call(parse_smooth_s, "sample:abc")},
      {"Couldn't parse as floating-point number -- Sample\n", call(parse_smooth_s, "Sample")},
  });
}

// Three discrete attributes; `given` is the --smooth-a value, or null.
void smooth_for_three(const char *given) {
  reset(3);
  settings.smooth_default = 0.0L;
  settings.num_smooth_w = given != nullptr ? parse_smooth_w(given) : 0;
  build_attr_info();
  build_smooth_nominal(settings.num_smooth_w);
}

TEST(SmoothNominal, ExpandsToEveryDiscreteAttribute) {
  smooth_for_three(nullptr);
  for (int a = 0; a < 3; a++) {
    EXPECT_EQ(settings.smooth_w[a], 0.0L);
    EXPECT_EQ(settings.mode_smooth_auto_w[a], 1);
  }
  smooth_for_three("auto");
  for (int a = 0; a < 3; a++) {
    EXPECT_EQ(settings.smooth_w[a], -1.0L);
    EXPECT_EQ(settings.mode_smooth_auto_w[a], 2);
  }
  smooth_for_three("1,auto,2");
  EXPECT_EQ(settings.smooth_w[0], 1.0L);
  EXPECT_EQ(settings.mode_smooth_auto_w[1], 2);
  EXPECT_EQ(settings.smooth_w[2], 2.0L);
  EXPECT_EQ(settings.num_smooth_w, 3);
}

TEST(SmoothNominalDeathTest, RejectsWrongCount) {
  expect_failures({
      {"Too many or too few smoothing constants for --smooth-a (-w)\n",
       []() { smooth_for_three("auto,0.5"); }},
      {"Too many or too few smoothing constants for --smooth-a (-w)\n",
       []() { smooth_for_three("1,1,1,1"); }},
  });
}

}  // namespace
