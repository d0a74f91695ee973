// vesk-prep on the inputs that used to go wrong: a count column, decimal
// commas, row-index columns, repeated column names, long IDs, outputs when
// a run fails late, input that is not text, memory on many short fields,
// and new data scored without its answer and ignored columns.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

RunResult prep(const TempDir &dir, const std::vector<std::string> &args, ProcessEnd *end = nullptr) {
  return run_program(dir, VESK_PREP_BIN, args, 20, end);
}

std::vector<std::string> command_of(const RunResult &r) {
  std::vector<std::string> lines = split_lines(r.out), w;
  std::string cur;
  for (char c : lines.back() + " ") {
    if (c != ' ') cur += c;
    else if (!cur.empty()) w.push_back(cur), cur.clear();
  }
  w.erase(w.begin());
  return w;
}

bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

TEST(PrepFixes, CountColumnGoesLastAndVeskReadsIt) {
  TempDir dir;
  dir.write("t.csv", "Freq,Class,Sex,Survived\n3,1st,Male,No\n118,1st,Male,No\n25,2nd,F,Yes\n"
                     "17,3rd,F,No\n");
  RunResult r = prep(dir, {"t.csv", "t", "--role", "Freq=count", "--role", "Survived=answer",
                           "-k", "2"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("t_freq.csv"), "#Class,Sex,Survived,Freq\n1st,Male,No,3\n1st,Male,No,118\n"
                                    "2nd,F,Yes,25\n3rd,F,No,17\n");
  EXPECT_TRUE(has(dir.read("t_columns.csv"), "\n3,Freq,count\n"));
  std::vector<std::string> cmd = command_of(r);
  EXPECT_EQ(cmd[3], "3");  // -x: the count is not an attribute
  RunResult v = run_vesk(dir, cmd);
  ASSERT_EQ(v.status, 0) << v.err;
  EXPECT_TRUE(has(dir.read("t_log.csv"), "\n163,")) << "163 cases in all";
  dir.write("b.csv", "n,x\n2,a\n0,b\n");
  r = prep(dir, {"b.csv", "b", "--role", "n=count"});
  EXPECT_EQ(r.err, "vesk-prep: column 'n' cannot be the count: line 3 holds '0', not a whole "
                   "number of at least 1\n");
}

TEST(PrepFixes, DecimalCommasAndRowIndexColumns) {
  TempDir dir;
  dir.write("d.csv", "a;b\n1,5;x\n-1.234,25;y\n7;x\n");
  RunResult r = prep(dir, {"d.csv", "d"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("d_freq.csv"), "#a,b\n1.5,x\n-1234.25,y\n7,x\n");
  EXPECT_TRUE(has(r.err, "column 'a' holds numbers with a decimal comma")) << r.err;
  r = prep(dir, {"d.csv", "d2", "--decimal", "."});
  EXPECT_TRUE(has(dir.read("d2_columns.csv"), "0,a,id")) << "texts, all distinct";

  // Increasing integers in 10 rows or more are a row index, not an attribute.
  std::string text = "key,v\n";
  for (int i = 0; i < 12; i++) text += std::to_string(100 + 3 * i) + "," + std::to_string(i % 5) + "\n";
  dir.write("i.csv", text);
  r = prep(dir, {"i.csv", "i"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(has(dir.read("i_columns.csv"), "0,key,id")) << r.out;
  EXPECT_TRUE(has(r.err, "column 'key' looks like a row index (increasing integers)")) << r.err;
}

TEST(PrepFixes, RepeatedNamesAndLongIdsStillGiveACommandThatRuns) {
  TempDir dir;
  dir.write("a.csv", "a,a,a.1,g\n1,2,3,x\n4,5,6,y\n2,2,9,x\n");
  RunResult r = prep(dir, {"a.csv", "a"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("a_columns.csv"), "index,name,role\n0,a,continuous\n1,a.2,continuous\n"
                                       "2,a.1,continuous\n3,g,discrete\n");
  EXPECT_EQ(prep(dir, {"a.csv", "b", "--columns", "a_columns.csv"}).status, 0);

  std::string prefix(300, 'q'), text = "name,v\n";
  for (int i = 0; i < 4; i++) text += prefix + std::to_string(i) + "," + std::to_string(i % 2) + ".5\n";
  dir.write("l.csv", text);
  r = prep(dir, {"l.csv", "l"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_FALSE(has(dir.read("l_columns.csv"), ",id\n"));
  ASSERT_EQ(run_vesk(dir, command_of(r)).status, 0);
  r = prep(dir, {"l.csv", "l", "--role", "name=id"});
  EXPECT_TRUE(has(r.err, "cannot be the ID")) << r.err;
}

TEST(PrepFixes, NoOutputUnlessTheWholeRunSucceeds) {
  TempDir dir;
  dir.write("a.csv", "x,y\n1,2\n3,5\n");
  std::string cd = "cd '" + dir.path + "' && " + VESK_PREP_BIN;
  EXPECT_NE(system((cd + " a.csv full >/dev/full 2>err.txt").c_str()), 0);
  EXPECT_TRUE(has(dir.read("err.txt"), "cannot write to standard output"));
  EXPECT_FALSE(dir.exists("full_freq.csv") || dir.exists("full_columns.csv"));
  ASSERT_EQ(system(("mkdir '" + dir.file("d_columns.csv") + "'").c_str()), 0);
  RunResult r = prep(dir, {"a.csv", "d"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_FALSE(dir.exists("d_freq.csv") || dir.exists("d_freq.csv.part"));
  r = prep(dir, {"/dev/zero", "z"});  // stops at the first bytes instead of filling memory
  EXPECT_EQ(r.err, "vesk-prep: /dev/zero: line 1 holds a NUL byte; is it a text file?\n");
}

TEST(PrepFixes, MemoryIsASmallMultipleOfTheInput) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "AddressSanitizer's shadow memory and redzones dwarf the table";
#endif
  TempDir dir;
  std::string row;
  for (int c = 0; c < 99; c++) row += "a,";
  std::string text = row + "b\n";
  for (int r = 0; r < 20000; r++) text += row + (r % 2 ? "b\n" : "c\n");  // 4 MB, 2 million cells
  dir.write("m.csv", text);
  ProcessEnd end;
  RunResult r = prep(dir, {"m.csv", "m", "--no-header"}, &end);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_LT(end.max_rss_kb * 1024.0, 10.0 * static_cast<double>(text.size()));
}

TEST(PrepFixes, NewDataWithoutAnswerOrIgnoredColumns) {
  TempDir dir;
  dir.write("f.csv", "id,x,y,kind,const\nr1,1.0,2.0,a,k\nr2,1.5,2.5,b,k\nr3,4.0,0.5,a,k\n"
                     "r4,4.5,1.0,b,k\n");
  RunResult r = prep(dir, {"f.csv", "f", "--role", "kind=answer", "-k", "2"});
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(run_vesk(dir, command_of(r)).status, 0);
  dir.write("n.csv", "y,x\n2.2,1.1\n0.7,4.2\n");
  r = prep(dir, {"n.csv", "n", "--columns", "f_columns.csv"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("n_freq.csv"), "#id,x,y,kind,const\n?,1.1,2.2,?,?\n?,4.2,0.7,?,?\n");
  dir.write("n_param.csv", dir.read("f_param.csv"));
  RunResult v = run_vesk(dir, command_of(r));
  EXPECT_EQ(v.status, 0) << v.err;
}

}  // namespace
