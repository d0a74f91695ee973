// Roles the user sets by column name ("--role NAME=ROLE"), checked against
// the data.
#ifndef VESK_PREP_ROLE_OVERRIDE_H
#define VESK_PREP_ROLE_OVERRIDE_H

#include <string>
#include <vector>

#include "prep/column_role.h"
#include "prep/column_summary.h"
#include "prep/delimited_table.h"

struct RoleOverride {
  std::string name;  // column name
  int role;          // a ColumnRole
};

// Whether the user chose this column's role (--role or a columns file).
bool role_set_by_user(const ColumnPlan &plan);

// Parses "NAME=ROLE" (split at the last "="); dies on another form.
RoleOverride parse_role_override(const std::string &text);

// Sets the roles the user chose. A column the user makes the ID or the answer
// takes that role from any column that had it from the data alone. Dies on an
// unknown or ambiguous name, on a continuous column with text in it, on an ID
// column with missing or repeated values, on two IDs or two answers, and when
// no discrete or continuous column is left. A count column must hold a
// positive integer in every row, and there can be one only.
void apply_role_overrides(const std::vector<RoleOverride> &overrides, const DelimitedTable &t,
                          const std::vector<ColumnSummary> &summaries,
                          std::vector<ColumnPlan> *plans);

#endif
