// The case, parameter and hyperparameter readers.

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "driver/run.h"
#include "base/split.h"
#include "case_file_util.h"
#include "input/read_freq.h"
#include "input/read_hparam.h"
#include "input/read_param.h"
#include "model/install.h"
#include "model/allocate.h"
#include "model/cluster.h"
#include "output/print.h"
#include "test_util.h"

namespace {

// Case file reader: merging, missing values, print order, the log sections it
// writes, and the numbered line checks, on small files.
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
  read_cases();
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

// The case reader at its limits: a last comment line without a line end,
// the first-line check that comes before the per-attribute buffers, counts
// that pass the int range only in their sum, and releasing the table (also
// after a failed read).
void expect_failure(const Roles &roles, const std::string &text, const std::string &message, int uncompress = 0) {
  prepare_case_file(roles, text);
  settings.mode_uncompress = uncompress;
  settings.fp_msg = nullptr;  // messages then go to stderr
  std::string expected = "Reading cases from " + std::string(settings.fname_freq) + "..." + message;
  size_t at = expected.find(" in F");  // F stands for the file name
  if (at != std::string::npos) expected.replace(at + 4, 1, settings.fname_freq);
  EXPECT_EXIT(read_freq(), testing::ExitedWithCode(1), exactly(expected)) << text.substr(0, 40);
}

// Without merging (Gaussian groups, --uncompress, --id) every counted line
// must give a record, and a last comment line without a line end is counted.
// Merged cases are counted by the dictionary, so such a file reads as usual.
TEST(ReadFreqLimits, LastCommentLineWithoutLineEnd) {
  const char *inconsistent = "Internal error: inconsistency in number of entries";
  expect_failure({2, "0-1"}, "#c", inconsistent);
  expect_failure({2}, "a,x\nb,y\n#c", inconsistent, 1);
  expect_failure({2, nullptr, 0}, "k,x\nj,y\n#c", inconsistent);
  read_text_as({2}, "a,x\nb,y\na,x\n#c");
  EXPECT_EQ(cases.num_entry, 2);
  EXPECT_EQ(cases.num_entry_pre, 3);
  EXPECT_EQ(cases.total_freq, 3);
  read_text_as({2, "1"}, "a,1\nb,2\n#c\n");  // with the line end the comment is not counted
  EXPECT_EQ(cases.num_entry, 2);
}

// The first case line is checked, the length before the fields, before
// anything per attribute is reserved; its number counts the comments before it.
TEST(ReadFreqLimits, FirstCaseLineCheckedFirst) {
  expect_failure({100000}, "#a\n#b\na,b,c,d,e\n",
                 "[ID:374] Illegal line 3 in F: Too few fields (columns)\na,b,c,d,e\n");
  const std::string long_line(140000, ',');
  expect_failure({3}, long_line + "\n",
                 "[ID:370] Illegal line 1 in F: Too long line\n" + long_line.substr(0, 131072) + "\n");
  EXPECT_EQ(count_fields("a,b,,c", ","), 4);
  EXPECT_EQ(count_fields("a\tb,c", "\t"), 2);
  EXPECT_EQ(count_fields(std::string(SPLIT_SCAN_MAX + 10, ',').c_str(), ","), SPLIT_SCAN_MAX + 1);
}

// Each count fits an int and so does the total; the missing counts are
// summed wide on the way.
TEST(ReadFreqLimits, MissingCountsNearTheIntLimit) {
  read_text_as({3, "1-2"}, "?,NA,1,2000000000\nx,NA,NA,100000000\n?,1,2,47483647\n");
  EXPECT_EQ(cases.total_freq, INT_MAX);
  EXPECT_EQ(cases.num_miss_w[0], 2047483647);
  EXPECT_EQ(cases.num_miss_g[0][0], 2100000000);
  EXPECT_EQ(cases.num_miss_g[0][1], 100000000);
  EXPECT_EQ(cases.total_num_miss_w, 2047483647LL);
  read_text_as({2}, "?,?,2000000000\na,b,1\n");  // both missing: the total passes the int range
  EXPECT_EQ(cases.total_num_miss_w, 4000000000LL);
  expect_failure({1}, "a,2147483647\na,1\n", "Too large object count in F\n");
}

// A released table is empty; a failed read leaves its file and buffers to
// the next release.
TEST(ReadFreqLimits, ReleaseAfterReadingAndAfterAFailure) {
  read_text_as({3, "2", 0}, "k,a,1\nj,?,2\ni,b,NA\n");
  release_freq();
  EXPECT_TRUE(cases.freq_list == nullptr && cases.ht == nullptr && cases.num_entry == 0);
  EXPECT_EXIT(
      {
        set_exit_handler([](int status) {
          release_freq();  // frees what the failed read left, file included
          exit(status == 1 && cases.freq_list == nullptr ? 0 : 2);
        });
        read_text_as({2}, "a,b\nc\n");
      },
      testing::ExitedWithCode(0), "");
}

// Parameter and hyperparameter files: a hand-written file read back and
// written again byte for byte, the stored arrays, and the rejection of
// malformed files with their messages (mutated files: tests/fuzz).
// Columns: 0 discrete (colour), 1 and 2 one Gaussian group, 3 discrete (size).
void set_mixed_roles() {
  settings.tuple_size = 4;
  add_gauss("1-2");
  build_attr_info();
  settings.format_in = settings.format_out = FORMAT_TXT;
  settings.smooth_w = static_cast<long double *>(calloc(2, sizeof(long double)));
  settings.mode_smooth_auto_w = static_cast<int *>(calloc(2, sizeof(int)));
  settings.mode_smooth_auto_w[0] = settings.mode_smooth_auto_w[1] = 1;
  settings.num_smooth_w = 2;
}

const std::string kParam =
    "#### ID:PARAM-CLASS\n#### Class k, Class parameter P(k)\n####\n0\t0.25\n1\t0.75\n"
    "#### ID:PARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. parameter P(x0|k)\n####\n"
    "0\t0\tred\t0.5\n0\t0\tblue\t0.5\n0\t1\tred\t0.125\n0\t1\tblue\t0.875\n"
    "#### ID:PARAM-CAT3\n#### Attr. ID, Class k, Attr. value x3, Attr. parameter P(x3|k)\n####\n"
    "3\t0\tsmall\t1\n3\t0\tbig\t0\n3\t1\tsmall\t0.5\n3\t1\tbig\t0.5\n"
    "#### ID:PARAM-GAUSS-MEAN0\n#### Gauss ID, Class k, Attr. ID, Mean\n####\n"
    "0\t0\t1\t1.5\n0\t0\t2\t-2\n0\t1\t1\t0\n0\t1\t2\t3\n"
    "#### ID:PARAM-GAUSS-COVAR0\n#### Gauss ID, Class k, Attr. ID, Attr. ID, (Co)Variance\n####\n"
    "0\t0\t1\t1\t2\n0\t0\t1\t2\t0.5\n0\t0\t2\t2\t1\n0\t1\t1\t1\t4\n0\t1\t1\t2\t-1\n0\t1\t2\t2\t0.5\n";

const std::string kHparam =
    "#### ID:HPARAM-CLASS\n#### Class k, Class pseudo count delta(k)\n####\n0\t2\n1\t3\n"
    "#### ID:HPARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. pseudo count delta(x0|k)\n####\n"
    "0\t0\tred\t5\n0\t0\tblue\t2\n0\t1\tred\t1.5\n0\t1\tblue\t2\n"
    "#### ID:HPARAM-CAT3\n#### Attr. ID, Class k, Attr. value x3, Attr. pseudo count delta(x3|k)\n####\n"
    "3\t0\tbig\t2\n3\t0\tsmall\t2\n3\t1\tbig\t2\n3\t1\tsmall\t2\n"
    "#### ID:HPARAM-GAUSS-MEAN0\n#### Class k, Gauss ID, Attr. ID, Mean\n####\n"
    "0\t0\t1\t1\n0\t0\t2\t2\n1\t0\t1\t3\n1\t0\t2\t4\n"
    "#### ID:HPARAM-GAUSS-COVAR0\n#### Class k, Gauss ID, Attr. ID, Attr. ID, (Co)Variance\n####\n"
    "0\t0\t1\t1\t2\n0\t0\t1\t2\t0\n0\t0\t2\t2\t2\n1\t0\t1\t1\t1\n1\t0\t1\t2\t0.5\n1\t0\t2\t2\t1\n"
    "#### ID:HPARAM-GAUSS-TAU\n#### Class k, Tau\n####\n0\t0.5\n1\t0.25\n"
    "#### ID:HPARAM-GAUSS-ALPHA0\n#### Class k, Gauss ID, Alpha\n####\n0\t0\t3\n1\t0\t4\n";

const char kCases[] = "red\t1.2\t-1\tbig\nblue\t0.3\t2.5\tsmall\n?\tNA\t3\tsmall\nred\tNA\tNA\t?\n";

std::string replace(std::string text, const std::string &from, const std::string &to) {
  size_t at = text.find(from);
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

void write(const std::string &path, const std::string &text) {
  FILE *fp = fopen(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), fp);
  fclose(fp);
}

std::string printed(void (*writer)(FILE *)) {
  FILE *fp = tmpfile();
  writer(fp);
  std::string text = stream_text(fp);
  fclose(fp);
  return text;
}

class ReadParamTest : public ::testing::Test {
 protected:
  std::string dir;
  void SetUp() override {
    setup_process_state();
    set_mixed_roles();
    cases = CaseTable();
    model = Model();
    char tmpl[] = "/tmp/vesk_rp_XXXXXX";
    dir = mkdtemp(tmpl);
    auto name = [this](char *dst, const char *file) { snprintf(dst, FNAME_MAX + 1, "%s/%s", dir.c_str(), file); };
    name(settings.fname_freq, "t_freq.txt");
    name(settings.fname_param, "t_param.txt");
    name(settings.fname_hparam, "t_hparam.txt");
    name(settings.fname_memp, "t_memp.txt");
    name(settings.fname_cluster, "t_cluster.txt");
    write(settings.fname_freq, kCases);
  }
  void TearDown() override {
    release_param();
    release_hparam_read();
    release_freq();
    std::string cmd = "rm -rf '" + dir + "'";
    if (system(cmd.c_str()) != 0) ADD_FAILURE() << cmd;
  }
  // The case file's dictionaries, as the hyperparameter reader finds them.
  void read_cases() {
    settings.mode_em = 1;
    read_freq();
  }
};

TEST_F(ReadParamTest, ReadsEveryArrayAndWritesTheSameFileBack) {
  write(settings.fname_param, kParam);
  read_param();
  ASSERT_EQ(model.num_class, 2);
  ASSERT_EQ(cases.num_word[0], 2);
  EXPECT_EQ(model.param_c[1], 0.75L);
  EXPECT_EQ(model.param_w[1][0][1], 0.875L);
  // The lower triangle mirrors the upper one; precision and determinant
  // follow from the 2x2 closed forms.
  EXPECT_EQ(model.param_s[1][0][1][0], -1.0L);
  EXPECT_NEAR(static_cast<double>(model.param_sdet[0][0]), 1.75, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.param_p[1][0][0][1]), 1.0, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.param_p[0][0][1][1]), 2.0 / 1.75, 1e-15);
  // Values are printed in dictionary order, so the file comes back unchanged.
  EXPECT_EQ(printed(print_param), kParam);
}

