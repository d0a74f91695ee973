// The case file as the program meets it: bad lines end the run with their
// numbered check on stderr and in the log; odd but valid files are read.
#include <gtest/gtest.h>

#include <cstdlib>
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
      {"d_freq.txt", {"-x", "3"}, "# header\na\tb\n",
       "[ID:374] Illegal line 2 in d_freq.txt: Too few fields (columns)\na\tb\n"},
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
  for (int trial = 0; trial < 2; trial++) {
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

// The statistics of the iris data agree with R's mean, var, sd and quantile
// (type 7) of Sepal.Length and Petal.Length, and with cov(Sepal.Length,
// Sepal.Width).
TEST(ReadFreqBlackbox, IrisStatisticsMatchReferenceValues) {
  TempDir dir;
  dir.copy_data("iris_freq.csv");
  RunResult res = run_vesk(dir, {"-f", "iris", "-k", "2", "-x", "5", "-u", "0-3", "--seed", "1"});
  ASSERT_EQ(res.status, 0) << res.err;
  std::string log = dir.read("iris_log.csv");
  auto values = [](const std::string &row) {
    std::vector<double> v;
    const char *p = row.c_str();
    for (char *end = nullptr;; p = end + 1) {
      v.push_back(strtod(p, &end));
      if (end == p || *end != ',') break;
    }
    return v;
  };
  const std::vector<std::vector<double>> basic = {{0, 0, 4.3, 5.843333, 5.8, 7.9, 0.6856935, 0.8280661},
                                                  {0, 2, 1, 3.758, 4.35, 6.9, 3.116278, 1.765298}};
  std::vector<std::string> rows = section_rows(log, "STAT-BASIC-GAUSS");
  ASSERT_EQ(rows.size(), 4u);
  for (size_t r = 0; r < basic.size(); r++) {
    std::vector<double> got = values(rows[2 * r]);
    ASSERT_EQ(got.size(), basic[r].size()) << rows[2 * r];
    for (size_t i = 0; i < got.size(); i++) EXPECT_NEAR(got[i], basic[r][i], 5e-7) << rows[2 * r];
  }
  const double pct[] = {4.3, 4.6, 4.8, 5.1, 5.8, 6.4, 6.9, 7.255, 7.9};
  rows = section_rows(log, "STAT-PERCENTILE");
  ASSERT_EQ(rows.size(), 36u);
  for (int i = 0; i < 9; i++) EXPECT_NEAR(values(rows[i])[2], pct[i], 1e-9) << rows[i];
  EXPECT_NEAR(values(section_rows(log, "STAT-GAUSS-COVAR")[1])[3], -0.04243400, 5e-9);
}

}  // namespace
