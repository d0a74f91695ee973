// Case file reader: merging, missing values, print order, and the numbered
// line checks, on small files written to a temporary folder.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "input/read_freq.h"
#include "test_util.h"

namespace {

// Attribute roles set by hand: `groups` lists the columns of each Gaussian
// group; every other column that is not the ID, the answer or ignored is
// discrete.
struct Roles {
  int tuple_size;
  std::vector<std::vector<int>> groups;
  int id = -1, eval = -1;
  std::vector<int> ignored = {};
};

std::string write_case_file(const std::string &text, const char *ext) {
  char dir[] = "/tmp/vesk_rf_XXXXXX";
  std::string path = std::string(mkdtemp(dir)) + "/t_freq." + ext;
  FILE *fp = fopen(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), fp);
  fclose(fp);
  return path;
}

void set_roles(const Roles &r) {
  settings.tuple_size = r.tuple_size;
  settings.mode_id = r.id >= 0;
  settings.attr_id = r.id;
  settings.mode_eval = r.eval >= 0;
  settings.attr_eval = r.eval;
  settings.attr_ignore = static_cast<int *>(calloc(r.tuple_size, sizeof(int)));
  for (int a : r.ignored) settings.attr_ignore[a] = 1;
  settings.num_attr_ignore = static_cast<int>(r.ignored.size());
  settings.attr_info = static_cast<AttrInfo *>(calloc(r.tuple_size, sizeof(AttrInfo)));
  settings.gauss_size = static_cast<int>(r.groups.size());
  settings.gauss_attr_size = static_cast<int *>(calloc(r.groups.size() + 1, sizeof(int)));
  settings.gauss_attr = static_cast<int **>(calloc(r.groups.size() + 1, sizeof(int *)));
  settings.tuple_size_c = 0;
  for (size_t g = 0; g < r.groups.size(); g++) {
    settings.gauss_attr_size[g] = static_cast<int>(r.groups[g].size());
    settings.gauss_attr[g] = static_cast<int *>(calloc(r.groups[g].size(), sizeof(int)));
    for (size_t k = 0; k < r.groups[g].size(); k++) {
      int a = r.groups[g][k];
      settings.gauss_attr[g][k] = a;
      settings.attr_info[a] = AttrInfo{1, static_cast<int>(g), static_cast<int>(k)};
      settings.tuple_size_c++;
    }
  }
  int d = 0;
  for (int a = 0; a < r.tuple_size; a++) {
    if (a == r.id || a == r.eval || settings.attr_ignore[a] || settings.attr_info[a].cont) continue;
    settings.attr_info[a].index = d++;
  }
  settings.tuple_size_d = d;
  settings.tuple_size_all = d + settings.tuple_size_c;
  settings.mode_nominal = d > 0;
}

// Fresh settings and an empty case table, then reads `text` as a case file.
void read_text_as(const Roles &roles, const std::string &text, const char *ext = "csv") {
  setup_process_state();
  static FILE *quiet = tmpfile();
  settings.fp_log = nullptr;
  settings.fp_msg = quiet;
  settings.mode_em = 1;
  settings.mode_lex_order = 1;
  settings.mode_uncompress = 0;
  settings.mode_verbose = 0;
  settings.format_in = strcmp(ext, "csv") == 0 ? FORMAT_CSV : FORMAT_TXT;
  set_roles(roles);
  std::string path = write_case_file(text, ext);
  snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s", path.c_str());
  cases = CaseTable();
  read_freq();
}

std::vector<std::string> words_of(int a) {
  std::vector<std::string> w;
  for (int v = 0; v < cases.num_word[a]; v++) w.push_back(cases.word_list[a][v]);
  return w;
}

TEST(ReadFreq, MergesIdenticalCasesAndAddsObjectCounts) {
  read_text_as({2, {}}, "a,b,3\nc,d\na,b\n#comment\na,b,007\n");
  EXPECT_EQ(cases.num_entry_pre, 4);
  ASSERT_EQ(cases.num_entry, 2);
  EXPECT_EQ(cases.freq_list[0].count, 11);
  EXPECT_EQ(cases.freq_list[1].count, 1);
  EXPECT_EQ(cases.total_freq, 12);
  EXPECT_EQ(words_of(0), (std::vector<std::string>{"a", "c"}));
  // Registrations are per line, whatever the object count.
  EXPECT_EQ(cases.word_freq_list[0][0], 3);
  EXPECT_EQ(cases.word_freq_list[0][1], 1);
}

