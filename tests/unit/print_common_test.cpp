// The result file printer: section frame, row assembly and value texts.
#include "output/print_common.h"

#include <gtest/gtest.h>

#include <string>

#include "input/read_freq.h"
#include "test_util.h"

namespace {

class PrinterTest : public ::testing::Test {
 protected:
  FILE *fp = nullptr;
  void SetUp() override {
    setup_process_state();
    fp = tmpfile();
  }
  void TearDown() override { fclose(fp); }
  std::string text() { return stream_text(fp); }
};

// The column line is joined with ", " in both file formats.
TEST_F(PrinterTest, SectionFrame) {
  for (int format : {FORMAT_TXT, FORMAT_CSV}) {
    settings.format_out = format;
    add_desc_id("EMPTY");
    flush_desc(fp);
    add_desc_comm("x");  // a description added first still follows the columns
    add_desc_id("SEC-K%d", 3);
    add_desc_col("a");
    add_desc_col("P(k)");
    flush_desc(fp);
  }
  const std::string one = "#### ID:EMPTY\n####\n#### ID:SEC-K3\n#### a, P(k)\n#### -- x\n####\n";
  EXPECT_EQ(text(), one + one);
}

// An empty first item adds nothing; a later one leaves an empty field; an
// empty row writes no line at all.
TEST_F(PrinterTest, RowAssemblyInBothFormats) {
  for (int format : {FORMAT_TXT, FORMAT_CSV}) {
    settings.format_out = format;
    add_data_str("A");
    add_data_int(3);
    add_data_float(0.5L);
    add_data("%.Ng|%d", 1.0L / 3.0L, 7);
    flush_data(fp);
    for (const char *item : {"", "x", "", "y"}) add_data_str(item);
    flush_data(fp);
    flush_data(fp);
  }
  EXPECT_EQ(text(), "A\t3\t0.5\t0.333333333333|7\nx\t\ty\nA,3,0.5,0.333333333333|7\nx,,y\n");
}

TEST_F(PrinterTest, OverlongRowFailsAtFlush) {
  EXPECT_EXIT(
      {
        std::string chunk(200000, 'q');
        for (int i = 0; i < 6; i++) add_data_str(chunk.c_str());
        flush_data(fp);
      },
      ::testing::ExitedWithCode(1), "Output buffer overflow \\(size >= 1048576\\)");
}

// Column 0 discrete, column 1 the ID, column 2 continuous; both values are
// missing. Present values are printed in the cluster tests.
TEST_F(PrinterTest, MissingValuesAndCaseId) {
  AttrInfo info[3] = {{0, 0, 0}, {0, 0, 0}, {1, 0, 0}};
  settings.tuple_size = 3;
  settings.attr_info = info;
  settings.mode_id = 1;
  settings.attr_id = 1;
  int word = WORD_MISSING, miss_w = 1, miss_g0 = 1;
  int *miss_g[1] = {&miss_g0};
  alignas(16) unsigned char mem[64];
  Vector g = make_vector_view(mem, 1);
  CaseRecord rec = {};
  rec.word = &word;
  rec.miss_w = &miss_w;
  rec.gauss = &g;
  rec.miss_g = miss_g;
  rec.case_id = 1;
  const char *ids[2] = {"id-a", "id-b"};
  CaseTable saved = cases;
  cases.freq_list = &rec;
  cases.case_id_list = ids;

  add_data_str(get_case_id(0));
  add_data_attr_values(0);
  flush_data(fp);
  EXPECT_EQ(text(), "id-b\t?\t?\n");
  miss_w = 0;  // a negative value id without the missing flag is an internal error
  EXPECT_EXIT(freq_entry_val(0, 0), ::testing::ExitedWithCode(1),
              "Internal error: freq_entry_val\\(\\): word not assigned");
  cases = saved;
  settings.attr_info = nullptr;
}

}  // namespace
