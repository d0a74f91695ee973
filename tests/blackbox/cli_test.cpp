// Command line: help and version texts, rejected options and values with
// their messages, streams and exit status, and the naming of files.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

const std::string version_line = "VESK version 0.6 (ML+MAP, built on Apr 22 2011)\n";
const std::string usage_first = "[Usage] vesk -f basename -k #classes -x #attributes [option...]\n";

bool starts_with(const std::string &s, const std::string &p) { return s.rfind(p, 0) == 0; }
bool ends_with(const std::string &s, const std::string &p) {
  return s.size() >= p.size() && s.compare(s.size() - p.size(), p.size(), p) == 0;
}
long count_lines(const std::string &s) { return std::count(s.begin(), s.end(), '\n'); }

struct TextCase {
  std::vector<std::string> args;
  std::string tail;  // last line of the text
  long lines;
};

TEST(Cli, HelpPrintsUsageToStdoutAndExitsZero) {
  const std::string short_tail = " --helpall     (-X) Print brief descriptions on all flags\n\n";
  const std::string full_tail = " --helpall        (-X) Print brief descriptions on all flags\n\n";
  const TextCase cases[] = {
      {{"-h"}, short_tail, 39},
      {{"-h", "-Z"}, short_tail, 39},
      {{"-X"}, full_tail, 89},
      {{"--helpall", "-h"}, full_tail, 89},
  };
  for (const TextCase &c : cases) {
    TempDir dir;
    RunResult r = run_vesk(dir, c.args);
    EXPECT_EQ(r.status, 0) << c.args[0];
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(starts_with(r.out, "\n" + version_line + usage_first)) << r.out.substr(0, 120);
    EXPECT_TRUE(ends_with(r.out, c.tail)) << c.args[0];
    EXPECT_EQ(count_lines(r.out), c.lines) << c.args[0];
  }
}

TEST(Cli, VersionPrintsOneLine) {
  for (const std::vector<std::string> &args :
       {std::vector<std::string>{"-v"}, {"--version", "-Z"}, {"-f", "base", "-v", "-h"}}) {
    TempDir dir;
    RunResult r = run_vesk(dir, args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, version_line);
    EXPECT_EQ(r.err, "");
  }
}

struct EarlyCase {
  std::vector<std::string> args;
  std::string message;
};

// Failures before the log is opened: stderr only, nothing written.
TEST(Cli, EarlyFailuresGoToStderrOnly) {
  const std::string huge(100000, 'a');
  const std::string base512(512, 'a');
  const EarlyCase cases[] = {
      {{"-Z", "-h"}, "Unknown/illegal option specification: -Z (Use -h for usage)\n"},
      {{"-x", "3"}, "Missing or illegal --target (-f) option (Use -h for usage)\n"},
      {{}, "Missing or illegal --target (-f) option (Use -h for usage)\n"},
      {{"-f", ""}, "Missing or illegal --target (-f) option (Use -h for usage)\n"},
      {{"-x", "3", "-f"}, "Unknown/illegal option specification: -f (Use -h for usage)\n"},
      {{"-f", "-h"}, "Unknown/illegal option specification: -f (Use -h for usage)\n"},
      {{"--target=titanic"},
       "Unknown/illegal option specification: --target=titanic (Use -h for usage)\n"},
      {{"--targ", "titanic"}, "Unknown/illegal option specification: --targ (Use -h for usage)\n"},
      {{"-f", "titanic", "-k5"}, "Unknown/illegal option specification: -k5 (Use -h for usage)\n"},
      {{"-f", "titanic", "-i", "txt"},
       "Unknown/illegal option specification: -i (Use -h for usage)\n"},
      {{"-f", "titanic", "-s", "-x", "4"},
       "Unknown/illegal option specification: -s (Use -h for usage)\n"},
      {{"-f", "titanic", "-x", "4", "--input", "tsv"},
       "Unexpected file format: tsv (Use -h for usage)\n"},
      {{"-f", "titanic", "-j", "Csv2"}, "Unexpected file format: Csv2 (Use -h for usage)\n"},
      {{"-f", "missing", "-x", "3"},
       "Couldn't find the input file (neither missing_freq.txt nor missing_freq.csv)\n"},
      {{"-f", "titanic", "-R", "-s", "r1", "-x", "4"},
       "Couldn't find the input file (neither titanic_r1_param.txt nor titanic_r1_param.csv)\n"},
      {{"-f", huge, "-x", "3"},
       "Couldn't find the input file (neither " + base512 + "_freq.txt nor " + base512 +
           "_freq.csv)\n"},
      {{"-f", "titanic", "-s", huge, "-x", "4"},
       "Couldn't open titanic_" + std::string(512, 'a') + "_log.txt\n"},
      {{"-f", "titanic", "--" + huge},
       "Unknown/illegal option specification: --" + std::string(253, 'a') +
           " (Use -h for usage)\n"},
  };
  for (const EarlyCase &c : cases) {
    TempDir dir;
    dir.copy_data("titanic_freq.txt");
    RunResult r = run_vesk(dir, c.args);
    EXPECT_EQ(r.status, 1) << c.message;
    EXPECT_EQ(r.err, c.message);
    EXPECT_EQ(r.out, "");
    EXPECT_FALSE(dir.exists("titanic_log.txt")) << c.message;
  }
}

