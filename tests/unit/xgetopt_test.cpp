// Option parser: word classification, value taking, bounded copies, display
// forms, scalar value parsers and the fixed texts.
#include "driver/xgetopt.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
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

}  // namespace
