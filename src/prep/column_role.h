// The role of every input column in the clustering: a continuous attribute,
// a discrete attribute, the case ID, the answer class, or ignored.
#ifndef VESK_PREP_COLUMN_ROLE_H
#define VESK_PREP_COLUMN_ROLE_H

#include <string>
#include <vector>

#include "prep/column_summary.h"

// ROLE_COUNT: how many times the row's case occurs (a positive integer),
// written as the last field of the case line, after the attributes.
enum ColumnRole { ROLE_CONTINUOUS, ROLE_DISCRETE, ROLE_ID, ROLE_ANSWER, ROLE_IGNORED, ROLE_COUNT };

struct ColumnPlan {
  int role;            // a ColumnRole
  const char *reason;  // why, in a few words, for the summary
};

// "continuous", "discrete", "id", "answer", "ignored" or "count".
const char *role_name(int role);
// The role named `text`, or -1.
int parse_role_name(const std::string &text);

// Roles from the data alone: a column without a present value or with one
// distinct value is ignored; a column of numbers is continuous, except one
// that looks like a row index (integers increasing from row to row, as
// 0..n-1 or 1..n that count the rows); a text column whose values are all
// present and distinct may be the case ID; other text columns are discrete.
// The first text ID candidate (else the first row index) becomes the ID and
// the other candidates are ignored. The count role is never inferred.
std::vector<ColumnPlan> infer_roles(const std::vector<ColumnSummary> &summaries);

#endif
