// Command line: help and version texts, rejected options and values with
// their messages, streams and exit status, and the naming of files.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

const std::string version_line = "VESK version 0.6 (ML+MAP, built on Apr 22 2011)\n";

bool starts_with(const std::string &s, const std::string &p) { return s.rfind(p, 0) == 0; }
bool ends_with(const std::string &s, const std::string &p) {
  return s.size() >= p.size() && s.compare(s.size() - p.size(), p.size(), p) == 0;
}

struct TextCase {
  std::vector<std::string> args;
  std::string head, tail;
  long lines;
};

// Whichever of help, full help and version comes first wins, even before an
// unknown option; the text goes to standard output and the status is 0.
TEST(Cli, HelpAndVersionPrintToStdout) {
  const std::string usage = "\n" + version_line +
                            "[Usage] vesk -f basename -k #classes -x #attributes [option...]\n";
  const TextCase cases[] = {
      {{"-h", "-Z"}, usage, " --helpall     (-X) Print brief descriptions on all flags\n\n", 39},
      {{"--helpall", "-h"}, usage, " --helpall        (-X) Print brief descriptions on all flags\n\n",
       89},
      {{"--version", "-Z"}, version_line, version_line, 1},
  };
  for (const TextCase &c : cases) {
    TempDir dir;
    RunResult r = run_vesk(dir, c.args);
    EXPECT_EQ(r.status, 0) << c.args[0];
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(starts_with(r.out, c.head)) << r.out.substr(0, 120);
    EXPECT_TRUE(ends_with(r.out, c.tail)) << c.args[0];
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), c.lines) << c.args[0];
  }
}

// Where a failure's message goes besides standard error.
enum LogState { NO_LOG, LOG_HAS_MESSAGE, LOG_EMPTY };

struct FailCase {
  std::vector<std::string> args;  // after the common ones, unless they start with -f or -x
  std::string message;
  LogState log;
};

// Every failure prints one message to standard error and exits 1. Before the
// log is opened nothing is written; afterwards die copies the message into
// the log first. Value checks themselves are unit-tested; these pin the
// passes that read them.
TEST(Cli, FailuresReportOneMessage) {
  const std::vector<std::string> common = {"-f", "titanic", "-x", "4", "-k", "2"};
  const std::string huge(100000, 'a');
  const std::string a512(512, 'a');
  const FailCase cases[] = {
      {{"-Z", "-h"}, "Unknown/illegal option specification: -Z (Use -h for usage)\n", NO_LOG},
      {{"-x", "3"}, "Missing or illegal --target (-f) option (Use -h for usage)\n", NO_LOG},
      {{"--input", "tsv"}, "Unexpected file format: tsv (Use -h for usage)\n", NO_LOG},
      {{"-f", "missing", "-x", "3"},
       "Couldn't find the input file (neither missing_freq.txt nor missing_freq.csv)\n", NO_LOG},
      {{"-R", "-s", "r1"},
       "Couldn't find the input file (neither titanic_r1_param.txt nor titanic_r1_param.csv)\n",
       NO_LOG},
      {{"-f", huge, "-x", "3"},
       "Couldn't find the input file (neither " + a512 + "_freq.txt nor " + a512 + "_freq.csv)\n",
       NO_LOG},
      {{"-s", huge}, "Couldn't open titanic_" + a512 + "_log.txt\n", NO_LOG},
      {{"-f", "titanic"}, "Missing or illegal --n-attr (-x) option (Use -h for usage)\n",
       LOG_HAS_MESSAGE},
      {{"-f", "titanic", "-x", "4"},
       "Missing or illegal --n-class (-k) option (Use -h for usage)\n", LOG_HAS_MESSAGE},
      {{"--id", "2", "--eval", "2"}, "Confliction between --id (-I) and --eval (-E) options\n",
       LOG_HAS_MESSAGE},
      {{"--init-c", "v_freq"}, "Unknown initialization method -- v_freq (Use -h for usage)\n",
       LOG_HAS_MESSAGE},
      {{"-u", "0", "-y", "0"}, "Confliction between --gauss (-u) and --ignore (-y) options\n",
       LOG_HAS_MESSAGE},
      {{"-y", "0", "-u", "0"}, "Confliction between --gauss (-u) and --ignore (-y) options\n",
       LOG_HAS_MESSAGE},
      {{"--prec-msg", "3", "-B", "1.5:2"},
       "Illegal value for the initial value of inverse temperature -- 1.500\n", LOG_HAS_MESSAGE},
      {{"--score", "foo"}, "Unexpected information criterion: foo (Use -h for usage)\n", LOG_EMPTY},
  };
  for (const FailCase &c : cases) {
    TempDir dir;
    dir.copy_data("titanic_freq.txt");
    std::vector<std::string> args = c.args;
    if (args[0] != "-f" && args[0] != "-x") args.insert(args.begin(), common.begin(), common.end());
    RunResult r = run_vesk(dir, args);
    EXPECT_EQ(r.status, 1) << c.message;
    EXPECT_EQ(r.err, c.message);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(dir.exists("titanic_log.txt"), c.log != NO_LOG) << c.message;
    EXPECT_EQ(dir.read("titanic_log.txt"), c.log == LOG_HAS_MESSAGE ? c.message : "");
  }
}

// The version line opens the message stream, which --save-msg moves to a file.
TEST(Cli, SaveMsgMovesMessagesToFile) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  RunResult r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-k", "2", "--seed", "1"});
  EXPECT_TRUE(starts_with(r.err, version_line)) << r.err.substr(0, 80);
  r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-k", "2", "-S", "-s", "m", "--max-iter", "-2"});
  const std::string msg = "Illegal value for the number of iterations\n";
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(dir.read("titanic_m_msg.txt"), msg);
  EXPECT_EQ(dir.read("titanic_m_log.txt"), msg);
}

// When both case files exist the csv one is read, whatever --input says, and
// the output follows it.
TEST(Cli, CsvCaseFileWinsOverTxt) {
  TempDir dir;
  dir.write("t_freq.txt", read_file(std::string(VESK_DATA_DIR) + "/titanic_freq.txt"));
  dir.write("t_freq.csv", read_file(std::string(VESK_DATA_DIR) + "/iris_freq.csv"));
  run_vesk(dir, {"-f", "t", "-x", "5", "-u", "0-3", "-k", "2", "--input", "txt"});
  std::vector<std::string> rows = section_rows(dir.read("t_log.csv"), "SETTING-FILE");
  ASSERT_FALSE(rows.empty());
  EXPECT_EQ(rows[0], "Input,Cases,t_freq.csv");
}

}  // namespace