// Class parameters of exactly 0 and 1 are accepted.
TEST_F(ReadParamTest, ClassParametersMayBeZeroOrOne) {
  write(settings.fname_param, replace(kParam, "0\t0.25\n1\t0.75\n", "0\t1\n1\t0\n"));
  read_param();
  EXPECT_EQ(model.param_c[0], 1.0L);
  EXPECT_EQ(model.param_c[1], 0.0L);
}

TEST_F(ReadParamTest, HyperparametersMapValueTextsToCaseIds) {
  settings.mode_read_hparam = 1;
  read_cases();
  // Class 0 lists its colours in the order opposite to the case file's ids.
  std::string text = replace(kHparam, "0\t0\tred\t5\n0\t0\tblue\t2\n", "0\t0\tblue\t2\n0\t0\tred\t5\n");
  write(settings.fname_hparam, replace(text, "0\t2\n", "0\t-1\n"));
  read_hparam();
  ASSERT_EQ(model.num_class, 2);
  EXPECT_EQ(model.hparam_c[0], -1.0L);       // down to -1 is accepted
  EXPECT_EQ(model.hparam_w[0][0][0], 5.0L);  // red has id 0 though listed second
  EXPECT_EQ(model.hparam_u[1][0][1], 4.0L);
  EXPECT_EQ(model.hparam_s[1][0][1][0], 0.5L);
  EXPECT_NEAR(static_cast<double>(model.hparam_sdet[0][0]), 4.0, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.hparam_p[1][0][0][1]), -0.5 / 0.75, 1e-15);
  // Written back in dictionary order, class before group in the Gaussian rows.
  EXPECT_EQ(printed(print_hparam), replace(kHparam, "0\t2\n", "0\t-1\n"));
}

