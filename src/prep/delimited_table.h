// An input table: column names and the trimmed cell texts of every data row.
#ifndef VESK_PREP_DELIMITED_TABLE_H
#define VESK_PREP_DELIMITED_TABLE_H

#include <string>
#include <vector>

struct DelimitedTable {
  char delimiter;
  std::vector<std::string> names;              // one per column
  std::vector<std::vector<std::string>> rows;  // cells of each data row, blanks trimmed
  std::vector<int> row_line;                   // input line where each row starts
};

// Reads `path`. `delimiter` 0 detects it from the first line. With `header`,
// the first record names the columns; otherwise (and for an empty name) the
// column at index i is named "column<i>". Dies on a row whose field count
// differs from the first record's, and on a file without data rows.
DelimitedTable read_delimited_table(const char *path, char delimiter, bool header);

// `text` without leading and trailing blanks and tabs.
std::string trim_blanks(const std::string &text);

#endif
