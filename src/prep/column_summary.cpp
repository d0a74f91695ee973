#include "prep/column_summary.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_set>

#include "prep/case_encode.h"
#include "prep/cell_value.h"

namespace {

// Fewer rows than this increase by chance too often to call a column an index
// unless it counts the rows.
const size_t INDEX_MIN_ROWS = 10;

// Integers that increase from row to row (`first` gets the first one).
bool increasing_integers(const DelimitedTable &t, size_t col, long double *first) {
  long double last = 0;
  for (size_t r = 0; r < table_rows(t); r++) {
    long double v = 0;
    if (!is_number_text(table_cell(t, r, col), &v) || v != std::floor(v)) return false;
    if (r == 0) *first = v;
    else if (v <= last) return false;
    last = v;
  }
  return true;
}

// Distinct texts among the present cells, counted by sorting their offsets
// (eight bytes a row, whatever the texts).
int count_distinct(const DelimitedTable &t, size_t col, const std::vector<std::string> &markers) {
  std::vector<const char *> cells;
  for (size_t r = 0; r < table_rows(t); r++) {
    const char *cell = table_cell(t, r, col);
    if (!is_missing_text(cell, markers)) cells.push_back(cell);
  }
  std::sort(cells.begin(), cells.end(),
            [](const char *a, const char *b) { return strcmp(a, b) < 0; });
  int n = 0;
  for (size_t i = 0; i < cells.size(); i++) {
    if (i == 0 || strcmp(cells[i - 1], cells[i]) != 0) n++;
  }
  return n;
}

// Whether the texts stay apart once vesk cuts them to ID_KEEP characters of
// their case-file form; only texts that long can meet.
bool ids_stay_apart(const DelimitedTable &t, size_t col) {
  std::unordered_set<std::string> long_keys;
  EncodeCounts scratch;
  clear_encode_counts(&scratch);
  for (size_t r = 0; r < table_rows(t); r++) {
    std::string key = encode_case_text(table_cell(t, r, col), col == 0, &scratch);
    if (key.size() < ID_KEEP) continue;
    if (!long_keys.insert(key.substr(0, ID_KEEP)).second) return false;
  }
  return true;
}

}  // namespace

ColumnSummary summarize_column(const DelimitedTable &t, size_t col,
                               const std::vector<std::string> &markers) {
  ColumnSummary s{0, 0, true, false, false, false, -1};
  size_t rows = table_rows(t);
  for (size_t r = 0; r < rows; r++) {
    const char *cell = table_cell(t, r, col);
    if (is_missing_text(cell, markers)) {
      s.n_missing++;
      continue;
    }
    if (s.first_text_row < 0 && !is_number_text(cell, nullptr)) {
      s.first_text_row = static_cast<int>(r);
      s.numeric = false;
    }
  }
  s.n_distinct = count_distinct(t, col, markers);
  if (s.n_distinct == 0) s.numeric = false;
  s.distinct_per_row = s.n_missing == 0 && static_cast<size_t>(s.n_distinct) == rows &&
                       ids_stay_apart(t, col);
  long double first = 0;
  bool increasing = s.numeric && s.n_missing == 0 && increasing_integers(t, col, &first);
  s.row_number = increasing && (first == 0 || first == 1) &&
                 first + static_cast<long double>(rows - 1) ==
                     std::stold(table_cell(t, rows - 1, col));
  s.index_like = s.row_number || (increasing && rows >= INDEX_MIN_ROWS);
  return s;
}
