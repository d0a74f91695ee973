// vesk-prep run as a user runs it: awkward input files with the case file,
// column file and command line expected for each, written out by hand; the
// files it writes are read by vesk; bad input is one message and status 1.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

RunResult run_prep(const TempDir &dir, const std::vector<std::string> &args) {
  return run_program(dir, VESK_PREP_BIN, args);
}

std::string last_line(const std::string &text) {
  std::vector<std::string> lines = split_lines(text);
  return lines.empty() ? "" : lines.back();
}

std::vector<std::string> words(const std::string &line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  std::string w;
  while (in >> w) out.push_back(w);
  return out;
}

// The vesk arguments of the printed command line, with more appended.
std::vector<std::string> vesk_args(const std::string &command, const std::vector<std::string> &more) {
  std::vector<std::string> args = words(command);
  args.erase(args.begin());
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

TEST(PrepCli, AwkwardFileBecomesACaseFile) {
  TempDir dir;
  dir.write("t.csv",
            "\xEF\xBB\xBFid,city,temp,note,const\r\n"
            "a1,\"New York\",21.5,\"said \"\"hi\"\"\",x\r\n"
            "a2,Oslo,,NA,x\r\n"
            "\r\n"
            "a3,\"Rome, IT\",NaN,?,x\r\n"
            "a4,Oslo , 19,\"\",x\r\n"
            "a5,Oslo,19,ok,x\r\n");
  RunResult r = run_prep(dir, {"t.csv", "t"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("t_freq.csv"),
            "#id,city,temp,note,const\n"
            "a1,New%20York,21.5,said%20\"hi\",x\n"
            "a2,Oslo,?,?,x\n"
            "a3,Rome%2C%20IT,?,?,x\n"
            "a4,Oslo,19,?,x\n"
            "a5,Oslo,19,ok,x\n");
  EXPECT_EQ(dir.read("t_columns.csv"),
            "index,name,role\n0,id,id\n1,city,discrete\n2,temp,continuous\n3,note,discrete\n"
            "4,const,ignored\n");
  EXPECT_EQ(last_line(r.out), "vesk -f t -x 5 -u 2 -I 0 -y 4 -k 2:6:1 -n 10 -A");
  EXPECT_NE(r.out.find("Read 5 rows of 5 columns from t.csv\n"), std::string::npos);
  EXPECT_NE(r.err.find("vesk-prep: warning: 3 values hold characters the case file cannot hold "
                       "and were percent-encoded (blank x3 as %20, ',' x1 as %2C)"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("vesk-prep: warning: column 'temp' holds only 2 distinct numbers"),
            std::string::npos);
  EXPECT_FALSE(dir.exists("t_freq.csv.part"));
}

TEST(PrepCli, OptionsForDelimitersHeadersMarkersAndGroups) {
  TempDir dir;
  dir.write("s.txt", "1;NA;-;2.5\n2;NA;b;3\n3;x;c;1e1\n");
  RunResult r = run_prep(dir, {"s.txt", "s", "--no-header", "-d", ";", "--keep", "NA", "--na",
                               "-", "--role", "column3=ignored", "-k", "3"});
  ASSERT_EQ(r.status, 0) << r.err;
  // Column 0 counts the rows from 1: the ID. "NA" is a value, encoded so
  // that vesk does not read it as missing; "-" is missing.
  EXPECT_EQ(dir.read("s_freq.csv"), "#column0,column1,column2,column3\n"
                                    "1,%4EA,?,2.5\n2,%4EA,b,3\n3,x,c,1e1\n");
  EXPECT_EQ(last_line(r.out), "vesk -f s -x 4 -I 0 -y 3 -k 3 -n 10 -A");

  // pandas writes its row index as an unnamed first column.
  dir.write("p.csv", ",a,b,c,d\n0,1.5,2,x,3\n1,2.5,1,y,4\n2,0.5,7,x,5\n");
  r = run_prep(dir, {"p.csv", "p", "--independent"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("p_columns.csv"),
            "index,name,role\n0,column0,id\n1,a,continuous\n2,b,continuous\n3,c,discrete\n"
            "4,d,continuous\n");
  EXPECT_EQ(last_line(r.out), "vesk -f p -x 5 -u 1~2#4 -I 0 -k 2:6:1 -n 10 -A");

  // Tab-separated input with a quoted name; names with commas are quoted in
  // the column file.
  dir.write("q.tsv", "\"w, kg\"\tkind\n1\tA\n2\tB\n3\tA\n");
  r = run_prep(dir, {"q.tsv", "q"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("q_columns.csv"), "index,name,role\n0,\"w, kg\",id\n1,kind,discrete\n");
  EXPECT_EQ(dir.read("q_freq.csv"), "#w%2C%20kg,kind\n1,A\n2,B\n3,A\n");
}

TEST(PrepCli, BadInputIsOneMessageAndNoFile) {
  struct Case {
    std::string name, text;
    std::vector<std::string> extra;
    std::string message;
  };
  const Case cases[] = {
      {"short.csv", "a,b\n1,2\n3\n", {},
       "vesk-prep: short.csv: line 3 has 1 fields but line 1 has 2 (fields are separated by "
       "commas; quote a value that holds one with double quotes)\n"},
      {"open.csv", "a,b\n1,\"2\n", {},
       "vesk-prep: open.csv: the quoted field that starts on line 2 is never closed\n"},
      {"u16.csv", std::string("\xFF\xFE" "a\0,\0b\0", 8), {},
       "vesk-prep: u16.csv is UTF-16 or UTF-32 encoded; save it as UTF-8 (\"CSV UTF-8\") and try "
       "again\n"},
      {"head.csv", "a,b\r\n\r\n", {}, "vesk-prep: head.csv holds a header row but no data rows\n"},
      {"empty.csv", "", {}, "vesk-prep: empty.csv holds no rows\n"},
      {"text.csv", "a,b\n1,x\n2,y\n", {"--role", "b=continuous"},
       "vesk-prep: column 'b' cannot be continuous: line 2 holds 'x', which is not a number\n"},
      {"opt.csv", "a,b\n1,x\n", {"--colour"},
       "vesk-prep: unknown option --colour (vesk-prep --help for usage)\n"},
      {"val.csv", "a,b\n1,x\n", {"--role"}, "vesk-prep: --role needs a value (vesk-prep --help for usage)\n"},
  };
  for (const Case &c : cases) {
    TempDir dir;
    dir.write(c.name, c.text);
    std::vector<std::string> args = {c.name, "out"};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    RunResult r = run_prep(dir, args);
    EXPECT_EQ(r.status, 1) << c.name;
    EXPECT_EQ(r.err, c.message) << c.name;
    EXPECT_FALSE(dir.exists("out_freq.csv")) << c.name;
    EXPECT_FALSE(dir.exists("out_columns.csv")) << c.name;
  }
  TempDir dir;
  RunResult r = run_prep(dir, {"nosuch.csv", "out"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "vesk-prep: cannot open nosuch.csv: No such file or directory\n");
  r = run_prep(dir, {"only-one"});
  EXPECT_EQ(r.err, "vesk-prep: expected INPUT and BASE, got 1 file names (vesk-prep --help for usage)\n");
  r = run_prep(dir, {"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("Usage: vesk-prep INPUT BASE [option...]\n", 0), 0u);
}

// The printed command fits the prepared file; every input row comes back as
// one case, in order, under its ID.
TEST(PrepCli, VeskFitsThePreparedExample) {
  TempDir dir;
  dir.write("iris.csv", read_file(std::string(VESK_SOURCE_DIR) + "/examples/iris_raw.csv"));
  RunResult p = run_prep(dir, {"iris.csv", "iris", "-k", "2:3:1"});
  ASSERT_EQ(p.status, 0) << p.err;
  EXPECT_EQ(last_line(p.out), "vesk -f iris -x 7 -u 1-4 -I 0 -y 6 -k 2:3:1 -n 10 -A");
  RunResult v = run_vesk(dir, vesk_args(last_line(p.out), {"-r", "1", "-n", "2"}));
  ASSERT_EQ(v.status, 0) << v.err;
  std::vector<std::string> rows = section_rows(dir.read("iris_cluster.csv"), "CLUSTER-CASE-BY-CASE");
  ASSERT_EQ(rows.size(), 150u);
  EXPECT_EQ(rows[0].substr(0, 5), "p001,");
  EXPECT_EQ(rows[7].substr(0, 5), "p008,");
  EXPECT_NE(rows[7].find(",5,?,1.5,0.2,Iris%20setosa,"), std::string::npos) << rows[7];
  EXPECT_EQ(rows[149].substr(0, 5), "p150,");
}

// New data prepared with the roles of an earlier run, and scored with the
// model fitted there: a column that is constant in the new rows keeps its role.
TEST(PrepCli, NewDataScoredWithAFittedModel) {
  TempDir dir;
  std::string raw = read_file(std::string(VESK_SOURCE_DIR) + "/examples/iris_raw.csv");
  dir.write("iris.csv", raw);
  RunResult p = run_prep(dir, {"iris.csv", "iris", "-k", "3"});
  ASSERT_EQ(p.status, 0) << p.err;
  ASSERT_EQ(run_vesk(dir, vesk_args(last_line(p.out), {"-r", "1", "-n", "2"})).status, 0);
  // The header and the first three rows (all setosa), under new IDs.
  std::vector<std::string> lines = split_lines(raw);
  dir.write("new.csv", lines[0] + "\n" + "n" + lines[1].substr(1) + "\n" + "n" +
                           lines[2].substr(1) + "\n" + "n" + lines[3].substr(1) + "\n");
  p = run_prep(dir, {"new.csv", "new", "--columns", "iris_columns.csv"});
  ASSERT_EQ(p.status, 0) << p.err;
  std::vector<std::string> out = split_lines(p.out);
  ASSERT_GE(out.size(), 2u);
  EXPECT_EQ(out[out.size() - 2],
            "Score with the model fitted on iris: cp iris_param.csv new_param.csv, then run");
  EXPECT_EQ(out.back(), "vesk -f new -x 7 -u 1-4 -I 0 -y 6 -R");
  EXPECT_EQ(dir.read("new_columns.csv"), dir.read("iris_columns.csv"));
  dir.write("new_param.csv", dir.read("iris_param.csv"));
  RunResult v = run_vesk(dir, vesk_args(out.back(), {}));
  ASSERT_EQ(v.status, 0) << v.err;
  std::vector<std::string> rows = section_rows(dir.read("new_cluster.csv"), "CLUSTER-CASE-BY-CASE");
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[2].substr(0, 5), "n003,");

  dir.write("other.csv", "a,b\n1,x\n2,y\n");
  p = run_prep(dir, {"other.csv", "o", "--columns", "iris_columns.csv"});
  EXPECT_EQ(p.status, 1);
  EXPECT_EQ(p.err, "vesk-prep: the input has no column 'sepal length (cm)', a continuous attribute of the "
            "model in iris_columns.csv\n");
}

// With only discrete columns vesk merges identical rows unless told not to;
// the printed command keeps every row, so case IDs are row numbers.
TEST(PrepCli, IdenticalRowsStayApart) {
  TempDir dir;
  dir.write("d.csv", "color,size\nred,S\nred,S\nblue,L\nred,S\nblue,L\ngreen,M\n");
  RunResult p = run_prep(dir, {"d.csv", "d", "-k", "2"});
  ASSERT_EQ(p.status, 0) << p.err;
  EXPECT_EQ(last_line(p.out), "vesk -f d -x 2 --uncompress -k 2 -n 10 -A");
  RunResult v = run_vesk(dir, vesk_args(last_line(p.out), {"-r", "3"}));
  ASSERT_EQ(v.status, 0) << v.err;
  std::vector<std::string> rows = section_rows(dir.read("d_cluster.csv"), "CLUSTER-CASE-BY-CASE");
  const char *values[] = {"red,S", "red,S", "blue,L", "red,S", "blue,L", "green,M"};
  ASSERT_EQ(rows.size(), 6u);
  for (size_t i = 0; i < rows.size(); i++) {
    EXPECT_EQ(rows[i].substr(0, 2), std::to_string(i) + ",");
    EXPECT_NE(rows[i].find(values[i]), std::string::npos) << rows[i];
  }
  // Without --uncompress the six rows are three cases.
  v = run_vesk(dir, {"-f", "d", "-x", "2", "-k", "2", "-A", "-r", "3"});
  ASSERT_EQ(v.status, 0) << v.err;
  EXPECT_EQ(section_rows(dir.read("d_cluster.csv"), "CLUSTER-CASE-BY-CASE").size(), 3u);
}

}  // namespace