// Failures once the log is open: the message goes to the log, then stderr.
TEST(Cli, LaterFailuresGoToLogAndStderr) {
  const std::vector<std::string> base = {"-f", "titanic", "-x", "4", "-k", "2"};
  const EarlyCase cases[] = {
      {{"-f", "titanic"}, "Missing or illegal --n-attr (-x) option (Use -h for usage)\n"},
      {{"-f", "titanic", "-x", "3x"}, "Couldn't parse as an integer -- 3x\n"},
      {{"-f", "titanic", "-x", "4"}, "Missing or illegal --n-class (-k) option (Use -h for usage)\n"},
      {{"--max-iter", "10001"}, "Maximum number of iterations cannot exceed 10000\n"},
      {{"--max-iter", "4294967296"}, "Maximum number of iterations cannot exceed 10000\n"},
      {{"--prec-out", "37"}, "Illegal value for --prec-out option\n"},
      {{"--prec-msg", "0"}, "Illegal value for --prec-msg option\n"},
      {{"--id", "2", "--eval", "2"}, "Confliction between --id (-I) and --eval (-E) options\n"},
      {{"-k", "5:3:1"}, "Illegal value for --n-class (-k) option (Use -h for usage)\n"},
      {{"-e", ""}, "Null string specified for a floating-point number\n"},
      {{"--seed", "abc"}, "Couldn't parse as an unsigned integer -- abc\n"},
      {{"--init-c", "foo"}, "Unknown initialization method -- foo (Use -h for usage)\n"},
      {{"--init-c", "v_freq"}, "Unknown initialization method -- v_freq (Use -h for usage)\n"},
      {{"-y", "0-3"}, "No descriptive attributes\n"},
      {{"-u", "1-3#3"}, "Overlapping continuous attrubute: 3\n"},
      {{"-u", "0", "-y", "0"}, "Confliction between --gauss (-u) and --ignore (-y) options\n"},
      {{"-y", "0", "-u", "0"}, "Confliction between --gauss (-u) and --ignore (-y) options\n"},
      {{"-I", "1", "-y", "1"}, "Confliction between --id (-I) and --ignore (-y) options\n"},
      {{"--prec-msg", "3", "-B", "1.5:2"},
       "Illegal value for the initial value of inverse temperature -- 1.500\n"},
      {{"-w", "auto,0.5"}, "Too many or too few smoothing constants for --smooth-a (-w)\n"},
      {{"-z", "1.5"}, "Illegal specification for ranking -- 1.5\n"},
      {{"-c", "-1"}, "Unexpected value -- -1\n"},
      {{"-L", "foo:1"}, "Illegal value for --smooth-var (-L) option\n"},
      {{"--extreme", "2"}, "Illegal value for --extreme option\n"},
      {{"--weight-purity", "-1", "-E", "0"}, "Illegal value for --weight-purity option\n"},
  };
  for (const EarlyCase &c : cases) {
    TempDir dir;
    dir.copy_data("titanic_freq.txt");
    std::vector<std::string> args = c.args;
    if (args[0] != "-f") args.insert(args.begin(), base.begin(), base.end());
    RunResult r = run_vesk(dir, args);
    EXPECT_EQ(r.status, 1) << c.message;
    EXPECT_EQ(r.err, c.message);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(dir.read("titanic_log.txt"), c.message);
  }
}

