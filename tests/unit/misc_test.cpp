// Precision and delimiter placeholders and progress marks.
#include "base/misc.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "test_util.h"

namespace {

class MiscTest : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

TEST_F(MiscTest, PrecisionPlaceholderStateMachine) {
  struct Case {
    const char *prec, *fmt, *expect;
  } cases[] = {
      {"6", "L=%.Nf", "L=%.6Lf"},
      {"3", "%.Ne and %.Nf", "%.3Le and %.3Lf"},
      {"6", "100%% done N", "100%% done N"},
      {"6", "%d. N", "%d. 6L"},  // a point after '%' arms the placeholder
      {"", "%.Nf", "%.Lf"},
  };
  for (const Case &c : cases) EXPECT_STREQ(conv_base(c.prec, c.fmt), c.expect) << c.fmt;
  EXPECT_STREQ(conv_base(nullptr, "%.Nf"), "%.Nf");
}

TEST_F(MiscTest, DelimiterPlaceholderInBothFormats) {
  settings.format_out = FORMAT_TXT;
  EXPECT_STREQ(conv_delim("a,b~,c"), "a\tb,c");
  settings.format_out = FORMAT_CSV;
  EXPECT_STREQ(conv_delim("a,b~,c"), "a,b,c");
  settings.format_out = FORMAT_TXT;
  EXPECT_STREQ(conv_data("Fowlkes and Mallows index,%.Ng"), "Fowlkes and Mallows index\t%.12Lg");
  EXPECT_EXIT(conv_delim("abc~"), ::testing::ExitedWithCode(1),
              "^Internal error \\(conv_delim\\): illegal escape sequence\n$");
}

TEST_F(MiscTest, PrecisionIsFixedAtFirstUse) {
  // Runs in a freshly started child, before anything has fixed the precision.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        settings.prec_msg = 3;
        bool ok = strcmp(conv_msg("%.Nf"), "%.3Lf") == 0;
        settings.prec_msg = 7;
        ok = ok && strcmp(conv_msg("%.Nf"), "%.3Lf") == 0;
        exit(ok ? 0 : 2);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(MiscTest, ProgressDotsAndAnnealingMarks) {
  FILE *fp = tmpfile();
  settings.fp_msg = fp;
  for (int i = 0; i <= 100; i++) print_dot_message(i);
  settings.mode_daem = 1;
  print_daem_message(0, 1.0L);  // nothing
  print_daem_message(0, 0.5L);  // *
  print_daem_message(1, 1.0L);  // *
  print_daem_message_sm(1, 1, 0.5L);  // quiet: nothing
  settings.mode_daem = 0;
  print_daem_message(1, 0.5L);  // DAEM off: nothing
  EXPECT_EQ(stream_text(fp), "0....100**");
  settings.fp_msg = nullptr;
  fclose(fp);
}

}  // namespace
