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
    {"lf", false, 2, "a\tb\n", 2, {"a", "b"}, {0, 2}},
    {"starts skip blanks", false, 2, "  x\t y", 2, {"x", "y"}, {2, 5}},
    {"empty line", false, 1, "", 1, {""}, {-1}},
    {"only lf", false, 1, "\n", 1, {""}, {-1}},
    {"adjacent delimiters", false, 3, "a\t\tb", 3, {"a", "", "b"}, {0, -1, 3}},
    {"comma drops tab", true, 3, "a, b\t,c\r\n", 3, {"a", "b", "c"}, {0, 3, 6}},
    {"comma keeps semicolon", true, 2, "New York;x,1", 2, {"NewYork;x", "1"}, {0, 11}},
    {"tab keeps comma", false, 2, "1,5\t2", 2, {"1,5", "2"}, {0, 4}},
    {"comma too many", true, 2, "a,b,c", -1, {}, {-1, -1}},
    {"exact limit", true, 3, "a,b,c", 3, {"a", "b", "c"}, {0, 2, 4}},
};

TEST(SplitTest, Cases) {
  for (const SplitCase &c : CASES) {
    char **fields = alloc_field(c.max_fields);
    for (int i = 0; i < c.max_fields; i++) fields[i][0] = '#';  // detects untouched fields
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

// Lines longer than the scanned prefix: the field buffers are exactly
// FIELD_SIZE bytes and the array holds exactly max_fields of them, so any overrun
// shows up under a memory checker; the contents show where scanning stops.
TEST(SplitTest, OverlongLines) {
  char **fields = alloc_field(2);
  std::string one(200000, 'a');
  EXPECT_EQ(split_tab(2, one.c_str(), fields, nullptr), 1);
  EXPECT_EQ(std::string(fields[0]).size(), static_cast<size_t>(FIELD_SIZE - 1));

  // The second tab lies beyond the counted prefix: two fields, no third.
  std::string two = "a\t" + std::string(140000, 'b') + "\tc\n";
  int starts[2];
  EXPECT_EQ(split_tab(2, two.c_str(), fields, starts), 2);
  EXPECT_STREQ(fields[0], "a");
  EXPECT_EQ(std::string(fields[1]), std::string(FIELD_SIZE - 2, 'b'));
  EXPECT_EQ(starts[1], 2);

  // A tab just past the counted prefix (index 131072) is not a field boundary.
  std::string edge = "a\t" + std::string(SPLIT_SCAN_MAX - 2, 'b') + "\tc";
  EXPECT_EQ(split_tab(2, edge.c_str(), fields, nullptr), 2);
  EXPECT_EQ(std::string(fields[1]), std::string(SPLIT_SCAN_MAX - 2, 'b'));

  // Many delimiters inside the prefix still count against the limit.
  std::string many = std::string(100000, ',') + std::string(50000, 'z');
  EXPECT_EQ(split_comma(2, many.c_str(), fields, nullptr), -1);
  release_field(fields, 2);
}

// Fields after an early line end come back empty rather than holding old text.
TEST(SplitTest, FieldsAfterLineEndAreEmpty) {
  char **fields = alloc_field(3);
  ASSERT_EQ(split_comma(3, "old,old,old", fields, nullptr), 3);
  EXPECT_EQ(split_comma(3, "a\n,b,c", fields, nullptr), 3);
  EXPECT_STREQ(fields[0], "a");
  EXPECT_STREQ(fields[1], "");
  EXPECT_STREQ(fields[2], "");
  release_field(fields, 3);
}

}  // namespace
