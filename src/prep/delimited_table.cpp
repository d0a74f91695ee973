#include "prep/delimited_table.h"

#include <cstdio>

#include "prep/delimited_parse.h"
#include "prep/prep_fail.h"
#include "prep/text_file.h"

namespace {

const char *delimiter_name(char d) {
  switch (d) {
    case ',': return "commas";
    case '\t': return "tabs";
    case ';': return "semicolons";
    default: return "the delimiter";
  }
}

// A record made only of blanks on a line of its own.
bool is_blank_record(const DelimitedRecord &rec) {
  return rec.fields.size() == 1 && trim_blanks(rec.fields[0]).empty();
}

std::string default_name(size_t i) {
  char buf[32];
  snprintf(buf, sizeof buf, "column%zu", i);
  return buf;
}

}  // namespace

std::string trim_blanks(const std::string &text) {
  size_t b = 0, e = text.size();
  while (b < e && (text[b] == ' ' || text[b] == '\t')) b++;
  while (e > b && (text[e - 1] == ' ' || text[e - 1] == '\t')) e--;
  return text.substr(b, e - b);
}

DelimitedTable read_delimited_table(const char *path, char delimiter, bool header) {
  std::string text = read_text_file(path);
  DelimitedTable t;
  t.delimiter = delimiter != 0 ? delimiter : detect_delimiter(text);
  std::vector<DelimitedRecord> records = parse_delimited(text, t.delimiter, path);
  size_t first = 0;
  while (first < records.size() && is_blank_record(records[first])) first++;
  if (first == records.size()) prep_die("%s holds no rows", path);
  size_t width = records[first].fields.size();
  for (size_t i = 0; i < width; i++) {
    std::string name = header ? trim_blanks(records[first].fields[i]) : "";
    t.names.push_back(name.empty() ? default_name(i) : name);
  }
  for (size_t r = header ? first + 1 : first; r < records.size(); r++) {
    const DelimitedRecord &rec = records[r];
    if (width > 1 && is_blank_record(rec)) continue;
    if (rec.fields.size() != width) {
      prep_die("%s: line %d has %zu fields but line %d has %zu (fields are separated by %s; "
               "quote a value that holds one with double quotes)",
               path, rec.line, rec.fields.size(), records[first].line, width,
               delimiter_name(t.delimiter));
    }
    std::vector<std::string> cells;
    cells.reserve(width);
    for (const std::string &f : rec.fields) cells.push_back(trim_blanks(f));
    t.rows.push_back(std::move(cells));
    t.row_line.push_back(rec.line);
  }
  if (t.rows.empty()) prep_die("%s holds a header row but no data rows", path);
  return t;
}
