#include "prep/decimal_comma.h"

#include <cctype>
#include <cstring>

#include "prep/cell_value.h"

namespace {

bool digit(char c) { return isdigit(static_cast<unsigned char>(c)) != 0; }

// [sign] digits, or 1-3 digits followed by groups ".ddd"; then optionally
// "," and one or more digits. Sets `comma` when the decimal comma is there.
bool comma_number(const char *s, bool *comma) {
  if (*s == '+' || *s == '-') s++;
  size_t lead = strspn(s, "0123456789");
  if (lead == 0) return false;
  s += lead;
  if (*s == '.') {
    if (lead > 3) return false;
    while (*s == '.') {
      if (strspn(s + 1, "0123456789") != 3) return false;
      s += 4;
    }
  }
  *comma = *s == ',';
  if (!*comma) return *s == '\0';
  s++;
  size_t frac = strspn(s, "0123456789");
  return frac > 0 && s[frac] == '\0' && digit(s[0]);
}

}  // namespace

bool has_decimal_commas(const DelimitedTable &t, size_t col,
                        const std::vector<std::string> &markers) {
  bool any = false;
  for (size_t r = 0; r < table_rows(t); r++) {
    const char *cell = table_cell(t, r, col);
    if (is_missing_text(cell, markers)) continue;
    bool comma = false;
    if (!comma_number(cell, &comma)) return false;
    any = any || comma;
  }
  return any;
}

void convert_decimal_commas(DelimitedTable *t, size_t col,
                            const std::vector<std::string> &markers) {
  for (size_t r = 0; r < table_rows(*t); r++) {
    char *cell = &t->text[t->starts[r * t->names.size() + col]];
    if (is_missing_text(cell, markers)) continue;
    char *out = cell;
    for (const char *in = cell; *in != '\0'; in++) {
      if (*in == '.') continue;
      *out++ = *in == ',' ? '.' : *in;
    }
    *out = '\0';
  }
}
