#include "prep/role_override.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "prep/prep_fail.h"

namespace {

const char *const SET_BY_USER = "set by --role";

int find_column(const DelimitedTable &t, const std::string &name) {
  int found = -1;
  for (size_t c = 0; c < t.names.size(); c++) {
    if (t.names[c] != name) continue;
    if (found >= 0) prep_die("several columns are named '%s'; rename them in the input", name.c_str());
    found = static_cast<int>(c);
  }
  if (found < 0) prep_die("--role: no column is named '%s'", name.c_str());
  return found;
}

// Every cell a whole number of at least 1, as vesk reads an object count.
void check_counts(const DelimitedTable &t, size_t c, const char *name) {
  for (size_t r = 0; r < table_rows(t); r++) {
    const char *cell = table_cell(t, r, c);
    char *end = nullptr;
    errno = 0;
    long v = strtol(cell, &end, 10);
    if (end == cell || *end != '\0' || errno != 0 || v < 1 || v > INT_MAX || !isdigit(
        static_cast<unsigned char>(cell[0])))
      prep_die("column '%s' cannot be the count: line %d holds '%s', not a whole number of at "
               "least 1", name, t.row_line[r], cell);
  }
}

void check_allowed(const RoleOverride &o, const DelimitedTable &t, const ColumnSummary &s) {
  const char *name = o.name.c_str();
  if (o.role == ROLE_CONTINUOUS && s.n_distinct == 0)
    prep_die("column '%s' cannot be continuous: it holds no value", name);
  if (o.role == ROLE_CONTINUOUS && !s.numeric) {
    int r = s.first_text_row;
    size_t c = static_cast<size_t>(find_column(t, o.name));
    prep_die("column '%s' cannot be continuous: line %d holds '%s', which is not a number", name,
             t.row_line[r], table_cell(t, static_cast<size_t>(r), c));
  }
  if (o.role == ROLE_ID && !s.distinct_per_row)
    prep_die("column '%s' cannot be the ID: it has missing or repeated values (vesk tells IDs "
             "apart by their first %d characters)", name, ID_KEEP);
  if (o.role == ROLE_COUNT) check_counts(t, static_cast<size_t>(find_column(t, o.name)), name);
}

// The one column of `role` that the user set, or -1; dies on two.
int single_user_column(const std::vector<ColumnPlan> &plans, int role, const char *what) {
  int found = -1;
  for (size_t c = 0; c < plans.size(); c++) {
    if (plans[c].role != role || plans[c].reason != SET_BY_USER) continue;
    if (found >= 0) prep_die("--role: only one column can be %s", what);
    found = static_cast<int>(c);
  }
  return found;
}

// A column that had `role` from the data gives it up to the user's choice.
void yield_role(std::vector<ColumnPlan> *plans, int role, const char *reason) {
  for (ColumnPlan &p : *plans) {
    if (p.role == role && p.reason != SET_BY_USER) p = {ROLE_IGNORED, reason};
  }
}

}  // namespace

bool role_set_by_user(const ColumnPlan &plan) { return plan.reason == SET_BY_USER; }

RoleOverride parse_role_override(const std::string &text) {
  size_t eq = text.rfind('=');
  if (eq == std::string::npos || eq == 0)
    prep_die("--role takes NAME=ROLE, with ROLE one of continuous, discrete, id, answer, ignored, "
             "count; "
             "got '%s'", text.c_str());
  int role = parse_role_name(text.substr(eq + 1));
  if (role < 0)
    prep_die("--role: unknown role '%s' (continuous, discrete, id, answer, ignored or count)",
             text.substr(eq + 1).c_str());
  return {text.substr(0, eq), role};
}

void apply_role_overrides(const std::vector<RoleOverride> &overrides, const DelimitedTable &t,
                          const std::vector<ColumnSummary> &summaries,
                          std::vector<ColumnPlan> *plans) {
  for (const RoleOverride &o : overrides) {
    int c = find_column(t, o.name);
    check_allowed(o, t, summaries[c]);
    (*plans)[c] = {o.role, SET_BY_USER};
  }
  if (single_user_column(*plans, ROLE_ID, "the ID") >= 0)
    yield_role(plans, ROLE_ID, "another column is the ID");
  single_user_column(*plans, ROLE_ANSWER, "the answer");
  single_user_column(*plans, ROLE_COUNT, "the count");
  for (const ColumnPlan &p : *plans) {
    if (p.role == ROLE_CONTINUOUS || p.role == ROLE_DISCRETE) return;
  }
  prep_die("no column is left to cluster on: every column is the ID, the answer or ignored");
}
