#include "prep/text_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "prep/prep_fail.h"

namespace {

bool starts_with_bytes(const std::string &text, const char *bytes, size_t n) {
  return text.size() >= n && memcmp(text.data(), bytes, n) == 0;
}

// Line number (1-based) of byte `pos`.
int line_of(const std::string &text, size_t pos) {
  int line = 1;
  for (size_t i = 0; i < pos; i++) {
    if (text[i] == '\n') line++;
  }
  return line;
}

void check_encoding(const std::string &text, const char *path) {
  if (starts_with_bytes(text, "\xFF\xFE", 2) || starts_with_bytes(text, "\xFE\xFF", 2) ||
      starts_with_bytes(text, "\0\0\xFE\xFF", 4)) {
    prep_die("%s is UTF-16 or UTF-32 encoded; save it as UTF-8 (\"CSV UTF-8\") and try again",
             path);
  }
  size_t nul = text.find('\0');
  if (nul != std::string::npos) {
    prep_die("%s: line %d holds a NUL byte; is it a text file?", path, line_of(text, nul));
  }
}

}  // namespace

std::string strip_utf8_bom(const std::string &text) {
  if (starts_with_bytes(text, "\xEF\xBB\xBF", 3)) return text.substr(3);
  return text;
}

std::string read_text_file(const char *path) {
  FILE *fp = fopen(path, "rb");
  if (fp == nullptr) prep_die("cannot open %s: %s", path, strerror(errno));
  std::string text;
  char buf[65536];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, fp)) > 0) text.append(buf, n);
  bool failed = ferror(fp) != 0;
  fclose(fp);
  if (failed) prep_die("cannot read %s", path);
  check_encoding(text, path);
  return strip_utf8_bom(text);
}