TEST(ReadFreq, UncompressKeepsOneRecordPerLine) {
  setup_process_state();
  read_text_as({2, {}}, "a,b\na,b\n");
  EXPECT_EQ(cases.num_entry, 1);
  settings.mode_uncompress = 1;
  cases = CaseTable();
  read_freq();
  EXPECT_EQ(cases.num_entry, 2);
  EXPECT_EQ(cases.freq_list[1].count, 1);
}

TEST(ReadFreq, MissingValuesAreQuestionMarkAndNAOnly) {
  read_text_as({2, {}}, "?,x\nNA,x\nna,x\nb,NA,2\n");
  EXPECT_EQ(words_of(0), (std::vector<std::string>{"na", "b"}));
  EXPECT_EQ(words_of(1), (std::vector<std::string>{"x"}));
  EXPECT_EQ(cases.num_miss_w[0], 2);
  EXPECT_EQ(cases.num_miss_w[1], 2);
  EXPECT_EQ(cases.total_num_miss_w, 4);
  // "?" and "NA" are the same case.
  ASSERT_EQ(cases.num_entry, 3);
  EXPECT_EQ(cases.freq_list[0].count, 2);
  EXPECT_EQ(cases.freq_list[0].word[0], WORD_MISSING);
  EXPECT_EQ(cases.freq_list[0].miss_w[0], 1);
  EXPECT_EQ(cases.freq_list[0].num_miss, 1);
  EXPECT_EQ(cases.freq_list[1].word[0], 0);
  EXPECT_EQ(cases.freq_list[2].miss_w[1], 1);
}

