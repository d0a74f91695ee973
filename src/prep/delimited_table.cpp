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

void add_table_row(DelimitedTable *t, const std::vector<std::string> &cells, int line) {
  for (const std::string &cell : cells) {
    t->starts.push_back(t->text.size());
    t->text.append(cell);
    t->text.push_back('\0');
  }
  t->row_line.push_back(line);
}

DelimitedTable read_delimited_table(const char *path, char delimiter, bool header) {
  DelimitedTable t;
  {
    std::string text = read_text_file(path);
    t.delimiter = delimiter != 0 ? delimiter : detect_delimiter(text);
    // Every cell ends at a delimiter or a line end (or the end of the text):
    // reserving that many cells at once keeps the table from growing by
    // doubling, so that it takes at most about five times the file.
    size_t ends = 1;
    for (char c : text) ends += c == t.delimiter || c == '\n' || c == '\r';
    t.starts.reserve(ends);
    t.text.reserve(text.size() + 1);
    bool named = false;
    int first_line = 0;
    std::vector<std::string> cells;
    parse_delimited_each(text, t.delimiter, path,
                         [&](const std::vector<std::string> &fields, int line) {
      bool blank = fields.size() == 1 && trim_blanks(fields[0]).empty();
      if (!named) {
        if (blank) return;
        named = true;
        first_line = line;
        for (size_t i = 0; i < fields.size(); i++) {
          std::string name = header ? trim_blanks(fields[i]) : "";
          t.names.push_back(name.empty() ? default_name(i) : name);
        }
        if (header) return;
      }
      size_t width = t.names.size();
      if (width > 1 && blank) return;
      if (fields.size() != width) {
        prep_die("%s: line %d has %zu fields but line %d has %zu (fields are separated by %s; "
                 "quote a value that holds one with double quotes)",
                 path, line, fields.size(), first_line, width, delimiter_name(t.delimiter));
      }
      cells.clear();
      for (const std::string &f : fields) cells.push_back(trim_blanks(f));
      add_table_row(&t, cells, line);
    });
    if (!named) prep_die("%s holds no rows", path);
  }
  if (table_rows(t) == 0) prep_die("%s holds a header row but no data rows", path);
  return t;
}

DelimitedTable arrange_columns(const DelimitedTable &t, const std::vector<long> &source,
                               const std::vector<std::string> &names,
                               const std::vector<std::string> &fill) {
  DelimitedTable out;
  out.delimiter = t.delimiter;
  out.names = names;
  std::vector<std::string> cells(names.size());
  for (size_t r = 0; r < table_rows(t); r++) {
    for (size_t c = 0; c < names.size(); c++)
      cells[c] = source[c] >= 0 ? table_cell(t, r, static_cast<size_t>(source[c])) : fill[c];
    add_table_row(&out, cells, t.row_line[r]);
  }
  return out;
}
