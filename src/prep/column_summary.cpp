#include "prep/column_summary.h"

#include <unordered_set>

#include "prep/cell_value.h"

namespace {

// The integers start, start + 1, ... in row order, with start 0 or 1.
bool counts_rows(const DelimitedTable &t, size_t col) {
  long double first = 0;
  for (size_t r = 0; r < t.rows.size(); r++) {
    long double v = 0;
    if (!is_number_text(t.rows[r][col], &v)) return false;
    if (r == 0) {
      if (v != 0 && v != 1) return false;
      first = v;
    }
    if (v != first + static_cast<long double>(r)) return false;
  }
  return true;
}

}  // namespace

ColumnSummary summarize_column(const DelimitedTable &t, size_t col,
                               const std::vector<std::string> &markers) {
  ColumnSummary s{0, 0, true, false, false, -1};
  std::unordered_set<std::string> seen;
  for (size_t r = 0; r < t.rows.size(); r++) {
    const std::string &cell = t.rows[r][col];
    if (is_missing_text(cell, markers)) {
      s.n_missing++;
      continue;
    }
    seen.insert(cell);
    if (s.first_text_row < 0 && !is_number_text(cell, nullptr)) {
      s.first_text_row = static_cast<int>(r);
      s.numeric = false;
    }
  }
  s.n_distinct = static_cast<int>(seen.size());
  if (s.n_distinct == 0) s.numeric = false;
  s.distinct_per_row = s.n_missing == 0 && seen.size() == t.rows.size();
  s.row_number = s.numeric && s.n_missing == 0 && counts_rows(t, col);
  return s;
}
