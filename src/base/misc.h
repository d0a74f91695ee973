// Messages, failures, allocation wrappers, the precision and delimiter
// conversions of format strings, and the two clocks.
#ifndef VESK_BASE_MISC_H
#define VESK_BASE_MISC_H

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "base/stop.h"

enum { WORK_BUF_SIZE = 1048576 };
// The longest data row of a result file.
enum { DATA_LINE_SIZE = 1048576 };
enum { FORMAT_CSV = 1, FORMAT_TXT = 2 };

// Where the messages and the conversions below take their values from: the
// precisions of "%.N" in messages and in results, the result format (a comma
// delimits FORMAT_CSV, a tab anything else), whether annealing marks are shown,
// the log (none when null) and the message stream (stderr when null). Each
// value is read at its use; the precision texts are made once, at first use.
// Bound by the owner of these values at start-up; until then the defaults.
struct MessageConfig {
  const int *prec_msg, *prec_out, *format_out, *show_anneal;
  FILE *const *fp_log, *const *fp_msg;
};
extern MessageConfig message_config;

// Five work buffers shared by the conversions and the printer.
struct WorkBuffers {
  char *buf_crlf, *buf_base, *buf_sys, *buf_delim, *buf_cout;
};
extern WorkBuffers work_buf;

void initialize_buffer();
void release_buffer();

// Termination: none of these returns; all end the run with status 1
// through exit_run (base/stop.h).
[[noreturn]] void die(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void die_line(const char *fname, int line_no, int id, const char *line,
                           const char *reason, int column);
[[noreturn]] void die_numeric(const char *where, const char *what);
[[noreturn]] void die_dimension(const char *func);
[[noreturn]] void die_alloc(const char *module, int site);
[[noreturn]] void die_realloc(const char *module, int site);

// Allocation; failures print the allocation message to stderr and exit 1.
void *xmalloc0(size_t size, const char *module, int site);
void *calloc_str0(size_t size, const char *module, int site);
char *alloc_str0(size_t size, const char *module, int site);
char *dup_str0(const char *text, const char *module, int site);
void *xrealloc0(void *block, size_t size, const char *module, int site);

// Format conversions ("%.N" precision placeholder, "," delimiter, "~" escape).
const char *conv_base(const char *prec_text, const char *fmt);
const char *conv_msg(const char *fmt);
const char *conv_desc(const char *fmt);
const char *conv_delim(const char *text);
const char *conv_data(const char *fmt);
const char *data_prec_text();

const char *float2str(long double x);
const char *int2str(int n);

void tolower_str(char *text);
void toupper_str(char *text);

// Progress messages on the message stream.
void print_msg(const char *fmt, ...);
void print_dot_message(int i);
void print_daem_message(int n, long double itemp);
void print_daem_message_sm(int quiet, int n, long double itemp);

// The message stream: the --save-msg file, or stderr until it is set.
FILE *msg_stream();

// The machine's physical memory in bytes (infinite when unknown). Tables
// larger than this cannot be used, so their allocation fails at once.
long double physical_memory_bytes();

// Clocks in seconds: user CPU time of the process, and wall clock.
long double current_sec();
long double elapsed_sec();
// Records both clocks at the start or end of a phase.
void stamp_time(long double *cpu, long double *wall);

#endif
