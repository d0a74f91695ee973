#include "prep/delimited_parse.h"

#include "prep/prep_fail.h"

namespace {

struct ParseState {
  const std::string &text;
  char delimiter;
  const char *fname;
  size_t pos;
  int line;
};

bool at_line_end(const ParseState &st) {
  return st.pos < st.text.size() && (st.text[st.pos] == '\n' || st.text[st.pos] == '\r');
}

// Moves past one line end (LF, CR LF or CR) and counts the line.
void skip_line_end(ParseState &st) {
  if (st.text[st.pos] == '\r' && st.pos + 1 < st.text.size() && st.text[st.pos + 1] == '\n')
    st.pos++;
  st.pos++;
  st.line++;
}

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Reads a quoted field; st.pos is on the opening quote. Leaves st.pos on the
// character after the closing quote and any blanks that follow it.
std::string read_quoted(ParseState &st) {
  int start_line = st.line;
  std::string field;
  st.pos++;
  for (;;) {
    if (st.pos >= st.text.size()) {
      prep_die("%s: the quoted field that starts on line %d is never closed", st.fname,
               start_line);
    }
    char c = st.text[st.pos];
    if (c == '"') {
      if (st.pos + 1 < st.text.size() && st.text[st.pos + 1] == '"') {
        field += '"';
        st.pos += 2;
        continue;
      }
      st.pos++;
      break;
    }
    if (c == '\n' || (c == '\r' && !(st.pos + 1 < st.text.size() && st.text[st.pos + 1] == '\n')))
      st.line++;
    field += c;
    st.pos++;
  }
  while (st.pos < st.text.size() && is_blank(st.text[st.pos]) && st.text[st.pos] != st.delimiter)
    st.pos++;
  if (st.pos < st.text.size() && st.text[st.pos] != st.delimiter && !at_line_end(st)) {
    prep_die("%s: line %d: a closing quote must be followed by the delimiter or the line end",
             st.fname, st.line);
  }
  return field;
}

// Reads one unquoted field, or a quoted one when its first non-blank
// character is a double quote.
std::string read_field(ParseState &st) {
  size_t start = st.pos;
  while (st.pos < st.text.size() && is_blank(st.text[st.pos]) && st.text[st.pos] != st.delimiter)
    st.pos++;
  if (st.pos < st.text.size() && st.text[st.pos] == '"') return read_quoted(st);
  st.pos = start;
  while (st.pos < st.text.size() && st.text[st.pos] != st.delimiter && !at_line_end(st)) st.pos++;
  return st.text.substr(start, st.pos - start);
}

}  // namespace

void parse_delimited_each(const std::string &text, char delimiter, const char *fname,
                          const std::function<void(const std::vector<std::string> &, int)> &take) {
  ParseState st{text, delimiter, fname, 0, 1};
  std::vector<std::string> fields;
  while (st.pos < text.size()) {
    if (at_line_end(st)) {  // an empty line
      skip_line_end(st);
      continue;
    }
    int line = st.line;
    fields.clear();
    for (;;) {
      fields.push_back(read_field(st));
      if (st.pos < text.size() && text[st.pos] == delimiter) {
        st.pos++;
        continue;
      }
      break;
    }
    if (st.pos < text.size()) skip_line_end(st);
    take(fields, line);
  }
}

std::vector<DelimitedRecord> parse_delimited(const std::string &text, char delimiter,
                                             const char *fname) {
  std::vector<DelimitedRecord> records;
  parse_delimited_each(text, delimiter, fname,
                       [&records](const std::vector<std::string> &fields, int line) {
                         records.push_back({fields, line});
                       });
  return records;
}

char detect_delimiter(const std::string &text) {
  const char candidates[] = {',', '\t', ';'};
  int counts[3] = {0, 0, 0};
  bool quoted = false;
  for (size_t i = 0; i < text.size(); i++) {
    char c = text[i];
    if (c == '"') quoted = !quoted;
    if (quoted) continue;
    if (c == '\n' || c == '\r') break;
    for (int k = 0; k < 3; k++) {
      if (c == candidates[k]) counts[k]++;
    }
  }
  int best = 0;
  for (int k = 1; k < 3; k++) {
    if (counts[k] > counts[best]) best = k;
  }
  return candidates[best];
}
