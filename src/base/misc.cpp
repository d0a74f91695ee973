#include "base/misc.h"

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/allocate_matrix.h"
#include "base/matrix.h"
#include "base/stop.h"

WorkBuffers work_buf;

namespace {
const int kDefaultPrecMsg = 6, kDefaultPrecOut = 12, kNoFormat = -1, kNoAnneal = 0;
FILE *const kNoStream = nullptr;
}  // namespace

MessageConfig message_config = {&kDefaultPrecMsg, &kDefaultPrecOut, &kNoFormat,
                                &kNoAnneal,       &kNoStream,       &kNoStream};

namespace {

// Precision texts, each made once at its first use and never changed.
struct PrecCache {
  char msg[16], desc[16], data[16], float_fmt[17];
  bool has_msg, has_desc, has_data, has_float;
};
PrecCache prec_cache;

char float_field[60];
char int_field[12];

const char *msg_prec_text() {
  if (!prec_cache.has_msg) {
    snprintf(prec_cache.msg, sizeof prec_cache.msg, "%d", *message_config.prec_msg);
    prec_cache.has_msg = true;
  }
  return prec_cache.msg;
}

const char *desc_prec_text() {
  if (!prec_cache.has_desc) {
    snprintf(prec_cache.desc, sizeof prec_cache.desc, "%d", *message_config.prec_out);
    prec_cache.has_desc = true;
  }
  return prec_cache.desc;
}

const char *float_format() {
  if (!prec_cache.has_float) {
    snprintf(prec_cache.float_fmt, sizeof prec_cache.float_fmt, "%%.%dLg", *message_config.prec_out);
    prec_cache.has_float = true;
  }
  return prec_cache.float_fmt;
}

char *alloc_work_buffer() {
  char *b = static_cast<char *>(calloc(WORK_BUF_SIZE, 1));
  if (b == nullptr) {
    fputs("Couldn't allocate memory for buffers\n", stderr);
    exit_run(1);
  }
  return b;
}

// Writes a formatted failure to the log (when open) and the message stream.
[[noreturn]] void vdie(const char *fmt, va_list ap) {
  if (*message_config.fp_log != nullptr) {
    va_list aq;
    va_copy(aq, ap);
    vfprintf(*message_config.fp_log, fmt, aq);
    va_end(aq);
    fflush(*message_config.fp_log);
  }
  vfprintf(msg_stream(), fmt, ap);
  fflush(msg_stream());
  exit_run(1);
}

}  // namespace

void initialize_buffer() {
  work_buf.buf_crlf = alloc_work_buffer();
  work_buf.buf_base = alloc_work_buffer();
  work_buf.buf_sys = alloc_work_buffer();
  work_buf.buf_delim = alloc_work_buffer();
  work_buf.buf_cout = alloc_work_buffer();
}

void release_buffer() {
  char **bufs[] = {&work_buf.buf_crlf, &work_buf.buf_base, &work_buf.buf_sys,
                   &work_buf.buf_delim, &work_buf.buf_cout};
  for (char **b : bufs) {
    free(*b);
    *b = nullptr;
  }
}

FILE *msg_stream() { return *message_config.fp_msg != nullptr ? *message_config.fp_msg : stderr; }

void die(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  vdie(fmt, ap);
}

void die_line(const char *fname, int line_no, int id, const char *line, const char *reason,
              int column) {
  enum { MARKER_SIZE = 131073 };
  // Kept once made, so that no failure leaves it unreachable.
  static char *marker = nullptr;
  if (marker == nullptr) marker = static_cast<char *>(malloc(MARKER_SIZE));
  if (marker == nullptr) die_alloc("misc.cpp", 1);
  if (column > MARKER_SIZE - 2) die("Internal error: die_line()\n");
  const char *text = conv_base(msg_prec_text(), line);
  if (column >= 0) {
    memset(marker, ' ', column);
    marker[column] = '^';
    marker[column + 1] = '\0';
    die("[ID:%d] Illegal line %d in %s: %s\n%s%s\n", id, line_no, fname, reason, text, marker);
  }
  die("[ID:%d] Illegal line %d in %s: %s\n%s", id, line_no, fname, reason, text);
}

void die_numeric(const char *where, const char *what) {
  die("Numerical error (%s): %s", where, what);
}

void die_dimension(const char *func) { die("Internal error: %s() -- illegal dimension(s)\n", func); }

void die_alloc(const char *module, int site) {
  fprintf(stderr, "Couldn't allocate memory (%s, line %d)\n", module, site);
  exit_run(1);
}

void die_realloc(const char *module, int site) {
  fprintf(stderr, "Couldn't reallocate memory (%s, line %d)\n", module, site);
  exit_run(1);
}

void *xmalloc0(size_t size, const char *module, int site) {
  void *p = malloc(size > 0 ? size : 1);
  if (p == nullptr) die_alloc(module, site);
  return p;
}

void *calloc_str0(size_t size, const char *module, int site) {
  void *p = calloc(size > 0 ? size : 1, 1);
  if (p == nullptr) die_alloc(module, site);
  return p;
}

