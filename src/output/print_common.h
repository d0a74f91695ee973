// The frame of every result file: section headers ("#### ID:..."), data rows
// assembled item by item or written whole, and the texts of attribute values
// and case identifiers used by the row writers.
#ifndef VESK_OUTPUT_PRINT_COMMON_H
#define VESK_OUTPUT_PRINT_COMMON_H

#include <cstdio>

#include "base/misc.h"
#include "input/case_text.h"

enum { DESC_ID_SIZE = 128, DESC_COL_SIZE = 128, DESC_COMM_SIZE = 1024 };

struct Printer {
  char desc_id[DESC_ID_SIZE];
  char **desc_col;
  int desc_col_size, max_desc_col_size;
  char **desc_comm;
  int desc_comm_size, max_desc_comm_size;
  char *data_line;
  int data_line_offset;
};
extern Printer printer;

void initialize_printer();
void release_printer();

void add_desc_id(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void add_desc_col(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void add_desc_comm(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void flush_desc(FILE *fp);

void add_data(const char *fmt, ...);
void add_data_float(long double x);
void add_data_int(int n);
void add_data_str(const char *s);
void flush_data(FILE *fp);
void print_data(FILE *fp, const char *fmt, ...);

const char *mode_str(int flag);

// Adds one item per model attribute of a case, in column order (none with
// --hide-attr).
void add_data_attr_values(int entry);
// One column per member attribute of Gaussian group g, named by `fmt` filled
// with the attribute's index, and the members' values in a case (neither
// with --hide-attr).
void add_desc_group_attr(int g, const char *fmt);
void add_data_group_values(int g, int entry);

void print_version(FILE *fp);
void print_usage(FILE *fp);
void print_usage_full(FILE *fp);

#endif
