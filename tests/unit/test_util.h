// Shared set-up for unit tests: default settings, work buffers, pools and the
// printer, and a helper to capture what a function writes to a stream.
#ifndef VESK_TESTS_TEST_UTIL_H
#define VESK_TESTS_TEST_UTIL_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "base/allocate_matrix.h"
#include "base/misc.h"
#include "driver/init.h"
#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "output/print_common.h"

// The death checks of one test run in a freshly started copy of the test
// program instead of a fork of this one; later tests fork again (their
// checks read files and folders made before the check).
struct FreshProcessDeathChecks {
  FreshProcessDeathChecks() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  ~FreshProcessDeathChecks() { GTEST_FLAG_SET(death_test_style, "fast"); }
};

// Brings process state to a fresh run: defaults, buffers, printer, pools.
// What the previous test left in the case table and the attribute roles is
// freed first (the settings still describe it).
inline void setup_process_state() {
  static bool once = false;
  release_freq();
  release_attr_info();
  release_smooth_nominal();
  set_default_settings();
  model.smooth = Smoothing();
  if (!once) {
    initialize_buffer();
    initialize_printer();
    initialize_vector_pool();
    initialize_matrix_pool();
    once = true;
  }
}

// Reads back everything written to a temporary stream.
inline std::string stream_text(FILE *fp) {
  fflush(fp);
  long n = ftell(fp);
  std::string s(static_cast<size_t>(n), '\0');
  rewind(fp);
  size_t got = fread(&s[0], 1, s.size(), fp);
  s.resize(got);
  return s;
}

// Whole content of a file.
inline std::string read_text(const char *path) {
  std::string s;
  FILE *fp = fopen(path, "rb");
  if (fp == nullptr) return s;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, fp)) > 0) s.append(buf, n);
  fclose(fp);
  return s;
}

// A regular expression matching exactly `text` (for death-test messages).
inline std::string exactly(const std::string &text) {
  std::string re = "^";
  for (char c : text) {
    if (strchr("[](){}.*+?^$|\\", c) != nullptr) re += '\\';
    re += c;
  }
  return re + "$";
}

#endif
