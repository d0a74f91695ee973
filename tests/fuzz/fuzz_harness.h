// Shared harness of the reader fuzz targets. An input is three header bytes
// that choose the attribute roles and the reader settings, then the bytes of
// the file to read. A failure of the reader (which would end the program with
// status 1) brings control back here; every other end is a finding. After
// each input everything the readers allocated is released, so that memory
// stays flat and LeakSanitizer sees no leak.
#ifndef VESK_TESTS_FUZZ_HARNESS_H
#define VESK_TESTS_FUZZ_HARNESS_H

#include <unistd.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/allocate_matrix.h"
#include "base/misc.h"
#include "driver/init.h"
#include "driver/vesk.h"
#include "input/read_freq.h"
#include "output/print_common.h"

namespace fuzz {

inline jmp_buf back;
inline FILE *sink = nullptr;

[[noreturn]] inline void return_to_harness(int status) {
  if (status != 1) abort();  // every failure of the program ends with status 1
  longjmp(back, 1);
}

// Buffers, printer and pools once per process; messages and log sections
// go to /dev/null.
inline void start_process() {
  if (sink != nullptr) return;
  initialize_buffer();
  initialize_printer();
  initialize_vector_pool();
  initialize_matrix_pool();
  sink = fopen("/dev/null", "wb");
  set_exit_handler(return_to_harness);
}

// Header byte 2, bit by bit.
enum {
  F_TXT = 1, F_UNCOMPRESS = 2, F_ID = 4, F_EVAL = 8, F_IGNORE = 16, F_VERBOSE = 32,
  F_OCC_ORDER = 64, F_ONE_GROUP_EACH = 128
};

struct Header {
  int tuple_size;
  unsigned gauss_mask;
  unsigned flags;
};

inline Header decode(const uint8_t *data) {
  Header h;
  h.tuple_size = 1 + data[0] % 6;
  h.gauss_mask = data[1] & ((1u << h.tuple_size) - 1);
  h.flags = data[2];
  return h;
}

// The highest attribute not continuous and not taken yet, or -1.
inline int free_attribute(const Header &h, unsigned *taken) {
  for (int a = h.tuple_size - 1; a >= 0; a--)
    if (!((h.gauss_mask | *taken) & (1u << a))) {
      *taken |= 1u << a;
      return a;
    }
  return -1;
}

// Attribute roles as the options would give them; false when no descriptive
// attribute would be left (the program refuses that before reading). Plain
// buffers only: a failure jumps back over this frame.
inline bool set_roles(const Header &h) {
  settings.tuple_size = h.tuple_size;
  unsigned taken = 0;
  if (h.flags & F_ID) settings.attr_id = free_attribute(h, &taken);
  if (h.flags & F_EVAL) settings.attr_eval = free_attribute(h, &taken);
  int ignored = (h.flags & F_IGNORE) ? free_attribute(h, &taken) : -1;
  settings.mode_id = settings.attr_id >= 0;
  settings.mode_eval = settings.attr_eval >= 0;
  if (__builtin_popcount(h.gauss_mask | taken) >= h.tuple_size) return false;
  char text[32];
  if (ignored >= 0) {
    snprintf(text, sizeof text, "%d", ignored);
    add_attr_ignore(text);
  }
  size_t n = 0;
  for (int a = 0; a < h.tuple_size; a++) {
    if (!(h.gauss_mask & (1u << a))) continue;
    const char *sep = n == 0 ? "" : (h.flags & F_ONE_GROUP_EACH) ? "#" : ",";
    n += snprintf(text + n, sizeof text - n, "%s%d", sep, a);
  }
  if (n > 0) add_gauss(text);
  build_attr_info();
  if (settings.tuple_size_d > 0) build_smooth_nominal(0);  // as postproc_args does
  settings.format_in = (h.flags & F_TXT) ? FORMAT_TXT : FORMAT_CSV;
  settings.format_out = FORMAT_TXT;
  settings.mode_uncompress = (h.flags & F_UNCOMPRESS) != 0;
  settings.mode_verbose = (h.flags & F_VERBOSE) != 0;
  settings.mode_lex_order = (h.flags & F_OCC_ORDER) == 0;
  return true;
}

// The file an input is written to: in memory (/dev/shm) where possible.
inline std::string scratch_file(const char *ending) {
  const char *dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return std::string(dir) + "/vesk_fuzz_" + std::to_string(getpid()) + ending;
}

inline void write_bytes(const std::string &path, const uint8_t *data, size_t size) {
  FILE *fp = fopen(path.c_str(), "wb");
  if (fp == nullptr) abort();
  if (size > 0 && fwrite(data, 1, size, fp) != size) abort();
  fclose(fp);
}

// Fresh settings for one input, with the messages and the log in the sink.
inline void reset_settings() {
  release_attr_info();
  release_smooth_nominal();
  set_default_settings();
  settings.fp_log = sink;
  settings.fp_msg = sink;
}

}  // namespace fuzz

#endif
