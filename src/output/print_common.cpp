#include "output/print_common.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "base/misc.h"
#include "settings/settings.h"
#include "settings/usage_text.h"
#include "input/read_freq.h"

Printer printer;

namespace {

enum { DATA_ITEM_SIZE = 257, INIT_DESC_COL = 10, INIT_DESC_COMM = 3 };


// Doubles a header array, giving every new slot a zero-filled buffer.
char **grow_desc_array(char **array, int *max_size, int width) {
  int old_size = *max_size;
  int new_size = old_size * 2;
  array = static_cast<char **>(xrealloc0(array, sizeof(char *) * new_size, "print_common.cpp", 1));
  for (int i = old_size; i < new_size; i++)
    array[i] = static_cast<char *>(calloc_str0(width, "print_common.cpp", 2));
  *max_size = new_size;
  return array;
}

char **alloc_desc_array(int n, int width) {
  char **array = static_cast<char **>(xmalloc0(sizeof(char *) * n, "print_common.cpp", 3));
  for (int i = 0; i < n; i++) array[i] = static_cast<char *>(calloc_str0(width, "print_common.cpp", 4));
  return array;
}

// Appends one item to the pending row, after a delimiter unless the row is
// still empty. The row length keeps counting past the buffer so that the
// overflow is reported at flush time; bytes beyond the buffer are not stored.
void append_item(const char *item) {
  int offset = printer.data_line_offset;
  if (offset > 0) {
    if (offset < DATA_LINE_SIZE) printer.data_line[offset] = settings.format_out == FORMAT_CSV ? ',' : '\t';
    offset++;
  }
  size_t len = strlen(item);
  if (offset < DATA_LINE_SIZE) {
    size_t room = DATA_LINE_SIZE - offset;
    memcpy(printer.data_line + offset, item, len < room ? len : room);
  }
  offset += static_cast<int>(len);
  printer.data_line_offset = offset;
}

}  // namespace

void initialize_printer() {
  printer.desc_id[0] = '\0';
  printer.desc_col = alloc_desc_array(INIT_DESC_COL, DESC_COL_SIZE);
  printer.max_desc_col_size = INIT_DESC_COL;
  printer.desc_col_size = 0;
  printer.desc_comm = alloc_desc_array(INIT_DESC_COMM, DESC_COMM_SIZE);
  printer.max_desc_comm_size = INIT_DESC_COMM;
  printer.desc_comm_size = 0;
  printer.data_line = static_cast<char *>(calloc_str0(DATA_LINE_SIZE + 1, "print_common.cpp", 5));
  printer.data_line_offset = 0;
}

void release_printer() {
  for (int i = 0; i < printer.max_desc_col_size; i++) free(printer.desc_col[i]);
  for (int i = 0; i < printer.max_desc_comm_size; i++) free(printer.desc_comm[i]);
  free(printer.desc_col);
  free(printer.desc_comm);
  free(printer.data_line);
  printer.desc_col = printer.desc_comm = nullptr;
  printer.data_line = nullptr;
  printer.max_desc_col_size = printer.max_desc_comm_size = 0;
  printer.desc_col_size = printer.desc_comm_size = printer.data_line_offset = 0;
}

void add_desc_id(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(printer.desc_id, DESC_ID_SIZE, conv_desc(fmt), ap);
  va_end(ap);
}

void add_desc_col(const char *fmt, ...) {
  if (printer.desc_col_size >= printer.max_desc_col_size)
    printer.desc_col = grow_desc_array(printer.desc_col, &printer.max_desc_col_size, DESC_COL_SIZE);
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(printer.desc_col[printer.desc_col_size++], DESC_COL_SIZE, conv_desc(fmt), ap);
  va_end(ap);
}

void add_desc_comm(const char *fmt, ...) {
  if (printer.desc_comm_size >= printer.max_desc_comm_size)
    printer.desc_comm = grow_desc_array(printer.desc_comm, &printer.max_desc_comm_size, DESC_COMM_SIZE);
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(printer.desc_comm[printer.desc_comm_size++], DESC_COMM_SIZE, conv_desc(fmt), ap);
  va_end(ap);
}

void flush_desc(FILE *fp) {
  fprintf(fp, "#### ID:%s\n", printer.desc_id);
  if (printer.desc_col_size > 0) {
    fputs("#### ", fp);
    for (int i = 0; i < printer.desc_col_size; i++) {
      if (i > 0) fputs(", ", fp);
      fputs(printer.desc_col[i], fp);
    }
    fputc('\n', fp);
  }
  for (int i = 0; i < printer.desc_comm_size; i++) fprintf(fp, "#### -- %s\n", printer.desc_comm[i]);
  fputs("####\n", fp);
  printer.desc_id[0] = '\0';
  for (int i = 0; i < printer.desc_col_size; i++) printer.desc_col[i][0] = '\0';
  for (int i = 0; i < printer.desc_comm_size; i++) printer.desc_comm[i][0] = '\0';
  printer.desc_col_size = printer.desc_comm_size = 0;
}

void add_data(const char *fmt, ...) {
  char item[DATA_ITEM_SIZE];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(item, sizeof item, conv_base(data_prec_text(), fmt), ap);
  va_end(ap);
  append_item(item);
}

void add_data_float(long double x) { append_item(float2str(x)); }

void add_data_int(int n) { append_item(int2str(n)); }

void add_data_str(const char *s) { append_item(s); }

// Between rows a stop request takes effect.
void flush_data(FILE *fp) {
  check_stop();
  if (printer.data_line_offset == 0) return;
  if (printer.data_line_offset > DATA_LINE_SIZE) die("Output buffer overflow (size >= %d)\n", DATA_LINE_SIZE);
  printer.data_line[printer.data_line_offset] = '\0';
  fputs(printer.data_line, fp);
  fputc('\n', fp);
  printer.data_line_offset = 0;
  printer.data_line[0] = '\0';
}

void print_data(FILE *fp, const char *fmt, ...) {
  check_stop();
  va_list ap;
  va_start(ap, fmt);
  vfprintf(fp, conv_data(fmt), ap);
  va_end(ap);
  fputc('\n', fp);
}

const char *mode_str(int flag) { return flag > 0 ? "Enabled" : "Disabled"; }

void add_data_attr_values(int entry) {
  if (settings.mode_hide_attr) return;
  for (int a = 0; a < settings.tuple_size; a++)
    if (is_model_attr(a)) add_data_str(freq_entry_val(entry, a));
}

void add_desc_group_attr(int g, const char *fmt) {
  if (settings.mode_hide_attr) return;
  for (int i = 0; i < settings.gauss_attr_size[g]; i++) add_desc_col(fmt, settings.gauss_attr[g][i]);
}

void add_data_group_values(int g, int entry) {
  if (settings.mode_hide_attr) return;
  for (int i = 0; i < settings.gauss_attr_size[g]; i++)
    add_data_str(freq_entry_val(entry, settings.gauss_attr[g][i]));
}

void print_version(FILE *fp) {
  fputs(conv_msg(version_text), fp);
  fputc('\n', fp);
}

void print_usage(FILE *fp) {
  fputc('\n', fp);
  print_version(fp);
  fputs(conv_msg(usage_text), fp);
  fputc('\n', fp);
}

void print_usage_full(FILE *fp) {
  fputc('\n', fp);
  print_version(fp);
  fputs(conv_msg(usage_text_full), fp);
  fputc('\n', fp);
}
