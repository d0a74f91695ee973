#include "prep/text_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "prep/prep_fail.h"

namespace {

bool starts_with_bytes(const std::string &text, const char *bytes, size_t n) {
  return text.size() >= n && memcmp(text.data(), bytes, n) == 0;
}

void check_encoding(const std::string &text, const char *path) {
  if (starts_with_bytes(text, "\xFF\xFE", 2) || starts_with_bytes(text, "\xFE\xFF", 2) ||
      starts_with_bytes(text, "\0\0\xFE\xFF", 4)) {
    prep_die("%s is UTF-16 or UTF-32 encoded; save it as UTF-8 (\"CSV UTF-8\") and try again",
             path);
  }
}

// Dies at the first NUL byte of a chunk just read (so that a file such as
// /dev/zero stops at once); `line` counts the line ends read so far.
void check_chunk(const char *buf, size_t n, const char *path, long *line) {
  for (size_t i = 0; i < n; i++) {
    if (buf[i] == '\n') (*line)++;
    if (buf[i] == '\0') prep_die("%s: line %ld holds a NUL byte; is it a text file?", path, *line);
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
  // Closed however the reading ends (a harness may turn a failure into an
  // exception and go on with the next file).
  std::unique_ptr<FILE, int (*)(FILE *)> closer(fp, fclose);
  std::string text;
  char buf[65536];
  size_t n;
  long line = 1;
  bool first = true;
  while ((n = fread(buf, 1, sizeof buf, fp)) > 0) {
    text.append(buf, n);
    if (first) check_encoding(text, path);
    first = false;
    check_chunk(buf, n, path, &line);
  }
  bool failed = ferror(fp) != 0;
  closer.reset();
  if (failed) prep_die("cannot read %s", path);
  return strip_utf8_bom(text);
}
