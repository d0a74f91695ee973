// The case reader at its limits: a last comment line without a line end,
// the first-line check that comes before the per-attribute buffers, counts
// that pass the int range only in their sum, and releasing the table (also
// after a failed read).
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "base/split.h"
#include "case_file_util.h"

namespace {

void expect_failure(const Roles &roles, const std::string &text, const std::string &message, int uncompress = 0) {
  prepare_case_file(roles, text);
  settings.mode_uncompress = uncompress;
  settings.fp_msg = nullptr;  // messages then go to stderr
  std::string expected = "Reading cases from " + std::string(settings.fname_freq) + "..." + message;
  size_t at = expected.find(" in F");  // F stands for the file name
  if (at != std::string::npos) expected.replace(at + 4, 1, settings.fname_freq);
  EXPECT_EXIT(read_freq(), testing::ExitedWithCode(1), exactly(expected)) << text.substr(0, 40);
}

// Without merging (Gaussian groups, --uncompress, --id) every counted line
// must give a record, and a last comment line without a line end is counted.
// Merged cases are counted by the dictionary, so such a file reads as usual.
TEST(ReadFreqLimits, LastCommentLineWithoutLineEnd) {
  const char *inconsistent = "Internal error: inconsistency in number of entries";
  expect_failure({2, "0-1"}, "#c", inconsistent);
  expect_failure({2}, "a,x\nb,y\n#c", inconsistent, 1);
  expect_failure({2, nullptr, 0}, "k,x\nj,y\n#c", inconsistent);
  read_text_as({2}, "a,x\nb,y\na,x\n#c");
  EXPECT_EQ(cases.num_entry, 2);
  EXPECT_EQ(cases.num_entry_pre, 3);
  EXPECT_EQ(cases.total_freq, 3);
  read_text_as({2, "1"}, "a,1\nb,2\n#c\n");  // with the line end the comment is not counted
  EXPECT_EQ(cases.num_entry, 2);
}

// The first case line is checked, the length before the fields, before
// anything per attribute is reserved; its number counts the comments before it.
TEST(ReadFreqLimits, FirstCaseLineCheckedFirst) {
  expect_failure({100000}, "#a\n#b\na,b,c,d,e\n",
                 "[ID:374] Illegal line 3 in F: Too few fields (columns)\na,b,c,d,e\n");
  const std::string long_line(140000, ',');
  expect_failure({3}, long_line + "\n",
                 "[ID:370] Illegal line 1 in F: Too long line\n" + long_line.substr(0, 131072) + "\n");
  EXPECT_EQ(count_fields("a,b,,c", ","), 4);
  EXPECT_EQ(count_fields("a\tb,c", "\t"), 2);
  EXPECT_EQ(count_fields(std::string(SPLIT_SCAN_MAX + 10, ',').c_str(), ","), SPLIT_SCAN_MAX + 1);
}

// Each count fits an int and so does the total; the missing counts are
// summed wide on the way.
TEST(ReadFreqLimits, MissingCountsNearTheIntLimit) {
  read_text_as({3, "1-2"}, "?,NA,1,2000000000\nx,NA,NA,100000000\n?,1,2,47483647\n");
  EXPECT_EQ(cases.total_freq, INT_MAX);
  EXPECT_EQ(cases.num_miss_w[0], 2047483647);
  EXPECT_EQ(cases.num_miss_g[0][0], 2100000000);
  EXPECT_EQ(cases.num_miss_g[0][1], 100000000);
  EXPECT_EQ(cases.total_num_miss_w, 2047483647LL);
  read_text_as({2}, "?,?,2000000000\na,b,1\n");  // both missing: the total passes the int range
  EXPECT_EQ(cases.total_num_miss_w, 4000000000LL);
  expect_failure({1}, "a,2147483647\na,1\n", "Too large object count in F\n");
}

// A released table is empty; a failed read leaves its file and buffers to
// the next release.
TEST(ReadFreqLimits, ReleaseAfterReadingAndAfterAFailure) {
  read_text_as({3, "2", 0}, "k,a,1\nj,?,2\ni,b,NA\n");
  release_freq();
  EXPECT_TRUE(cases.freq_list == nullptr && cases.ht == nullptr && cases.num_entry == 0);
  EXPECT_EXIT(
      {
        set_exit_handler([](int status) {
          release_freq();  // frees what the failed read left, file included
          exit(status == 1 && cases.freq_list == nullptr ? 0 : 2);
        });
        read_text_as({2}, "a,b\nc\n");
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
