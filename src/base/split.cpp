// Splits one line of the case file into fields at its delimiter. There is no
// quoting; dropped characters (blanks, and tabs in comma-separated files) are
// removed from every field.
#include "base/split.h"

#include <cstdlib>
#include <cstring>

#include "base/misc.h"

namespace {

const char *const MODULE = "split.cpp";

bool is_one_of(char c, const char *set) { return c != '\0' && strchr(set, c) != nullptr; }

int count_delimiters(const char *line, const char *delimiters) {
  int n = 0;
  for (int i = 0; i < SPLIT_SCAN_MAX && line[i] != '\0'; i++) {
    if (is_one_of(line[i], delimiters)) n++;
  }
  return n;
}

}  // namespace

int count_fields(const char *line, const char *delimiters) {
  return count_delimiters(line, delimiters) + 1;
}

int split(int max_fields, const char *line, char **fields, int *starts, const char *delimiters,
          const char *dropped) {
  if (starts != nullptr) {
    for (int i = 0; i < max_fields; i++) starts[i] = -1;
  }
  int num_fields = count_fields(line, delimiters);
  if (num_fields > max_fields) return -1;

  int field = 0, len = 0;
  for (int i = 0; i < FIELD_SIZE && line[i] != '\0'; i++) {
    char c = line[i];
    if (c == '\r' || c == '\n') break;
    if (is_one_of(c, dropped)) continue;
    if (is_one_of(c, delimiters)) {
      // A delimiter past the counted ones (beyond the scanned prefix) ends the line.
      if (field + 1 >= num_fields) break;
      fields[field][len] = '\0';
      field++;
      len = 0;
      continue;
    }
    if (len >= FIELD_SIZE - 1) continue;  // the buffer is full: the rest is cut off
    if (len == 0 && starts != nullptr) starts[field] = i;
    fields[field][len++] = c;
  }
  fields[field][len] = '\0';
  // Fields after an early line end are left empty rather than stale.
  for (int f = field + 1; f < num_fields; f++) fields[f][0] = '\0';
  return num_fields;
}

int split_tab(int max_fields, const char *line, char **fields, int *starts) {
  return split(max_fields, line, fields, starts, "\t", " ");
}

int split_comma(int max_fields, const char *line, char **fields, int *starts) {
  return split(max_fields, line, fields, starts, ",", " \t");
}

char **alloc_field(int n) {
  char **fields = static_cast<char **>(xmalloc0(sizeof(char *) * (n > 0 ? n : 1), MODULE, 1));
  for (int i = 0; i < n; i++) fields[i] = alloc_str0(FIELD_SIZE, MODULE, 2);
  return fields;
}

void release_field(char **fields, int n) {
  if (fields == nullptr) return;
  for (int i = 0; i < n; i++) free(fields[i]);
  free(fields);
}
