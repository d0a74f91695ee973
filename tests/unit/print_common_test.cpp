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

TEST_F(PrinterTest, HeaderArraysGrowByDoubling) {
  add_desc_id("G");
  for (int i = 0; i < 11; i++) add_desc_col("c%d", i);
  for (int i = 0; i < 4; i++) add_desc_comm("d%d", i);
  EXPECT_EQ(printer.max_desc_col_size, 20);
  EXPECT_EQ(printer.max_desc_comm_size, 6);
  flush_desc(fp);
  EXPECT_EQ(text(),
            "#### ID:G\n#### c0, c1, c2, c3, c4, c5, c6, c7, c8, c9, c10\n"
            "#### -- d0\n#### -- d1\n#### -- d2\n#### -- d3\n####\n");
  EXPECT_EQ(printer.desc_col_size, 0);
}

TEST_F(PrinterTest, LongHeaderTextsAreCut) {
  std::string long_name(300, 'n');
  add_desc_id("%s", long_name.c_str());
  add_desc_col("%s", long_name.c_str());
  flush_desc(fp);
  std::string expect = "#### ID:" + std::string(127, 'n') + "\n#### " + std::string(127, 'n') + "\n####\n";
  EXPECT_EQ(text(), expect);
}

TEST_F(PrinterTest, RowAssemblyInBothFormats) {
  for (int format : {FORMAT_TXT, FORMAT_CSV}) {
    settings.format_out = format;
    add_data_str("A");
    add_data_int(3);
    add_data_float(0.5L);
    add_data("%.Ng|%d", 1.0L / 3.0L, 7);
    flush_data(fp);
  }
  EXPECT_EQ(text(), "A\t3\t0.5\t0.333333333333|7\nA,3,0.5,0.333333333333|7\n");
}

TEST_F(PrinterTest, EmptyItemsAndEmptyRows) {
  add_data_str("");
  add_data_str("x");
  flush_data(fp);
  flush_data(fp);  // nothing pending: no line at all
  add_data_str("a");
  add_data_str("");
  add_data_str("b");
  flush_data(fp);
  EXPECT_EQ(text(), "x\na\t\tb\n");
}

TEST_F(PrinterTest, DataItemIsCutAt256Characters) {
  std::string long_item(400, 'z');
  add_data("%s", long_item.c_str());
  flush_data(fp);
  EXPECT_EQ(text(), std::string(256, 'z') + "\n");
}

TEST_F(PrinterTest, WholeRowsWithEscapedComma) {
  print_data(fp, "Reading cases,%.Ng", 0.25L);
  print_data(fp, "a~,b,c");
  settings.format_out = FORMAT_CSV;
  print_data(fp, "a~,b,c");
  EXPECT_EQ(text(), "Reading cases\t0.25\na,b\tc\na,b,c\n");
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

TEST_F(PrinterTest, ModeTextAndCaseIdWithoutIdAttribute) {
  EXPECT_STREQ(mode_str(1), "Enabled");
  EXPECT_STREQ(mode_str(0), "Disabled");
  EXPECT_STREQ(mode_str(-1), "Disabled");
  EXPECT_STREQ(get_case_id(0), "0");
  EXPECT_STREQ(get_case_id(17), "17");
}

// A two-record table: column 0 discrete, column 1 the ID, column 2 continuous.
TEST_F(PrinterTest, AttributeValuesOfACase) {
  AttrInfo info[3] = {{0, 0, 0}, {0, 0, 0}, {1, 0, 0}};
  settings.tuple_size = 3;
  settings.attr_info = info;
  settings.mode_id = 1;
  settings.attr_id = 1;
  int words[2] = {1, WORD_MISSING}, miss_w[2] = {0, 1};
  alignas(16) unsigned char mem[2][64];
  Vector g0 = make_vector_view(mem[0], 1), g1 = make_vector_view(mem[1], 1);
  g0[0] = 2.5L;
  g1[0] = 0;
  int miss0[1] = {0}, miss1[1] = {1};
  int *mg0[1] = {miss0}, *mg1[1] = {miss1};
  Vector gv0[1] = {g0}, gv1[1] = {g1};
  CaseRecord recs[2] = {};
  recs[0].word = &words[0];
  recs[0].miss_w = &miss_w[0];
  recs[0].gauss = gv0;
  recs[0].miss_g = mg0;
  recs[0].case_id = 1;
  recs[1].word = &words[1];
  recs[1].miss_w = &miss_w[1];
  recs[1].gauss = gv1;
  recs[1].miss_g = mg1;
  recs[1].case_id = 0;
  const char *values[2] = {"red", "blue"};
  const char **word_list[1] = {values};
  const char *ids[2] = {"id-a", "id-b"};
  CaseTable saved = cases;
  cases.freq_list = recs;
  cases.word_list = word_list;
  cases.case_id_list = ids;

  for (int e = 0; e < 2; e++) {
    add_data_str(get_case_id(e));
    add_data_attr_values(e);
    flush_data(fp);
  }
  settings.mode_hide_attr = 1;
  add_data_str(get_case_id(0));
  add_data_attr_values(0);
  flush_data(fp);
  EXPECT_EQ(text(), "id-b\tblue\t2.5\nid-a\t?\t?\nid-b\n");

  miss_w[1] = 0;  // a negative value id without the missing flag is an internal error
  EXPECT_EXIT(freq_entry_val(1, 0), ::testing::ExitedWithCode(1),
              "Internal error: freq_entry_val\\(\\): word not assigned");
  cases = saved;
  settings.attr_info = nullptr;
}

}  // namespace
