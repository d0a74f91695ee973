#include "base/split.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct SplitCase {
  const char *name;
  bool comma;
  int max_fields;
  std::string line;
  int want_count;
  std::vector<std::string> want_fields;
  std::vector<int> want_starts;  // for the first max_fields fields
};

const SplitCase CASES[] = {
    {"tab trailing empty", false, 4, "x\ty\t", 3, {"x", "y", ""}, {0, 2, -1, -1}},
    {"tab too many", false, 2, "x\ty\t", -1, {}, {-1, -1}},
    {"blanks dropped", false, 3, "a b\tc\n", 2, {"ab", "c"}, {0, 4, -1}},
    {"crlf", false, 2, "a\tb\r\n", 2, {"a", "b"}, {0, 2}},
    {"starts skip blanks", false, 2, "  x\t y", 2, {"x", "y"}, {2, 5}},
    {"empty line", false, 1, "", 1, {""}, {-1}},
    {"adjacent delimiters", false, 3, "a\t\tb", 3, {"a", "", "b"}, {0, -1, 3}},
    {"comma drops tab", true, 3, "a, b\t,c\r\n", 3, {"a", "b", "c"}, {0, 3, 6}},
    {"tab keeps comma", false, 2, "1,5\t2", 2, {"1,5", "2"}, {0, 4}},
    {"exact limit", true, 3, "a,b,c", 3, {"a", "b", "c"}, {0, 2, 4}},
    {"fields after line end", true, 3, "a\n,b,c", 3, {"a", "", ""}, {0, -1, -1}},
};

TEST(SplitTest, Cases) {
  for (const SplitCase &c : CASES) {
    char **fields = alloc_field(c.max_fields);
    for (int i = 0; i < c.max_fields; i++) fields[i][0] = '#';  // detects stale or untouched fields
    std::vector<int> starts(c.max_fields, 99);
    int n = c.comma ? split_comma(c.max_fields, c.line.c_str(), fields, starts.data())
                    : split_tab(c.max_fields, c.line.c_str(), fields, starts.data());
    EXPECT_EQ(n, c.want_count) << c.name;
    for (size_t i = 0; i < c.want_fields.size(); i++) {
      EXPECT_EQ(std::string(fields[i]), c.want_fields[i]) << c.name << " field " << i;
    }
    if (n < 0) {
      for (int i = 0; i < c.max_fields; i++) EXPECT_EQ(fields[i][0], '#') << c.name;
    }
    EXPECT_EQ(starts, c.want_starts) << c.name;
    release_field(fields, c.max_fields);
  }
}

// A tab just past the counted prefix (index 131072) is not a field boundary:
// the walk must not move into a third field buffer. The buffers are exactly
// FIELD_SIZE bytes and the array holds exactly two, so an overrun shows up
// under a memory checker.
TEST(SplitTest, DelimiterPastTheCountedPrefix) {
  char **fields = alloc_field(2);
  std::string line = "a\t" + std::string(SPLIT_SCAN_MAX - 2, 'b') + "\tc";
  EXPECT_EQ(split_tab(2, line.c_str(), fields, nullptr), 2);
  EXPECT_EQ(std::string(fields[1]), std::string(SPLIT_SCAN_MAX - 2, 'b'));
  release_field(fields, 2);
}

}  // namespace