TEST(Cli, ScoreFailureIsPrintedDirectly) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  RunResult r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-k", "2", "--score", "foo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Unexpected information criterion: foo (Use -h for usage)\n");
  EXPECT_TRUE(dir.exists("titanic_log.txt"));
  EXPECT_EQ(dir.read("titanic_log.txt"), "");
}

TEST(Cli, SaveMsgSendsFailuresToMessageFile) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  RunResult r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-k", "2", "-S", "-s", "m", "--max-iter", "-2"});
  const std::string msg = "Illegal value for the number of iterations\n";
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(dir.read("titanic_m_msg.txt"), msg);
  EXPECT_EQ(dir.read("titanic_m_log.txt"), msg);
}

struct NameCase {
  std::vector<std::string> files;  // bundled data file -> name in the folder
  std::vector<std::string> args;
  std::string log;                 // expected log file name
  std::string cases_row;           // expected "Input,Cases" row
};

// File naming and format detection, seen through the log that the run writes.
TEST(Cli, NamesFilesFromBaseSuffixAndFormat) {
  const NameCase cases[] = {
      {{"titanic_freq.txt"}, {"-f", "t", "-x", "4", "-k", "2"}, "t_log.txt",
       "Input\tCases\tt_freq.txt"},
      {{"titanic_freq.txt"}, {"-f", "t", "-x", "4", "-k", "2", "--input", "TXT"}, "t_log.txt",
       "Input\tCases\tt_freq.txt"},
      {{"titanic_freq.txt"}, {"-f", "t", "-x", "4", "-k", "2", "--input", "csv"}, "t_log.txt",
       "Input\tCases\tt_freq.txt"},
      {{"titanic_freq.txt"}, {"-f", "t", "-x", "4", "-k", "2", "-j", "CSV"}, "t_log.csv",
       "Input,Cases,t_freq.txt"},
      {{"titanic_freq.txt"}, {"-f", "t", "-x", "4", "-k", "2", "--suffix", "run1"},
       "t_run1_log.txt", "Input\tCases\tt_freq.txt"},
      {{"titanic_freq.txt", "iris_freq.csv"},
       {"-f", "t", "-x", "5", "-u", "0-3", "-k", "2", "--input", "txt"}, "t_log.csv",
       "Input,Cases,t_freq.csv"},
  };
  for (const NameCase &c : cases) {
    TempDir dir;
    for (const std::string &f : c.files) {
      std::string ext = f.substr(f.size() - 4);
      dir.write("t_freq" + ext, read_file(std::string(VESK_DATA_DIR) + "/" + f));
    }
    run_vesk(dir, c.args);
    ASSERT_TRUE(dir.exists(c.log)) << c.log;
    std::vector<std::string> rows = section_rows(dir.read(c.log), "SETTING-FILE");
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ(rows[0], c.cases_row);
  }
}

TEST(Cli, VersionLineStartsTheMessages) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  RunResult r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-k", "2", "--seed", "1"});
  EXPECT_TRUE(starts_with(r.err, version_line)) << r.err.substr(0, 80);
  RunResult s = run_vesk(dir, {"-f", "titanic", "-x", "4", "-k", "2", "--seed", "1", "-S"});
  EXPECT_FALSE(starts_with(s.err, version_line));
  EXPECT_TRUE(starts_with(dir.read("titanic_msg.txt"), version_line));
}

}  // namespace
