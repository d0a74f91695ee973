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
      {"12", "%d,%.Ng", "%d,%.12Lg"},
      {"3", "%.Ne and %.Nf", "%.3Le and %.3Lf"},
      {"6", "100%% done N", "100%% done N"},
      {"6", "%d. N", "%d. 6L"},       // a point after '%' arms the placeholder
      {"6", "%.5f %.N", "%.5f %.6L"},  // state resets only at e/f/g after a replacement
      {"", "%.Nf", "%.Lf"},
      {"6", "plain text", "plain text"},
  };
  for (const Case &c : cases) EXPECT_STREQ(conv_base(c.prec, c.fmt), c.expect) << c.fmt;
  EXPECT_STREQ(conv_base(nullptr, "%.Nf"), "%.Nf");
}

TEST_F(MiscTest, DelimiterPlaceholderInBothFormats) {
  settings.format_out = FORMAT_TXT;
  EXPECT_STREQ(conv_delim("a,b~,c"), "a\tb,c");
  EXPECT_STREQ(conv_delim("~~x"), "~x");
  settings.format_out = FORMAT_CSV;
  EXPECT_STREQ(conv_delim("a,b~,c"), "a,b,c");
  settings.format_out = FORMAT_TXT;
  EXPECT_STREQ(conv_data("Fowlkes and Mallows index,%.Ng"), "Fowlkes and Mallows index\t%.12Lg");
}

TEST_F(MiscTest, EscapeAtEndOfFormatIsFatal) {
  EXPECT_EXIT(conv_delim("abc~"), ::testing::ExitedWithCode(1),
              "Internal error \\(conv_delim\\): illegal escape sequence");
  EXPECT_EXIT(conv_delim("abc~\n"), ::testing::ExitedWithCode(1), "illegal escape sequence");
}

TEST_F(MiscTest, NumberFormattingUsesTwelveSignificantDigits) {
  EXPECT_STREQ(float2str(1.0L / 3.0L), "0.333333333333");
  EXPECT_STREQ(float2str(0.5L), "0.5");
  EXPECT_STREQ(float2str(1e-20L), "1e-20");
  EXPECT_STREQ(int2str(-42), "-42");
  char *d = float2strdup(2.25L);
  EXPECT_STREQ(d, "2.25");
  free(d);
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

TEST_F(MiscTest, DieWritesLogThenMessageStream) {
  char path[] = "/tmp/vesk_misc_logXXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  EXPECT_EXIT(
      {
        settings.fp_log = fdopen(fd, "w");
        die("bad value -- %s\n", "x");
      },
      ::testing::ExitedWithCode(1), "^bad value -- x\n$");
  EXPECT_EQ(read_text(path), "bad value -- x\n");
  unlink(path);
}

TEST_F(MiscTest, FailureMessageForms) {
  EXPECT_EXIT(die_numeric("check_bic", "Computed BIC is not a number\n"),
              ::testing::ExitedWithCode(1), "^Numerical error \\(check_bic\\): Computed BIC is not a number\n$");
  EXPECT_EXIT(die_dimension("matrix2vector"), ::testing::ExitedWithCode(1),
              "^Internal error: matrix2vector\\(\\) -- illegal dimension\\(s\\)\n$");
  EXPECT_EXIT(die_alloc("init.cpp", 7), ::testing::ExitedWithCode(1),
              "^Couldn't allocate memory \\(init.cpp, line 7\\)\n$");
  EXPECT_EXIT(die_realloc("misc.cpp", 3), ::testing::ExitedWithCode(1),
              "^Couldn't reallocate memory \\(misc.cpp, line 3\\)\n$");
}

TEST_F(MiscTest, BadLineReportWithAndWithoutMarker) {
  EXPECT_EXIT(die_line("d_freq.csv", 3, 413, "a,1.5x\n", "illegal format for a floating-point number", 2),
              ::testing::ExitedWithCode(1),
              "^\\[ID:413\\] Illegal line 3 in d_freq.csv: illegal format for a floating-point number\n"
              "a,1.5x\n  \\^\n$");
  EXPECT_EXIT(die_line("d_freq.csv", 1, 372, "a,b,c,d\n", "Too many fields (columns)", -1),
              ::testing::ExitedWithCode(1),
              "^\\[ID:372\\] Illegal line 1 in d_freq.csv: Too many fields \\(columns\\)\na,b,c,d\n$");
  EXPECT_EXIT(die_line("f", 1, 1, "x\n", "r", 131072), ::testing::ExitedWithCode(1),
              "^Internal error: die_line\\(\\)\n$");
}

TEST_F(MiscTest, CaseChangeAndClocks) {
  char s[] = "Csv-TXT";
  tolower_str(s);
  EXPECT_STREQ(s, "csv-txt");
  toupper_str(s);
  EXPECT_STREQ(s, "CSV-TXT");
  long double t0 = current_sec(), w0 = elapsed_sec();
  volatile long double acc = 0;
  for (int i = 0; i < 2000000; i++) acc = acc + i;
  EXPECT_GE(current_sec(), t0);
  EXPECT_GE(elapsed_sec(), w0);
  EXPECT_GT(w0, 1.6e9L);  // seconds since the epoch
}

}  // namespace