struct BadParamFile {
  const char *name;
  bool hparam;
  std::string text;
  const char *message;  // regular expression for the error stream
};

std::vector<BadParamFile> bad_files() {
  const std::string &p = kParam, &h = kHparam;
  return {
      {"ClassOrder", false, replace(p, "1\t0.75\n", "2\t0.75\n"),
       "\\[ID:503\\] Illegal line 5 in .*: Unexpected order of class numbers\n2\t0.75\n\\^\n"},
      {"ClassNotBelowCount", false, replace(p, "0\t1\tred", "0\t2\tred"),
       "Different number of classes exist in entries for P\\(c\\) and P\\(x1\\|c\\)\n$"},
      {"OnlyClassSection", false, p.substr(0, p.find("#### ID:PARAM-CAT0")),
       "Insufficiennt parameter specifications in .* \\(#data-matrices = 1\\)\n$"},
      {"ClassProbAboveOne", false, replace(p, "0\t0.25", "0\t1.5"), "Unexpected class parameter: 1.500000 \\(class=0\\)$"},
      {"NegativeAttrProb", false, replace(p, "3\t1\tbig\t0.5", "3\t1\tbig\t-0.1"),
       "Unexpected attribute parameter: -0.100000 \\(class=1, attribute=3\\)$"},
      {"ClassFields", false, replace(p, "0\t0.25", "0\t0.25\t1"),
       "\\[ID:501\\] Illegal line 4 in .*: Unexpected number of fields for class probs\n0\t0.25\t1\n$"},
      {"ClassNumberText", false, replace(p, "0\t0.25", "x\t0.25"), "illegal format for an integer\nx\t0.25\n\\^\n"},
      {"ProbText", false, replace(p, "0\t0.25", "0\t0.25x"), "illegal format for an floating-point number\n0\t0.25x\n  \\^\n"},
      {"ContinuousAttrInCatSection", false, replace(p, "0\t0\tred", "1\t0\tred"), "\\[ID:513\\].*Unexpected attribute ID"},
      {"EmptyValue", false, replace(p, "0\t0\tred", "0\t0\t"), "\\[ID:514\\].*Empty value\n0\t0\t\t0.5\n$"},
      {"RepeatedValue", false, replace(p, "0\t0\tblue", "0\t0\tred"),
       "\\[.*t_param.txt, line 10\\] Found an inconsistent entry \\(0\t0\tred\t0.5\n\\)$"},
      {"CatFields", false, replace(p, "0\t0\tred\t0.5", "0\t0\tred"),
       "\\[ID:511\\].*Unexpected number of fields for discrete attribute probs"},
      {"TooManySections", false, p + "####\n0\t0\t1\t1\n", "Too many attribute parameter fields in .*t_param.txt\n$"},
      {"MeanFields", false, replace(p, "0\t0\t1\t1.5", "0\t0\t1\t1.5\t2"),
       "\\[ID:522\\].*Unexpected number of fields for means of continuous attributes"},
      {"CovarFields", false, replace(p, "0\t0\t1\t1\t2", "0\t0\t1\t2"),
       "\\[ID:523\\].*Unexpected number of fields for covariances of continuous attributes"},
      {"UnknownGroup", false, replace(p, "0\t0\t1\t1.5", "1\t0\t1\t1.5"), "\\[ID:526\\].*Unexpected Gauss ID"},
      {"SingularCovariance", false, replace(p, "0\t1\t1\t1\t4", "0\t1\t1\t1\t2"),
       "Numerical error \\(read_param\\): Failed to invert covariances"},
      {"ClassBelowMinusOne", true, replace(h, "0\t2\n", "0\t-1.5\n"), "Illegal class hyperparameter: -1.500000 \\(class=0\\)\n$"},
      {"AttrBelowMinusOne", true, replace(h, "3\t1\tsmall\t2", "3\t1\tsmall\t-2"),
       "Illegal attribute hyperparameter: -2.000000 \\(class=1, attribute=3\\)\n$"},
      {"UnknownValue", true, replace(h, "0\t0\tblue", "0\t0\tgreen"), "\\[ID:616\\].*Unknown attribute value"},
      {"HparamClassFields", true, replace(h, "1\t3\n", "1\n"), "\\[ID:601\\].*Unexpected # of fields for class probs"},
      {"HparamCatFields", true, replace(h, "0\t0\tred\t5", "0\t0\tred"),
       "\\[ID:611\\].*Unexpected # of fields for discrete attribute probs"},
      {"TauFields", true, replace(h, "0\t0.5\n", "0\t0.5\t1\n"),
       "\\[ID:631\\].*Unexpected # of fields for tau's in Normal Wishart distrib."},
      {"AlphaFields", true, replace(h, "0\t0\t3\n", "0\t3\n"),
       "\\[ID:632\\].*Unexpected # of fields for alpha's in Normal Wishart distrib."},
      {"NoAlpha", true, h.substr(0, h.find("#### ID:HPARAM-GAUSS-ALPHA0")),
       "Insufficiennt hyperparameter specifications in .* \\(#data-matrices = 6\\)\n$"},
      {"HparamTooMany", true, h + "####\n0\t0\t1\n", "Too many attribute hyperparameter fields in .*\n$"},
      {"HparamMeanFields", true, replace(h, "0\t0\t1\t1\n", "0\t0\t1\n"),
       "\\[ID:622\\].*Unexpected # of fields for means of continuous attributes"},
      {"HparamCovarFields", true, replace(h, "0\t0\t1\t1\t2\n", "0\t0\t1\t1\n"),
       "\\[ID:623\\].*Unexpected # of fields for covariances of continuous attributes"},
      {"HparamGroupSecond", true, replace(h, "1\t0\t1\t3\n", "0\t1\t1\t3\n"), "\\[ID:626\\].*Unexpected Gauss ID"},
  };
}

TEST_F(ReadParamTest, RejectsMalformedFiles) {
  for (const BadParamFile &b : bad_files()) {
    SCOPED_TRACE(b.name);
    write(b.hparam ? settings.fname_hparam : settings.fname_param, b.text);
    EXPECT_EXIT((b.hparam ? (read_cases(), read_hparam()) : read_param()), ::testing::ExitedWithCode(1), b.message);
  }
  unlink(settings.fname_param);
  EXPECT_EXIT(read_param(), ::testing::ExitedWithCode(1), "Couldn't open .*t_param.txt\n$");
}

}  // namespace
