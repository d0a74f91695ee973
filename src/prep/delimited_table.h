// An input table: column names and the trimmed cell texts of every data row.
// The cells are held compactly (one block of text and an offset per cell),
// so that a table takes a small multiple of the bytes of its file.
#ifndef VESK_PREP_DELIMITED_TABLE_H
#define VESK_PREP_DELIMITED_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

struct DelimitedTable {
  char delimiter;
  std::vector<std::string> names;  // one per column
  std::string text;                // every cell's text followed by a NUL, row by row
  std::vector<size_t> starts;      // offset in `text` of cell (r, c), at r * names.size() + c
  std::vector<int> row_line;       // input line where each row starts
};

// Number of data rows.
inline size_t table_rows(const DelimitedTable &t) { return t.row_line.size(); }
// The text of cell (r, c), NUL-terminated.
inline const char *table_cell(const DelimitedTable &t, size_t r, size_t c) {
  return t.text.data() + t.starts[r * t.names.size() + c];
}
// Appends a row of names.size() cells.
void add_table_row(DelimitedTable *t, const std::vector<std::string> &cells, int line);

// Reads `path`. `delimiter` 0 detects it from the first line. With `header`,
// the first record names the columns; otherwise (and for an empty name) the
// column at index i is named "column<i>". Dies on a row whose field count
// differs from the first record's, and on a file without data rows.
DelimitedTable read_delimited_table(const char *path, char delimiter, bool header);

// The table with its columns in a new order: column c of the result is
// column source[c] of `t`, or, where source[c] is -1, a column named
// names[c] whose every cell is fill[c].
DelimitedTable arrange_columns(const DelimitedTable &t, const std::vector<long> &source,
                               const std::vector<std::string> &names,
                               const std::vector<std::string> &fill);

// `text` without leading and trailing blanks and tabs.
std::string trim_blanks(const std::string &text);

#endif
