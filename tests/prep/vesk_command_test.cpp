// The vesk command printed for a prepared file: index lists, groups, quoting.
#include "prep/vesk_command.h"

#include <gtest/gtest.h>

namespace {

TEST(VeskCommand, IndexListsAndGroups) {
  EXPECT_EQ(index_items({0, 1, 2, 3, 7}), "0-3,7");
  EXPECT_EQ(index_items({0, 1, 5, 6, 7, 9}), "0,1,5-7,9");
  EXPECT_EQ(index_items({4}), "4");
  EXPECT_EQ(single_groups({0, 1, 2, 5}), "0~2#5");
  EXPECT_EQ(single_groups({1, 3, 4}), "1#3~4");
}

TEST(VeskCommand, ShellQuoting) {
  EXPECT_EQ(shell_quote("out/cars_2024"), "out/cars_2024");
  EXPECT_EQ(shell_quote("my data"), "'my data'");
  EXPECT_EQ(shell_quote("it's"), "'it'\\''s'");
  EXPECT_EQ(shell_quote("$HOME"), "'$HOME'");
  EXPECT_EQ(shell_quote(""), "''");
}

TEST(VeskCommand, FilledInFromTheRoles) {
  std::vector<ColumnPlan> plans = {{ROLE_ID, ""},         {ROLE_CONTINUOUS, ""}, {ROLE_CONTINUOUS, ""},
                                   {ROLE_DISCRETE, ""},   {ROLE_CONTINUOUS, ""}, {ROLE_ANSWER, ""},
                                   {ROLE_IGNORED, ""},    {ROLE_IGNORED, ""}};
  EXPECT_EQ(vesk_command("cars", plans, {"2:6:1", false, false}),
            "vesk -f cars -x 8 -u 1,2,4 -I 0 -E 5 -y 6,7 -k 2:6:1 -n 10 -A");
  EXPECT_EQ(vesk_command("my cars", plans, {"3", true, false}),
            "vesk -f 'my cars' -x 8 -u 1~2#4 -I 0 -E 5 -y 6,7 -k 3 -n 10 -A");
  // Only discrete attributes and no ID: identical rows must stay apart.
  std::vector<ColumnPlan> discrete = {{ROLE_DISCRETE, ""}, {ROLE_DISCRETE, ""}};
  EXPECT_EQ(vesk_command("t", discrete, {"2:4:1", false, false}),
            "vesk -f t -x 2 --uncompress -k 2:4:1 -n 10 -A");
  // Scoring with a fitted model reads its parameters instead of fitting.
  EXPECT_EQ(vesk_command("new", plans, {"2:6:1", false, true}),
            "vesk -f new -x 8 -u 1,2,4 -I 0 -E 5 -y 6,7 -R");
}

}  // namespace
