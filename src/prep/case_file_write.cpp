#include "prep/case_file_write.h"

#include <cstdio>

#include "prep/cell_value.h"
#include "prep/output_file.h"
#include "prep/prep_fail.h"

namespace {

std::string case_cell(const std::string &cell, int role, bool line_start,
                      const std::vector<std::string> &markers, EncodeCounts *counts) {
  if (role != ROLE_ID && is_missing_text(cell, markers)) return "?";
  if (role == ROLE_CONTINUOUS || role == ROLE_COUNT) return cell;  // a number: nothing to encode
  return encode_case_text(cell, line_start, counts);
}

std::string header_line(const DelimitedTable &t, EncodeCounts *counts) {
  std::string line = "#";
  for (size_t c = 0; c < t.names.size(); c++) {
    if (c > 0) line += ',';
    line += encode_case_text(t.names[c], false, counts);
  }
  return line;
}

}  // namespace

void write_case_file(OutputFile *out, const DelimitedTable &t,
                     const std::vector<ColumnPlan> &plans,
                     const std::vector<std::string> &markers, EncodeCounts *counts) {
  EncodeCounts header_counts;
  clear_encode_counts(&header_counts);
  fprintf(out->fp, "%s\n", header_line(t, &header_counts).c_str());
  std::string line;
  for (size_t r = 0; r < table_rows(t); r++) {
    line.clear();
    for (size_t c = 0; c < t.names.size(); c++) {
      if (c > 0) line += ',';
      line += case_cell(table_cell(t, r, c), plans[c].role, c == 0, markers, counts);
    }
    if (line.size() > CASE_LINE_MAX) {
      prep_die("the row on line %d would take %zu bytes in the case file, more than the %d "
               "that vesk reads; ignore or shorten its longest columns",
               t.row_line[r], line.size(), CASE_LINE_MAX);
    }
    fprintf(out->fp, "%s\n", line.c_str());
  }
  close_output_file(out);
}

std::string quote_csv_field(const std::string &text) {
  bool quote = text.find_first_of(",\"\r\n") != std::string::npos ||
               (!text.empty() && (text.front() == ' ' || text.back() == ' '));
  if (!quote) return text;
  std::string out = "\"";
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

void write_columns_file(OutputFile *out, const DelimitedTable &t,
                        const std::vector<ColumnPlan> &plans) {
  fputs("index,name,role\n", out->fp);
  for (size_t c = 0; c < t.names.size(); c++) {
    fprintf(out->fp, "%zu,%s,%s\n", c, quote_csv_field(t.names[c]).c_str(),
            role_name(plans[c].role));
  }
  close_output_file(out);
}
