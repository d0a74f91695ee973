#include "prep/prep_fail.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::vector<std::string> &pending() {
  static std::vector<std::string> paths;
  return paths;
}

}  // namespace

void remove_on_failure(const std::string &path) { pending().push_back(path); }

void keep_on_failure(const std::string &path) {
  std::vector<std::string> &p = pending();
  for (size_t i = 0; i < p.size(); i++) {
    if (p[i] == path) p.erase(p.begin() + static_cast<long>(i--));
  }
}

void prep_die(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  fputs("vesk-prep: ", stderr);
  vfprintf(stderr, fmt, ap);
  fputc('\n', stderr);
  va_end(ap);
  for (const std::string &path : pending()) remove(path.c_str());
  fflush(stdout);
  exit(1);
}

void prep_warn(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  fputs("vesk-prep: warning: ", stderr);
  vfprintf(stderr, fmt, ap);
  fputc('\n', stderr);
  va_end(ap);
}
