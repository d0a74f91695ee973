// Column summaries and roles: from the data alone, and as the user sets them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "prep/cell_value.h"
#include "prep/column_role.h"
#include "prep/column_summary.h"
#include "prep/role_override.h"

namespace {

// A table given column by column.
DelimitedTable table_of(const std::vector<std::string> &names,
                        const std::vector<std::vector<std::string>> &columns) {
  DelimitedTable t;
  t.delimiter = ',';
  t.names = names;
  for (size_t r = 0; r < columns[0].size(); r++) {
    std::vector<std::string> row;
    for (const auto &col : columns) row.push_back(col[r]);
    add_table_row(&t, row, static_cast<int>(r) + 2);
  }
  return t;
}

std::vector<ColumnSummary> summaries_of(const DelimitedTable &t) {
  std::vector<ColumnSummary> s;
  for (size_t c = 0; c < t.names.size(); c++) s.push_back(summarize_column(t, c, default_missing_markers()));
  return s;
}

std::vector<std::string> roles_of(const std::vector<ColumnPlan> &plans) {
  std::vector<std::string> out;
  for (const ColumnPlan &p : plans) out.push_back(role_name(p.role));
  return out;
}

const DelimitedTable sample = table_of(
    {"row", "name", "height", "city", "flag", "empty", "code", "n"},
    {{"1", "2", "3", "4"},
     {"ann", "bob", "cy", "dee"},
     {"1.5", "", "2", "1.5"},
     {"Oslo", "Rome", "Oslo", "?"},
     {"x", "x", "NA", "x"},
     {"", "NA", "", "?"},
     {"k1", "k2", "k3", "k4"},
     {"0", "1", "0", "1"}});

TEST(ColumnSummary, CountsMissingDistinctAndNumbers) {
  std::vector<ColumnSummary> s = summaries_of(sample);
  EXPECT_TRUE(s[0].row_number);
  EXPECT_TRUE(s[1].distinct_per_row);
  EXPECT_FALSE(s[1].numeric);
  EXPECT_EQ(s[1].first_text_row, 0);
  EXPECT_EQ(s[2].n_missing, 1);
  EXPECT_EQ(s[2].n_distinct, 2);
  EXPECT_TRUE(s[2].numeric);
  EXPECT_FALSE(s[2].row_number);
  EXPECT_EQ(s[3].n_missing, 1);
  EXPECT_FALSE(s[3].distinct_per_row);
  EXPECT_EQ(s[5].n_distinct, 0);
  EXPECT_FALSE(s[5].numeric);
  EXPECT_FALSE(s[7].row_number);  // 0, 1, 0, 1 does not count the rows
}

TEST(ColumnRole, FromTheDataAlone) {
  std::vector<ColumnPlan> plans = infer_roles(summaries_of(sample));
  // The text ID candidate wins over the row counter; the second text
  // candidate is ignored.
  EXPECT_EQ(roles_of(plans),
            (std::vector<std::string>{"ignored", "id", "continuous", "discrete", "ignored",
                                      "ignored", "ignored", "continuous"}));
  EXPECT_STREQ(plans[4].reason, "one value only");
  EXPECT_STREQ(plans[5].reason, "all values missing");
  // Without a text candidate, the row counter is the ID.
  DelimitedTable t = table_of({"i", "v"}, {{"0", "1", "2"}, {"a", "b", "a"}});
  EXPECT_EQ(roles_of(infer_roles(summaries_of(t))), (std::vector<std::string>{"id", "discrete"}));
  // Row numbers that start at 5 are an ordinary numeric column.
  t = table_of({"i", "v"}, {{"5", "6", "7"}, {"a", "b", "a"}});
  EXPECT_EQ(roles_of(infer_roles(summaries_of(t))),
            (std::vector<std::string>{"continuous", "discrete"}));
}

TEST(ColumnRole, UserChoicesWinAndTakeTheRoleFromInferredColumns) {
  std::vector<ColumnSummary> s = summaries_of(sample);
  std::vector<ColumnPlan> plans = infer_roles(s);
  apply_role_overrides({parse_role_override("code=id"), parse_role_override("city=answer"),
                        parse_role_override("n=discrete"), parse_role_override("flag=ignore")},
                       sample, s, &plans);
  EXPECT_EQ(roles_of(plans),
            (std::vector<std::string>{"ignored", "ignored", "continuous", "answer", "ignored",
                                      "ignored", "id", "discrete"}));
  EXPECT_STREQ(plans[1].reason, "another column is the ID");
  // A name with "=" in it is split at the last one.
  RoleOverride o = parse_role_override("a=b=continuous");
  EXPECT_EQ(o.name, "a=b");
  EXPECT_EQ(o.role, ROLE_CONTINUOUS);
}

TEST(ColumnRoleDeath, ChoicesTheDataDoNotAllow) {
  std::vector<ColumnSummary> s = summaries_of(sample);
  struct Case {
    std::vector<std::string> roles;
    const char *message;
  };
  const Case cases[] = {
      {{"city=continuous"}, "column 'city' cannot be continuous: line 2 holds 'Oslo', which is not a number"},
      {{"empty=continuous"}, "column 'empty' cannot be continuous: it holds no value"},
      {{"city=id"}, "column 'city' cannot be the ID: it has missing or repeated values"},
      {{"nosuch=discrete"}, "--role: no column is named 'nosuch'"},
      {{"name=id", "code=id"}, "--role: only one column can be the ID"},
      {{"city=answer", "flag=answer"}, "--role: only one column can be the answer"},
      {{"height=ignored", "city=ignored", "n=ignored"}, "no column is left to cluster on"},
  };
  for (const Case &c : cases) {
    std::vector<RoleOverride> ov;
    for (const std::string &r : c.roles) ov.push_back(parse_role_override(r));
    std::vector<ColumnPlan> plans = infer_roles(s);
    EXPECT_EXIT(apply_role_overrides(ov, sample, s, &plans), testing::ExitedWithCode(1),
                std::string("^vesk-prep: ") + c.message)
        << c.roles[0];
  }
  EXPECT_EXIT(parse_role_override("city"), testing::ExitedWithCode(1), "--role takes NAME=ROLE");
  EXPECT_EXIT(parse_role_override("city=text"), testing::ExitedWithCode(1),
              "--role: unknown role 'text'");
}

}  // namespace