TEST(ReadFreq, PrintOrderIsLexicalOrFirstAppearance) {
  read_text_as({1, {}}, "pear\nApple\napple\nbanana\n");
  EXPECT_EQ(std::vector<int>(cases.print_order[0], cases.print_order[0] + 4), (std::vector<int>{1, 2, 3, 0}));
  settings.mode_lex_order = 0;
  build_print_order(0);
  EXPECT_EQ(std::vector<int>(cases.print_order[0], cases.print_order[0] + 4), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_LT(compare_word("a", "b"), 0);
  EXPECT_EQ(compare_word(std::string(300, 'z').c_str(), (std::string(256, 'z') + "a").c_str()), 0);
}

TEST(ReadFreq, GaussianValuesRolesAndLabels) {
  Roles r{5, {{2, 3}}, 0, 4, {}};
  read_text_as(r, "id1\tx\t1.5\tNA\tA\nid2\ty\t-2e1\t0.25\tB\nid3\tx\t?\t7\tA\n", "txt");
  ASSERT_EQ(cases.num_entry, 3);
  EXPECT_EQ(vector_size(cases.freq_list[0].gauss[0]), 2);
  EXPECT_EQ(cases.freq_list[1].gauss[0][0], -20.0L);
  EXPECT_EQ(cases.freq_list[1].gauss[0][1], 0.25L);
  EXPECT_EQ(cases.freq_list[0].miss_g[0][1], 1);
  EXPECT_EQ(cases.freq_list[0].num_miss_gauss[0], 1);
  EXPECT_EQ(cases.freq_list[2].miss_g[0][0], 1);
  EXPECT_EQ(cases.num_miss_g[0][0], 1);
  EXPECT_EQ(cases.num_miss_g[0][1], 1);
  EXPECT_EQ(words_of(0), (std::vector<std::string>{"x", "y"}));
  EXPECT_STREQ(cases.case_id_list[cases.freq_list[2].case_id], "id3");
  EXPECT_EQ(cases.num_ans_class, 2);
  EXPECT_EQ(cases.cluster_case_freq_ans[0], 2);
  EXPECT_EQ(cases.cluster_case_freq_ans[1], 1);
}

TEST(ReadFreq, OddButReadableFiles) {
  // CRLF line ends, no final line end, blanks removed, ignored column not checked.
  Roles r{3, {}, -1, -1, {2}};
  read_text_as(r, "a b,c,\r\nd,e,z\r\nd,e,z");
  ASSERT_EQ(cases.num_entry, 2);
  EXPECT_EQ(words_of(0), (std::vector<std::string>{"ab", "d"}));
  EXPECT_EQ(cases.freq_list[1].count, 2);
  // A byte-order mark is part of the first value.
  read_text_as({1, {}}, "\xEF\xBB\xBFq\nq\n");
  EXPECT_EQ(words_of(0), (std::vector<std::string>{"\xEF\xBB\xBFq", "q"}));
  // Discrete values keep at most 255 characters.
  read_text_as({1, {}}, std::string(300, 'v') + "\n");
  EXPECT_EQ(strlen(cases.word_list[0][0]), 255u);
  // The longest line accepted.
  read_text_as({2, {}}, std::string(131070, 'w') + ",u\r\n");
  EXPECT_EQ(words_of(1), (std::vector<std::string>{"u"}));
}

TEST(ReadFreq, ReadParamModeOnlyLooksUpValues) {
  setup_process_state();
  cases = CaseTable();
  settings.mode_em = 0;
  HashTable *ht = static_cast<HashTable *>(calloc(1, sizeof(HashTable)));
  init_hashtable(ht);
  register_hashtable(ht, "a");
  auto run = [ht](const char *text) {
    set_roles({1, {}});
    settings.format_in = FORMAT_CSV;
    std::string path = write_case_file(text, "csv");
    snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s", path.c_str());
    cases.ht = ht;
    read_freq();
  };
  EXPECT_EXIT(run("a\nb\n"), testing::ExitedWithCode(1), "Unknown attribute value -- b");
  run("a\na\n");
  EXPECT_EQ(cases.freq_list[0].word[0], 0);
  EXPECT_EQ(cases.freq_list[0].count, 2);
}

TEST(ReadFreq, WritesAnswerClassesAndVerboseDumpsToTheLog) {
  setup_process_state();
  FILE *log = tmpfile();
  auto read_with_log = [log]() {
    settings.fp_log = log;
    settings.format_out = FORMAT_TXT;
    settings.mode_verbose = 1;
    cases = CaseTable();
    read_freq();
  };
  read_text_as({3, {}, -1, 2}, "b,x,P\n", "csv");
  FILE *fp = fopen(settings.fname_freq, "wb");
  fputs("b,x,P\na,x,Q\nb,x,P,2\n", fp);
  fclose(fp);
  read_with_log();
  settings.fp_log = nullptr;
  settings.mode_verbose = 0;
  EXPECT_EQ(stream_text(log),
            "#### ID:ANS-CLASS\n#### Answer class, Num of occurrences\n####\nP\t2\nQ\t1\n"
            "#### ID:FREQ-CASE\n#### Case ID, Answer class, Attribute values x, Num. of occurrences N(x)\n####\n"
            "0\tP\tb\tx\t3\n1\tQ\ta\tx\t1\n"
            "#### ID:FREQ-CAT0\n#### Attr. ID, ID of attr. value x0, Attr. value x0, Num. of occurrences N(x0)\n"
            "####\n0\t1\ta\t1\n0\t0\tb\t2\n"
            "#### ID:FREQ-CAT1\n#### Attr. ID, ID of attr. value x1, Attr. value x1, Num. of occurrences N(x1)\n"
            "####\n1\t0\tx\t3\n"
            "#### ID:ATTVAL0\n#### ID for the attribute value, Attr. value x0\n####\n0\tb\n1\ta\n"
            "#### ID:ATTVAL1\n#### ID for the attribute value, Attr. value x1\n####\n0\tx\n");
  fclose(log);
}

struct Outcome {
  int status;
  std::string msg;  // what went to the message stream
};

// Reads `text` in a child process whose message stream is a file.
Outcome read_in_child(const Roles &roles, const std::string &text, std::string *fname) {
  *fname = write_case_file(text, "csv");
  std::string msg_path = *fname + ".msg";
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    setup_process_state();
    settings.fp_log = nullptr;
    settings.fp_msg = fopen(msg_path.c_str(), "wb");
    settings.format_in = FORMAT_CSV;
    set_roles(roles);
    snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s", fname->c_str());
    cases = CaseTable();
    read_freq();
    _exit(0);
  }
  int st = 0;
  waitpid(pid, &st, 0);
  return Outcome{WIFEXITED(st) ? WEXITSTATUS(st) : 128, read_text(msg_path.c_str())};
}

