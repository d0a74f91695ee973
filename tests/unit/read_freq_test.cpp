// Case file reader: merging, missing values, print order, the log sections it
// writes, and the numbered line checks, on small files.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "case_file_util.h"

namespace {

using Strings = std::vector<std::string>;

Strings words_of(int a) {
  Strings w;
  for (int v = 0; v < cases.num_word[a]; v++) w.push_back(cases.word_list[a][v]);
  return w;
}

TEST(ReadFreq, MergesIdenticalCasesUnlessUncompressed) {
  read_text_as({2}, "a,b,3\nc,d\na,b\n#comment\na,b,007\n");
  EXPECT_EQ(cases.num_entry_pre, 4);
  ASSERT_EQ(cases.num_entry, 2);
  EXPECT_EQ(cases.freq_list[0].count, 11);
  EXPECT_EQ(cases.total_freq, 12);
  EXPECT_EQ(words_of(0), (Strings{"a", "c"}));
  prepare_case_file({2}, "a,b\na,b\n");
  settings.mode_uncompress = 1;
  read_freq();
  ASSERT_EQ(cases.num_entry, 2);
  EXPECT_EQ(cases.freq_list[1].count, 1);
}

TEST(ReadFreq, MissingValuesAreQuestionMarkAndNAOnly) {
  read_text_as({2}, "?,x\nNA,x\nna,x\nb,NA,2\n");
  EXPECT_EQ(words_of(0), (Strings{"na", "b"}));
  EXPECT_EQ(cases.num_miss_w[0], 2);
  EXPECT_EQ(cases.num_miss_w[1], 2);  // weighted by the object count
  ASSERT_EQ(cases.num_entry, 3);      // "?" and "NA" are the same case
  EXPECT_EQ(cases.freq_list[0].count, 2);
  EXPECT_EQ(cases.freq_list[0].word[0], WORD_MISSING);
  EXPECT_EQ(cases.freq_list[0].num_miss, 1);
}

TEST(ReadFreq, PrintOrderIsLexicalOrFirstAppearance) {
  read_text_as({1}, "pear\nApple\napple\nbanana\n");
  EXPECT_EQ(std::vector<int>(cases.print_order[0], cases.print_order[0] + 4), (std::vector<int>{1, 2, 3, 0}));
  settings.mode_lex_order = 0;
  build_print_order(0);
  EXPECT_EQ(std::vector<int>(cases.print_order[0], cases.print_order[0] + 4), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(compare_word(std::string(300, 'z').c_str(), (std::string(256, 'z') + "a").c_str()), 0);
}

TEST(ReadFreq, GaussianValuesRolesAndLabels) {
  read_text_as({5, "2-3", 0, 4}, "id1\tx\t1.5\tNA\tA\nid2\ty\t-2e1\t0.25\tB\nid3\tx\t?\t7\tA\n", "txt");
  ASSERT_EQ(cases.num_entry, 3);  // no merging with Gaussian attributes
  EXPECT_EQ(cases.freq_list[1].gauss[0][0], -20.0L);
  EXPECT_EQ(cases.freq_list[0].miss_g[0][1], 1);
  EXPECT_EQ(cases.num_miss_g[0][0], 1);
  EXPECT_EQ(words_of(0), (Strings{"x", "y"}));
  EXPECT_STREQ(cases.case_id_list[cases.freq_list[2].case_id], "id3");
  EXPECT_EQ(cases.num_ans_class, 2);
  EXPECT_EQ(cases.cluster_case_freq_ans[0], 2);
}

TEST(ReadFreq, OddButReadableFiles) {
  // CRLF line ends, no final line end, blanks removed, ignored column not checked.
  read_text_as({3, nullptr, -1, -1, "2"}, "a b,c,\r\nd,e,z\r\nd,e,z");
  ASSERT_EQ(cases.num_entry, 2);
  EXPECT_EQ(words_of(0), (Strings{"ab", "d"}));
  EXPECT_EQ(cases.freq_list[1].count, 2);
  read_text_as({1}, "\xEF\xBB\xBFq\nq\n");  // a byte-order mark is part of the value
  EXPECT_EQ(words_of(0), (Strings{"\xEF\xBB\xBFq", "q"}));
  read_text_as({1}, std::string(300, 'v') + "\n");
  EXPECT_EQ(strlen(cases.word_list[0][0]), 255u);
  read_text_as({2}, std::string(131070, 'w') + ",u\r\n");  // the longest line accepted
  EXPECT_EQ(words_of(1), (Strings{"u"}));
}

// Value ids follow first appearance (b = 0, a = 1) while every value list is
// printed in lexical order.
TEST(ReadFreq, WritesAnswerClassesAndVerboseDumpsToTheLog) {
  FILE *log = tmpfile();
  prepare_case_file({3, nullptr, -1, 2}, "b,x,P\na,x,Q\nb,x,P,2\n", "csv", log);
  settings.mode_verbose = 1;
  read_freq();
  EXPECT_EQ(stream_text(log),
            "#### ID:ANS-CLASS\n#### Answer class, Num of occurrences\n####\nP\t2\nQ\t1\n"
            "#### ID:FREQ-CASE\n#### Case ID, Answer class, Attribute values x, Num. of occurrences N(x)\n####\n"
            "0\tP\tb\tx\t3\n1\tQ\ta\tx\t1\n"
            "#### ID:FREQ-CAT0\n#### Attr. ID, ID of attr. value x0, Attr. value x0, Num. of occurrences N(x0)\n"
            "####\n0\t1\ta\t1\n0\t0\tb\t2\n"
            "#### ID:FREQ-CAT1\n#### Attr. ID, ID of attr. value x1, Attr. value x1, Num. of occurrences N(x1)\n"
            "####\n1\t0\tx\t3\n"
            "#### ID:ATTVAL0\n#### ID for the attribute value, Attr. value x0\n####\n1\ta\n0\tb\n"
            "#### ID:ATTVAL1\n#### ID for the attribute value, Attr. value x1\n####\n0\tx\n");
  settings.fp_log = nullptr;
  fclose(log);
}

struct BadFile {
  Roles roles;
  std::string text;
  std::string expected;  // the message after the progress text; F stands for the file name
  bool read_param = false;  // values are only looked up in a dictionary holding "a"
};

TEST(ReadFreq, BadFilesEndTheRunWithTheirCheck) {
  const std::string long_line(140000, 'x');
  const std::vector<BadFile> bad = {
      {{2}, "a,b,c,d\n", "[ID:372] Illegal line 1 in F: Too many fields (columns)\na,b,c,d\n"},
      {{2}, "a,b\na\n", "[ID:374] Illegal line 2 in F: Too few fields (columns)\na\n"},
      {{3}, "a,,b\n", "[ID:388] Illegal line 1 in F: empty value\na,,b\n"},
      {{2}, "a,b,\n", "[ID:388] Illegal line 1 in F: empty value\na,b,\n"},
      {{2}, "#x\n#y\na,b,x\n", "[ID:397] Illegal line 3 in F: illegal format for an integer\na,b,x\n    ^\n"},
      {{2}, "a,b,0", "[ID:400] Illegal line 1 in F: the object counts should be positive\na,b,0\n    ^\n"},
      {{2}, "a,b,99999999999\n", "[ID:397] Illegal line 1 in F: illegal format for an integer\na,b,99999999999\n    ^\n"},
      {{2, "1"}, "a, 1.5x\n", "[ID:413] Illegal line 1 in F: illegal format for a floating-point number\na, 1.5x\n   ^\n"},
      {{2, "1"}, "a,nan\n", "[ID:413] Illegal line 1 in F: illegal format for a floating-point number\na,nan\n  ^\n"},
      {{2, nullptr, 0}, "k,a\nj,b\nk,c\n", "[ID:203] Illegal line 3 in F: duplicating case ID\nk,c\n^\n"},
      {{2, nullptr, -1, 1}, "a,x\na,y\n", "[ID:219] Illegal line 2 in F: different answer classes for the same object\na,y\n  ^\n"},
      {{1}, "#only\n#comments\n", "the file is empty\n"},
      {{1}, "#no line end", "the file is empty\n"},
      {{1}, long_line + "\n", "[ID:370] Illegal line 1 in F: Too long line\n" + long_line.substr(0, 131072) + "\n"},
      {{1}, "a\nb\n", "Unknown attribute value -- b\n", true},
  };
  for (const BadFile &b : bad) {
    prepare_case_file(b.roles, b.text);
    settings.fp_msg = nullptr;  // messages then go to stderr
    if (b.read_param) {
      settings.mode_em = 0;
      cases.ht = static_cast<HashTable *>(calloc(1, sizeof(HashTable)));
      init_hashtable(cases.ht);
      register_hashtable(cases.ht, "a");
    }
    std::string expected = "Reading cases from " + std::string(settings.fname_freq) + "..." + b.expected;
    size_t at = expected.find(" F:");
    if (at != std::string::npos) expected.replace(at + 1, 1, settings.fname_freq);
    EXPECT_EXIT(read_freq(), testing::ExitedWithCode(1), exactly(expected)) << b.text.substr(0, 40);
  }
}

}  // namespace
