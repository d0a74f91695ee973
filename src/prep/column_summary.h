// What the cells of one input column say about it: missing values, distinct
// values, whether every value is a number, whether it counts the rows.
#ifndef VESK_PREP_COLUMN_SUMMARY_H
#define VESK_PREP_COLUMN_SUMMARY_H

#include <cstddef>
#include <string>
#include <vector>

#include "prep/delimited_table.h"

struct ColumnSummary {
  int n_missing;          // cells that are missing values
  int n_distinct;         // distinct texts among the other cells
  bool numeric;           // every present cell is a number (false when none is present)
  bool distinct_per_row;  // no missing cell, and no text in two rows
  bool row_number;        // no missing cell, and the integers 0, 1, 2 ... or 1, 2, 3 ... in row order
  int first_text_row;     // row index of the first present cell that is not a number, or -1
};

ColumnSummary summarize_column(const DelimitedTable &t, size_t col,
                               const std::vector<std::string> &markers);

#endif
