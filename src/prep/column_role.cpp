#include "prep/column_role.h"

namespace {

const char *const ROLE_NAMES[] = {"continuous", "discrete", "id", "answer", "ignored", "count"};

ColumnPlan plan_from_data(const ColumnSummary &s) {
  if (s.n_distinct == 0) return {ROLE_IGNORED, "all values missing"};
  if (s.n_distinct == 1) return {ROLE_IGNORED, "one value only"};
  if (s.row_number) return {ROLE_ID, "counts the rows"};
  if (s.index_like) return {ROLE_ID, "increasing integers"};
  if (s.numeric) return {ROLE_CONTINUOUS, "numbers"};
  if (s.n_missing == 0 && s.distinct_per_row) return {ROLE_ID, "all values distinct"};
  return {ROLE_DISCRETE, "text"};
}

}  // namespace

const char *role_name(int role) { return ROLE_NAMES[role]; }

int parse_role_name(const std::string &text) {
  for (int r = ROLE_CONTINUOUS; r <= ROLE_COUNT; r++) {
    if (text == ROLE_NAMES[r]) return r;
  }
  if (text == "ignore") return ROLE_IGNORED;
  return -1;
}

std::vector<ColumnPlan> infer_roles(const std::vector<ColumnSummary> &summaries) {
  std::vector<ColumnPlan> plans;
  int text_id = -1, counter_id = -1;
  for (size_t c = 0; c < summaries.size(); c++) {
    ColumnPlan p = plan_from_data(summaries[c]);
    int &first = summaries[c].index_like ? counter_id : text_id;
    if (p.role == ROLE_ID && first < 0) first = static_cast<int>(c);
    plans.push_back(p);
  }
  int id = text_id >= 0 ? text_id : counter_id;
  for (size_t c = 0; c < plans.size(); c++) {
    if (plans[c].role == ROLE_ID && static_cast<int>(c) != id) {
      plans[c] = {ROLE_IGNORED, summaries[c].row_number   ? "counts the rows"
                                : summaries[c].index_like ? "increasing integers"
                                                          : "all values distinct"};
    }
  }
  return plans;
}