struct BadFile {
  Roles roles;
  std::string text;
  std::string expected;  // the message after the progress text; F stands for the file name
};

TEST(ReadFreq, BadLinesEndTheRunWithTheirCheck) {
  const std::string long_line(140000, 'x');
  const std::vector<BadFile> bad = {
      {{2, {}}, "a,b,c,d\n", "[ID:372] Illegal line 1 in F: Too many fields (columns)\na,b,c,d\n"},
      {{2, {}}, "a,b\na\n", "[ID:374] Illegal line 2 in F: Too few fields (columns)\na\n"},
      {{3, {}}, "a,,b\n", "[ID:388] Illegal line 1 in F: empty value\na,,b\n"},
      {{2, {}}, "a,b,\n", "[ID:388] Illegal line 1 in F: empty value\na,b,\n"},
      {{2, {}}, "#x\n#y\na,b,x\n", "[ID:397] Illegal line 3 in F: illegal format for an integer\na,b,x\n    ^\n"},
      {{2, {}}, "a,b,0", "[ID:400] Illegal line 1 in F: the object counts should be positive\na,b,0\n    ^\n"},
      {{2, {}}, "a,b,-2\r\n", "[ID:400] Illegal line 1 in F: the object counts should be positive\na,b,-2\r\n    ^\n"},
      {{2, {}}, "a,b,99999999999\n", "[ID:397] Illegal line 1 in F: illegal format for an integer\na,b,99999999999\n    ^\n"},
      {{2, {{1}}}, "a, 1.5x\n", "[ID:413] Illegal line 1 in F: illegal format for a floating-point number\na, 1.5x\n   ^\n"},
      {{2, {{1}}}, "a,nan\n", "[ID:413] Illegal line 1 in F: illegal format for a floating-point number\na,nan\n  ^\n"},
      {{2, {}, 0}, "k,a\nj,b\nk,c\n", "[ID:203] Illegal line 3 in F: duplicating case ID\nk,c\n^\n"},
      {{2, {}, -1, 1}, "a,x\na,y\n", "[ID:219] Illegal line 2 in F: different answer classes for the same object\na,y\n  ^\n"},
      {{1, {}}, "", "the file is empty\n"},
      {{1, {}}, "#only\n#comments\n", "the file is empty\n"},
      {{1, {}}, "#no line end", "the file is empty\n"},
      {{1, {}}, long_line + "\n", "[ID:370] Illegal line 1 in F: Too long line\n" + long_line.substr(0, 131072) + "\n"},
  };
  for (const BadFile &b : bad) {
    std::string fname;
    Outcome out = read_in_child(b.roles, b.text, &fname);
    std::string expected = b.expected;
    size_t at = expected.find(" F:");
    if (at != std::string::npos) expected.replace(at + 1, 1, fname);
    EXPECT_EQ(out.status, 1) << b.text.substr(0, 40);
    EXPECT_EQ(out.msg, "Reading cases from " + fname + "..." + expected) << b.text.substr(0, 40);
  }
}

TEST(ReadFreq, MergedCaseWithMissingValueTakesTheLastAnswer) {
  // The answer check applies only to cases without missing values.
  read_text_as({3, {}, -1, 2}, "a,?,x\na,?,y\nb,c,z\n");
  ASSERT_EQ(cases.num_entry, 2);
  EXPECT_STREQ(cases.ans_class_list[cases.freq_list[0].ans_class], "y");
  EXPECT_EQ(cases.freq_list[0].count, 2);
  EXPECT_EQ(cases.cluster_case_freq_ans[0], 0);
  EXPECT_EQ(cases.cluster_case_freq_ans[1], 1);
  EXPECT_EQ(cases.cluster_case_freq_ans[2], 1);
}

}  // namespace
