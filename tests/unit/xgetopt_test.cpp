// Option parser: word classification, value taking, bounded copies, display
// forms, scalar value parsers and the fixed texts.
#include "driver/xgetopt.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>
#include <string>
#include <vector>

#include "driver/vesk.h"

namespace {

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

struct Step {
  int code;
  std::string value;
};

// Parses a whole command line, returning (code, value) pairs.
std::vector<Step> walk(std::vector<std::string> words) {
  Line line(std::move(words));
  std::vector<Step> steps;
  for (int c; (c = line.next()) != -1;) steps.push_back({c, xopt.xoptarg});
  return steps;
}

struct WalkCase {
  std::vector<std::string> words;
  std::vector<Step> expected;
};

TEST(Xgetopt, ClassifiesWords) {
  const WalkCase cases[] = {
      {{"-k", "5"}, {{OPT_N_CLASS, "5"}}},
      {{"--n-class", "2:6:1"}, {{OPT_N_CLASS, "2:6:1"}}},
      {{"-k5"}, {{-2, ""}}},
      {{"-kx"}, {{-2, ""}}},
      {{"--target=base"}, {{-2, ""}}},
      {{"--targ", "base"}, {{-2, ""}, {0, "base"}}},
      {{"-e", "-1e-3"}, {{OPT_EPSILON, "-1e-3"}}},
      {{"-e", "-0.5"}, {{OPT_EPSILON, "-0.5"}}},
      {{"-s", "-x"}, {{-2, ""}, {-2, ""}}},
      {{"-f", "--help"}, {{-2, ""}, {OPT_HELP, ""}}},
      {{"-f", "--5"}, {{OPT_TARGET, "--5"}}},
      {{"-f", "-"}, {{OPT_TARGET, "-"}}},
      {{"-x", "3", "-f"}, {{OPT_N_ATTR, "3"}, {-2, ""}}},
      {{"extra", "5", "-", "--", "-0.5", "---x"},
       {{0, "extra"}, {0, "5"}, {0, "-"}, {0, "--"}, {0, "-0.5"}, {0, "---x"}}},
      {{"-i", "csv"}, {{-2, ""}, {0, "csv"}}},
      {{"--input", "csv", "-j", "TXT"}, {{OPT_INPUT, "csv"}, {OPT_OUTPUT, "TXT"}}},
      {{"-A", "-h", "--helpall"}, {{OPT_AUTOCLASS, ""}, {OPT_HELP, ""}, {OPT_HELPALL, ""}}},
      {{"--Target", "x"}, {{-2, ""}, {0, ""}}},
  };
  for (const WalkCase &c : cases) {
    std::vector<Step> got = walk(c.words);
    ASSERT_EQ(got.size(), c.expected.size()) << c.words[0];
    for (size_t i = 0; i < got.size(); i++) {
      EXPECT_EQ(got[i].code, c.expected[i].code) << c.words[0] << " step " << i;
      if (c.expected[i].code != 0 || !c.expected[i].value.empty()) {
        EXPECT_EQ(got[i].value, c.expected[i].value) << c.words[0] << " step " << i;
      }
    }
  }
}

TEST(Xgetopt, KeepsOffendingWordAndClearsAtEnd) {
  Line line({"-Z"});
  EXPECT_EQ(line.next(), -2);
  EXPECT_STREQ(xopt.optstr, "-Z");
  EXPECT_EQ(xopt.xoptind, 2);
  EXPECT_EQ(line.next(), -1);
  EXPECT_STREQ(xopt.optstr, "");
}

TEST(Xgetopt, BoundsLongWords) {
  std::string huge(100000, 'a');
  Line line({"-f", huge, "--" + huge});
  EXPECT_EQ(line.next(), OPT_TARGET);
  EXPECT_EQ(std::string(xopt.xoptarg), std::string(XOPTARG_SIZE - 1, 'a'));
  EXPECT_EQ(std::string(xopt.xoptarg_c), std::string(XOPTARG_SIZE - 1, 'a'));
  EXPECT_EQ(line.next(), -2);
  EXPECT_EQ(std::string(xopt.optstr), "--" + std::string(OPTSTR_SIZE - 3, 'a'));
}

TEST(Xgetopt, CopyOptargCutsAndTerminates) {
  Line line({"-f", "abcdef"});
  ASSERT_EQ(line.next(), OPT_TARGET);
  char dst[8];
  memset(dst, 'x', sizeof dst);
  copy_optarg(dst, 3);
  EXPECT_STREQ(dst, "abc");
  copy_optarg(dst, 7);
  EXPECT_STREQ(dst, "abcdef");
}

TEST(Xgetopt, TableIsWellFormed) {
  std::set<int> ids;
  std::set<char> letters;
  int rows = 0;
  for (const XOption *o = vesk_opts; o->id != -1; o++, rows++) {
    EXPECT_TRUE(ids.insert(o->id).second) << o->name;
    if (o->letter != 0) {
      EXPECT_TRUE(letters.insert(o->letter).second) << o->name;
    }
    EXPECT_NE(o->id, 0);
  }
  EXPECT_EQ(rows, 59);
  EXPECT_EQ(ids.count(26) + ids.count(31) + ids.count(32), 0u);
}

TEST(Xgetopt, DisplayForms) {
  const struct {
    int id;
    int long_only;
    const char *text;
  } cases[] = {
      {OPT_TARGET, 0, "--target (-f)"}, {OPT_TARGET, 1, "--target"},
      {OPT_PREC_OUT, 0, "--prec-out"},  {OPT_SMOOTH_A, 0, "--smooth-a (-w)"},
      {OPT_ID, 0, "--id (-I)"},         {OPT_EXTREME, 0, "--extreme"},
  };
  for (const auto &c : cases) EXPECT_STREQ(get_option_str(c.id, vesk_opts, c.long_only), c.text);
  EXPECT_EQ(get_option_str(26, vesk_opts, 0), nullptr);
}

// Out-of-range numbers saturate as the 32-bit conversions do; they never wrap
// into a small value (4294967298 is not 2).
TEST(ParseValues, AcceptsStandardForms) {
  EXPECT_EQ(parse_int("42"), 42);
  EXPECT_EQ(parse_int(" -7"), -7);
  EXPECT_EQ(parse_int("+3"), 3);
  EXPECT_EQ(parse_int("4294967298"), 2147483647);
  EXPECT_EQ(parse_int("-3000000000"), -2147483647 - 1);
  EXPECT_EQ(parse_uint("-1"), 4294967295u);
  EXPECT_EQ(parse_uint("-4294967295"), 1u);
  EXPECT_EQ(parse_uint("4294967295"), 4294967295u);
  EXPECT_EQ(parse_uint("4294967296"), 4294967295u);
  EXPECT_EQ(parse_uint("-4294967296"), 4294967295u);
  EXPECT_EQ(parse_uint("99999999999999999999999"), 4294967295u);
  EXPECT_EQ(parse_float("0.25"), 0.25L);
  EXPECT_EQ(parse_float("-1e-3"), -1e-3L);
}

TEST(ParseValuesDeathTest, RejectsEmptyAndTrailingText) {
  const struct {
    int kind;
    const char *text;
    const char *message;
  } cases[] = {
      {0, "", "Null string specified for an integer\n"},
      {0, "3x", "Couldn't parse as an integer -- 3x\n"},
      {0, "1.5", "Couldn't parse as an integer -- 1.5\n"},
      {1, "", "Null string specified for an unsigned integer\n"},
      {1, "12a", "Couldn't parse as an unsigned integer -- 12a\n"},
      {2, "", "Null string specified for a floating-point number\n"},
      {2, "0.1.2", "Couldn't parse as floating-point number -- 0.1.2\n"},
      {2, "abc", "Couldn't parse as floating-point number -- abc\n"},
  };
  for (const auto &c : cases) {
    auto run = [&c]() {
      if (c.kind == 0) parse_int(c.text);
      if (c.kind == 1) parse_uint(c.text);
      if (c.kind == 2) parse_float(c.text);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(1), testing::Eq(std::string(c.message))) << c.text;
  }
}

TEST(Texts, AreTheFixedTexts) {
  EXPECT_STREQ(version_text, "VESK version 0.6 (ML+MAP, built on Apr 22 2011)");
  const char *first = "[Usage] vesk -f basename -k #classes -x #attributes [option...]\n";
  EXPECT_EQ(strncmp(usage_text, first, strlen(first)), 0);
  EXPECT_EQ(strncmp(usage_text_full, first, strlen(first)), 0);
  std::string s = usage_text, f = usage_text_full;
  EXPECT_EQ(std::count(s.begin(), s.end(), '\n'), 36);
  EXPECT_EQ(std::count(f.begin(), f.end(), '\n'), 86);
  EXPECT_NE(s.find("[Iterate until convergence]\n"), std::string::npos);
  EXPECT_NE(f.find("[Iterate EM until convergence]\n"), std::string::npos);
  EXPECT_NE(f.find(" --input    (-i) File extension of the input files\n"), std::string::npos);
  EXPECT_EQ(s.find("--input"), std::string::npos);
  for (const char *word : {"continous", "paramters"}) EXPECT_NE(s.find(word), std::string::npos);
  for (const char *word : {"spilt", "oparations", "splited", "irrevant"})
    EXPECT_NE(f.find(word), std::string::npos);
  EXPECT_EQ(s.back(), '\n');
  EXPECT_NE(f.rfind(" --helpall        (-X) Print brief descriptions on all flags\n"),
            std::string::npos);
}

}  // namespace
