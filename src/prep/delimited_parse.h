// Splits delimited text into records of fields, with the quoting of RFC 4180:
// a field that begins with a double quote runs to the matching closing quote,
// may hold delimiters and line ends, and writes a quote as two quotes. Lines
// end with LF, CR LF or CR.
#ifndef VESK_PREP_DELIMITED_PARSE_H
#define VESK_PREP_DELIMITED_PARSE_H

#include <functional>
#include <string>
#include <vector>

struct DelimitedRecord {
  std::vector<std::string> fields;  // unquoted field texts
  int line;                         // 1-based input line where the record starts
};

// Gives each record of `text` to `take` (fields, 1-based line where the
// record starts) as it is read, so that no more than one record is held;
// lines that are empty are skipped. Dies as parse_delimited does.
void parse_delimited_each(const std::string &text, char delimiter, const char *fname,
                          const std::function<void(const std::vector<std::string> &, int)> &take);

// All records of `text`; lines that are empty (no character at all) are
// skipped. Dies, naming `fname` and the line, on a quoted field that is not
// closed or a closing quote followed by anything but blanks, the delimiter
// or a line end.
std::vector<DelimitedRecord> parse_delimited(const std::string &text, char delimiter,
                                             const char *fname);

// The delimiter of the first record: whichever of comma, tab and semicolon
// occurs most often outside quotes (comma on a tie or when none occurs).
char detect_delimiter(const std::string &text);

#endif
