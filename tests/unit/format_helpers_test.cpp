// The formatting helpers of the message module that no phase of a run uses
// yet: the converting printf family, the duplicating number formatters, the
// plain printf wrappers and the vector and matrix messages. Expected texts
// are written out by hand.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <string>

#include "base/misc.h"
#include "pooled_values.h"

namespace {

// xvsnprintf, or xvsprintf when n is 0.
int vprint(char *dst, size_t n, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int r = n > 0 ? xvsnprintf(dst, n, fmt, ap) : xvsprintf(dst, fmt, ap);
  va_end(ap);
  return r;
}

using FormatHelpers = PooledTest;

// "%.Ng" takes the output precision (12 by default) and "," the delimiter.
TEST_F(FormatHelpers, ConvertingPrintfFamily) {
  char buf[64];
  settings.format_out = FORMAT_TXT;
  EXPECT_EQ(conv_snprintf(buf, sizeof buf, "x,%.Ng", 1.0L / 3), 16);
  EXPECT_STREQ(buf, "x\t0.333333333333");
  conv_snprintf(buf, 6, "x,%.Ng", 1.0L / 3);  // cut to the buffer
  EXPECT_STREQ(buf, "x\t0.3");
  EXPECT_EQ(stdout_of([] { conv_printf("%s,%.Ng", "pi", 3.14159265358979323846L); }), "pi\t3.14159265359");
  settings.format_out = FORMAT_CSV;
  conv_sprintf(buf, "%d,%.Ng", 7, 2.5L);
  EXPECT_STREQ(buf, "7,2.5");
  FILE *fp = tmpfile();
  conv_fprintf(fp, "a,b~,c,%.Ng\n", 1e-20L);
  EXPECT_EQ(stream_text(fp), "a,b,c,1e-20\n");
  fclose(fp);
}

// The x* wrappers format exactly as the standard functions, placeholders
// untouched.
TEST_F(FormatHelpers, DuplicatedNumbersAndPlainWrappers) {
  char *f = float2strdup(2.0L / 3), *i = int2strdup(-2147483647 - 1);
  EXPECT_STREQ(f, "0.666666666667");
  EXPECT_STREQ(i, "-2147483648");
  free(f);
  free(i);
  char buf[32];
  EXPECT_EQ(xsnprintf(buf, 8, "%s,%.Nf", "abcdef", 1.0), 12);
  EXPECT_STREQ(buf, "abcdef,");
  xsprintf(buf, "%05d|%x", 42, 255);
  EXPECT_STREQ(buf, "00042|ff");
  EXPECT_EQ(vprint(buf, 4, "%d", 123456), 6);
  EXPECT_STREQ(buf, "123");
  vprint(buf, 0, "%c%c", 'o', 'k');
  EXPECT_STREQ(buf, "ok");
}

// The converted label, then the elements each after a tab with the message
// precision (6 digits), then "   ]".
TEST_F(FormatHelpers, VectorAndMatrixMessages) {
  FILE *fp = tmpfile();
  settings.fp_msg = fp;
  print_msg_vector(vec({0.5L, -2}), "v(%d)=%.Nf:", 1, 0.25L);
  print_msg_matrix(mat(2, 2, {1.5L, 1.5L, 1.5L, 1.5L}), "m:");
  EXPECT_EQ(stream_text(fp),
            "v(1)=0.250000:\t0.500000\t-2.000000   ]\nm:\t1.500000\t1.500000\n\t1.500000\t1.500000   ]\n");
  settings.fp_msg = nullptr;
  fclose(fp);
}

}  // namespace
