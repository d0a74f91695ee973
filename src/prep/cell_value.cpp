#include "prep/cell_value.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

std::vector<std::string> default_missing_markers() {
  return {"", "NA", "N/A", "NaN", "nan", "?", "NULL", "null", "#N/A"};
}

bool is_missing_text(const std::string &cell, const std::vector<std::string> &markers) {
  if (cell.empty()) return true;
  for (const std::string &m : markers) {
    if (cell == m) return true;
  }
  return false;
}

bool is_number_text(const std::string &cell, long double *value) {
  // strtold also takes hexadecimal numbers, "inf" and "nan" and leading
  // blanks; a number here is only what the decimal characters can spell.
  if (cell.empty() || strspn(cell.c_str(), "0123456789+-.eE") != cell.size()) return false;
  if (strpbrk(cell.c_str(), "0123456789") == nullptr) return false;
  char *end = nullptr;
  errno = 0;
  long double v = strtold(cell.c_str(), &end);
  if (end == cell.c_str() || *end != '\0' || !std::isfinite(v)) return false;
  if (value != nullptr) *value = v;
  return true;
}
