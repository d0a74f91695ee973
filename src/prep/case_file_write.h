// Writes the case file made from the input table and the file that names its
// columns.
#ifndef VESK_PREP_CASE_FILE_WRITE_H
#define VESK_PREP_CASE_FILE_WRITE_H

#include <string>
#include <vector>

#include "prep/case_encode.h"
#include "prep/column_role.h"
#include "prep/delimited_table.h"
#include "prep/output_file.h"

// Longest line the case file reader splits whole.
enum { CASE_LINE_MAX = 131072 };

// Writes every column of every row, comma-separated, in input order: the
// header as a "#" comment line, missing values (cells in `markers`) as "?",
// other texts encoded (case_encode.h). Dies on a line longer than
// CASE_LINE_MAX. Counts what was encoded in `counts`. The file is left
// closed under its temporary name (output_file.h).
void write_case_file(OutputFile *out, const DelimitedTable &t,
                     const std::vector<ColumnPlan> &plans,
                     const std::vector<std::string> &markers, EncodeCounts *counts);

// Writes "index,name,role" and one line per column, the name quoted as in
// RFC 4180 when it holds a comma, a quote, a line end or edge blanks; left
// closed under its temporary name.
void write_columns_file(OutputFile *out, const DelimitedTable &t,
                        const std::vector<ColumnPlan> &plans);

// `text` as one field of an RFC 4180 file.
std::string quote_csv_field(const std::string &text);

#endif
