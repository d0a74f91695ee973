// The formatting helpers of the message module that no phase of a run uses
// yet: the converting printf family, the duplicating number formatters, the
// plain printf wrappers, the no-op conversions and the vector and matrix
// messages. Expected texts are written out by hand.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <string>

#include "base/allocate_matrix.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "test_util.h"

namespace {

int vsn(char *dst, size_t n, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int r = xvsnprintf(dst, n, fmt, ap);
  va_end(ap);
  return r;
}

int vs(char *dst, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int r = xvsprintf(dst, fmt, ap);
  va_end(ap);
  return r;
}

class FormatHelpers : public ::testing::Test {
 protected:
  void SetUp() override {
    setup_process_state();
    settings.format_out = FORMAT_TXT;
  }
};

// "%.Ng" takes the output precision (12 by default) and "," the delimiter.
TEST_F(FormatHelpers, ConvertingPrintfFamily) {
  char buf[64];
  EXPECT_EQ(conv_snprintf(buf, sizeof buf, "x,%.Ng", 1.0L / 3), 16);
  EXPECT_STREQ(buf, "x\t0.333333333333");
  conv_snprintf(buf, 6, "x,%.Ng", 1.0L / 3);  // cut to the buffer
  EXPECT_STREQ(buf, "x\t0.3");
  settings.format_out = FORMAT_CSV;
  conv_sprintf(buf, "%d,%.Ng", 7, 2.5L);
  EXPECT_STREQ(buf, "7,2.5");
  FILE *fp = tmpfile();
  conv_fprintf(fp, "a,b~,c,%.Ng\n", 1e-20L);
  EXPECT_EQ(stream_text(fp), "a,b,c,1e-20\n");
  fclose(fp);
  settings.format_out = FORMAT_TXT;
  EXPECT_EQ(stdout_of([] { conv_printf("%s,%.Ng", "pi", 3.14159265358979323846L); }), "pi\t3.14159265359");
}

TEST_F(FormatHelpers, DuplicatedNumbersAndPlainWrappers) {
  char *f = float2strdup(2.0L / 3);
  EXPECT_STREQ(f, "0.666666666667");
  EXPECT_STREQ(f, float2str(2.0L / 3));
  char *i = int2strdup(-2147483647 - 1);
  EXPECT_STREQ(i, "-2147483648");
  free(f);
  free(i);
  // The x* wrappers format exactly as the standard functions, placeholders untouched.
  char buf[32];
  EXPECT_EQ(xsnprintf(buf, 8, "%s,%.Nf", "abcdef", 1.0), 12);
  EXPECT_STREQ(buf, "abcdef,");
  xsprintf(buf, "%05d|%x", 42, 255);
  EXPECT_STREQ(buf, "00042|ff");
  EXPECT_EQ(vsn(buf, 4, "%d", 123456), 6);
  EXPECT_STREQ(buf, "123");
  vs(buf, "%c%c", 'o', 'k');
  EXPECT_STREQ(buf, "ok");
}

TEST_F(FormatHelpers, ConversionsThatLeaveTextAlone) {
  const char *text = "a,b~c %.Nf";
  EXPECT_EQ(conv_sys(text), text);
  work_buf.buf_crlf[0] = 'x';
  EXPECT_EQ(conv_crlf(text), text);
  EXPECT_EQ(work_buf.buf_crlf[0], '\0');  // the buffer is cleared
}

// A vector or matrix message: the converted label, then the elements each
// after a tab with the message precision (6 digits), then "   ]".
TEST_F(FormatHelpers, VectorAndMatrixMessages) {
  FILE *fp = tmpfile();
  settings.fp_msg = fp;
  Vector v = alloc_vector(2);
  v[0] = 0.5L;
  v[1] = -2;
  print_msg_vector(v, "v(%d)=%.Nf:", 1, 0.25L);
  EXPECT_EQ(stream_text(fp), "v(1)=0.250000:\t0.500000\t-2.000000   ]\n");
  Matrix m = alloc_set_matrix(2, 2, 1.5L);
  FILE *rows = tmpfile();
  fprint_matrix(rows, m);
  std::string matrix_rows = stream_text(rows);
  fclose(rows);
  print_msg_matrix(m, "m:");
  EXPECT_EQ(stream_text(fp), "v(1)=0.250000:\t0.500000\t-2.000000   ]\nm:" + matrix_rows);
  EXPECT_NE(matrix_rows.find("\t1.500000\t1.500000"), std::string::npos) << matrix_rows;
  settings.fp_msg = nullptr;
  fclose(fp);
  release_vector0(v);
  release_matrix0(m);
}

}  // namespace