char *alloc_str0(size_t size, const char *module, int site) {
  char *p = static_cast<char *>(xmalloc0(size, module, site));
  p[0] = '\0';
  return p;
}

char *dup_str0(const char *text, const char *module, int site) {
  size_t n = strlen(text) + 1;
  char *p = static_cast<char *>(xmalloc0(n, module, site));
  memcpy(p, text, n);
  return p;
}

void *xrealloc0(void *block, size_t size, const char *module, int site) {
  void *p = realloc(block, size > 0 ? size : 1);
  if (p == nullptr) die_realloc(module, site);
  return p;
}

// Replaces the "N" of each "%.N" conversion by the precision text and "L".
const char *conv_base(const char *prec_text, const char *fmt) {
  char *out = work_buf.buf_base;
  size_t n = 0;
  int state = 0;
  size_t plen = prec_text != nullptr ? strlen(prec_text) : 0;
  for (const char *p = fmt; *p != '\0'; p++) {
    char c = *p;
    if (prec_text != nullptr && state == 2 && c == 'N') {
      if (n + plen + 1 >= WORK_BUF_SIZE) die("Internal error (conv_base): buffer overflow\n");
      memcpy(out + n, prec_text, plen);
      n += plen;
      out[n++] = 'L';
      state = 3;
      continue;
    }
    if (n + 1 >= WORK_BUF_SIZE) die("Internal error (conv_base): buffer overflow\n");
    out[n++] = c;
    if (prec_text == nullptr) continue;
    if (c == '%') {
      state = 1;
    } else if (state == 1 && c == '.') {
      state = 2;
    } else if (state == 3 && (c == 'e' || c == 'f' || c == 'g')) {
      state = 0;
    }
  }
  out[n] = '\0';
  return out;
}

const char *conv_msg(const char *fmt) { return conv_base(msg_prec_text(), fmt); }

const char *conv_desc(const char *fmt) { return conv_base(desc_prec_text(), fmt); }

const char *data_prec_text() {
  if (!prec_cache.has_data) {
    snprintf(prec_cache.data, sizeof prec_cache.data, "%d", *message_config.prec_out);
    prec_cache.has_data = true;
  }
  return prec_cache.data;
}

// Turns "," into the output delimiter; "~" copies the next character as is.
const char *conv_delim(const char *text) {
  char *out = work_buf.buf_delim;
  char delim = *message_config.format_out == FORMAT_CSV ? ',' : '\t';
  size_t n = 0;
  for (const char *p = text; *p != '\0'; p++) {
    if (n + 1 >= WORK_BUF_SIZE) die("Internal error (conv_delim): buffer overflow\n");
    if (*p == '~') {
      p++;
      if (*p == '\0' || *p == '\n' || *p == '\r')
        die("Internal error (conv_delim): illegal escape sequence\n");
      out[n++] = *p;
    } else {
      out[n++] = *p == ',' ? delim : *p;
    }
  }
  out[n] = '\0';
  return out;
}

const char *conv_data(const char *fmt) { return conv_delim(conv_base(data_prec_text(), fmt)); }

const char *float2str(long double x) {
  snprintf(float_field, sizeof float_field, float_format(), x);
  return float_field;
}

const char *int2str(int n) {
  snprintf(int_field, sizeof int_field, "%d", n);
  return int_field;
}

void tolower_str(char *text) {
  for (; *text != '\0'; text++) *text = static_cast<char>(tolower(static_cast<unsigned char>(*text)));
}

void toupper_str(char *text) {
  for (; *text != '\0'; text++) *text = static_cast<char>(toupper(static_cast<unsigned char>(*text)));
}

void print_msg(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  vfprintf(msg_stream(), conv_msg(fmt), ap);
  va_end(ap);
  fflush(msg_stream());
}

// Called once per EM update: also the place where a stop request takes effect.
void print_dot_message(int i) {
  check_stop();
  if (i % 20 != 0) return;
  if (i % 100 == 0)
    fprintf(msg_stream(), "%d", i);
  else
    fputs(".", msg_stream());
  if (msg_stream() == stderr) fflush(stderr);
}

void print_daem_message(int n, long double itemp) { print_daem_message_sm(0, n, itemp); }

void print_daem_message_sm(int quiet, int n, long double itemp) {
  if (!*message_config.show_anneal || quiet != 0) return;
  if (n > 0 || itemp < 1.0L) {
    fputs("*", msg_stream());
    if (msg_stream() == stderr) fflush(stderr);
  }
}

long double physical_memory_bytes() {
  long pages = sysconf(_SC_PHYS_PAGES), page = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || page <= 0) return HUGE_VALL;
  return static_cast<long double>(pages) * page;
}

long double current_sec() {
  struct rusage ru;
  getrusage(RUSAGE_SELF, &ru);
  return static_cast<long double>(ru.ru_utime.tv_sec) +
         static_cast<long double>(ru.ru_utime.tv_usec) / 1000000.0L;
}

long double elapsed_sec() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<long double>(tv.tv_sec) + static_cast<long double>(tv.tv_usec) / 1000000.0L;
}

void stamp_time(long double *cpu, long double *wall) {
  *cpu = current_sec();
  *wall = elapsed_sec();
}
