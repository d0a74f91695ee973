#include "prep/prep_fail.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

void prep_die(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  fputs("vesk-prep: ", stderr);
  vfprintf(stderr, fmt, ap);
  fputc('\n', stderr);
  va_end(ap);
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
