// What the cells of one input column say about it: missing values, distinct
// values, whether every value is a number, whether it looks like a row index.
#ifndef VESK_PREP_COLUMN_SUMMARY_H
#define VESK_PREP_COLUMN_SUMMARY_H

#include <cstddef>
#include <string>
#include <vector>

#include "prep/delimited_table.h"

// vesk tells case IDs apart by their first ID_KEEP characters in the case file.
enum { ID_KEEP = 256 };

struct ColumnSummary {
  int n_missing;          // cells that are missing values
  int n_distinct;         // distinct texts among the other cells
  bool numeric;           // every present cell is a number (false when none is present)
  bool distinct_per_row;  // no missing cell, and no two rows alike in their first ID_KEEP
                          // characters as written to the case file
  bool row_number;        // no missing cell, and the integers 0, 1, 2 ... or 1, 2, 3 ... in row order
  bool index_like;        // counts the rows, or (in 10 rows or more) integers that increase
                          // from row to row
  int first_text_row;     // row index of the first present cell that is not a number, or -1
};

ColumnSummary summarize_column(const DelimitedTable &t, size_t col,
                               const std::vector<std::string> &markers);

#endif
