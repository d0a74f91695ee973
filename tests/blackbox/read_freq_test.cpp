// The case file as the program meets it: bad lines end the run with their
// numbered check on stderr and in the log; odd but valid files are read.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

struct BadCaseFile {
  std::string name;  // case file name
  std::vector<std::string> args;
  std::string text;
  std::string message;  // expected on stderr after the progress text
};

TEST(ReadFreqBlackbox, BadCaseFilesFailWithTheirCheck) {
  const std::vector<BadCaseFile> rows = {
      {"d_freq.csv", {"-x", "2"}, "a,b\na,b,c,d\n",
       "[ID:372] Illegal line 2 in d_freq.csv: Too many fields (columns)\na,b,c,d\n"},
      {"d_freq.txt", {"-x", "3"}, "# header\na\tb\n",
       "[ID:374] Illegal line 2 in d_freq.txt: Too few fields (columns)\na\tb\n"},
      {"d_freq.csv", {"-x", "3"}, "a,,b\n", "[ID:388] Illegal line 1 in d_freq.csv: empty value\na,,b\n"},
      {"d_freq.csv", {"-x", "2"}, "a,b,1x\n",
       "[ID:397] Illegal line 1 in d_freq.csv: illegal format for an integer\na,b,1x\n    ^\n"},
      {"d_freq.csv", {"-x", "2"}, "a,b,0\n",
       "[ID:400] Illegal line 1 in d_freq.csv: the object counts should be positive\na,b,0\n    ^\n"},
      {"d_freq.csv", {"-x", "2", "-u", "1"}, "a,1\nb,2..5\n",
       "[ID:413] Illegal line 2 in d_freq.csv: illegal format for a floating-point number\nb,2..5\n  ^\n"},
      {"d_freq.csv", {"-x", "2", "-I", "0"}, "k,a\nk,b\n",
       "[ID:203] Illegal line 2 in d_freq.csv: duplicating case ID\nk,b\n^\n"},
      {"d_freq.csv", {"-x", "2", "-E", "1"}, "a,x\na,y\n",
       "[ID:219] Illegal line 2 in d_freq.csv: different answer classes for the same object\na,y\n  ^\n"},
      {"d_freq.csv", {"-x", "2"}, "#only\n#comments\n", "the file is empty\n"},
  };
  for (const BadCaseFile &r : rows) {
    TempDir dir;
    dir.write(r.name, r.text);
    std::vector<std::string> args = {"-f", "d", "-k", "2"};
    args.insert(args.end(), r.args.begin(), r.args.end());
    RunResult res = run_vesk(dir, args);
    EXPECT_EQ(res.status, 1) << r.text;
    std::string expected = "Reading cases from " + r.name + "..." + r.message;
    EXPECT_NE(res.err.find(expected), std::string::npos) << res.err;
    std::string log = dir.read(r.name.substr(0, 2) + "log" + r.name.substr(r.name.size() - 4));
    EXPECT_NE(log.find(r.message), std::string::npos) << r.text;
  }
}

TEST(ReadFreqBlackbox, BinaryJunkNeverCrashes) {
  unsigned state = 12345;
  for (int trial = 0; trial < 4; trial++) {
    std::string junk;
    for (int i = 0; i < 3000; i++) {
      state = state * 1103515245u + 12345u;
      junk += static_cast<char>((state >> 16) & 0xff);
    }
    TempDir dir;
    dir.write("j_freq.csv", junk);
    RunResult res = run_vesk(dir, {"-f", "j", "-k", "2", "-x", "3"});
    EXPECT_EQ(res.status, 1) << res.err;
    EXPECT_NE(res.err.find("Reading cases from j_freq.csv..."), std::string::npos);
  }
}

TEST(ReadFreqBlackbox, CrlfNoFinalNewlineAndByteOrderMarkAreRead) {
  TempDir dir;
  dir.write("e_freq.csv", "\xEF\xBB\xBFx,1.5,A\r\ny,2.5,B\r\n# note\r\nx,NA,A\r\ny,3.5,B");
  RunResult res = run_vesk(dir, {"-f", "e", "-k", "2", "-x", "3", "-u", "1", "-E", "2"});
  EXPECT_NE(res.err.find("Reading cases from e_freq.csv...done\n"), std::string::npos) << res.err;
  std::string log = dir.read("e_log.csv");
  EXPECT_EQ(section_rows(log, "ANS-CLASS"), (std::vector<std::string>{"A,2", "B,2"}));
  EXPECT_EQ(section_rows(log, "STAT-GAUSS-MEAN"), (std::vector<std::string>{"0,1,2.5"}));
  // The byte-order mark stays part of the first value: three distinct values.
  EXPECT_EQ(section_rows(log, "STAT-BASIC-CAT"), (std::vector<std::string>{"0,3,y,2"}));
}

TEST(ReadFreqBlackbox, VerboseDumpsListTheCasesAndValues) {
  TempDir dir;
  dir.write("t_freq.txt", "b\tx\t3\na\tx\nb\tx\n");
  RunResult res = run_vesk(dir, {"-f", "t", "-k", "2", "-x", "2", "--verbose", "--occ-order"});
  std::string log = dir.read("t_log.txt");
  EXPECT_EQ(section_rows(log, "FREQ-CASE"), (std::vector<std::string>{"0\tb\tx\t4", "1\ta\tx\t1"}));
  EXPECT_EQ(section_rows(log, "FREQ-CAT0"), (std::vector<std::string>{"0\t0\tb\t2", "0\t1\ta\t1"}));
  EXPECT_EQ(section_rows(log, "ATTVAL1"), (std::vector<std::string>{"0\tx"}));
}

}  // namespace
