// Robustness of the command line: every numeric option at its extremes, and
// commands that once crashed, overflowed or ran away with memory. Each run,
// under a CPU-time limit, exits with status 0 or 1 (never by a signal, which
// gives 128 + the signal), leaves no sanitizer report (in the Sanitize build
// LeakSanitizer checks at exit), and a failure says one thing on standard error.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

bool has_sanitizer_report(const std::string &text) {
  return text.find("Sanitizer") != std::string::npos || text.find("runtime error") != std::string::npos;
}

// The extremes: 0, -1, INT_MAX, INT_MAX + 1, nan, inf, -inf, 1e4930, a tiny
// subnormal, -1e4930 and a value of 10,000 characters.
struct OptionCase {
  std::string option;
  std::vector<std::string> extra = {};   // what the option needs to take effect
  std::string prefix = "", suffix = "";  // the extreme is placed between these
};

const OptionCase kOptions[] = {
    {"-a"}, {"-c"}, {"-e"}, {"-E"}, {"-G"}, {"-I"}, {"-k"}, {"-m"}, {"-n"}, {"-o"}, {"-r"}, {"-T"},
    {"-u"}, {"-w"}, {"-x"}, {"-y"}, {"-z"}, {"--min-c-param"}, {"--min-sm-imp"}, {"--min-new-c-param"},
    {"--prec-out"}, {"--prec-msg"}, {"--noise"}, {"--noise-gauss"},
    {"-B", {"-b"}, "", ":1.2"}, {"-B", {"-b"}, "0.5:"}, {"-B", {"-b"}},
    {"-k", {}, "2:", ":999999999"}, {"-k", {}, "2:9:"}, {"-w", {}, "0.5,"},
    {"-K", {"-T", "1"}}, {"-L", {"-T", "1"}}, {"-L", {"-T", "1"}, "const:"}, {"-O", {"-T", "1"}},
    {"-l", {"-n", "2"}}, {"--weight-purity", {"-E", "0"}}, {"--weight-wallance", {"-E", "0"}},
    {"--extreme", {"--regular-stat"}},
};

// Restarts allocate tables of one entry per restart: a count too large for
// this machine's memory ends with the allocation message, a smaller one would
// only take very long. Such counts are left out where memory is plentiful.
bool long_run_on_this_machine(const OptionCase &o, const std::string &value) {
  if (o.option != "-n" || value.size() < 10 || value[0] == '-') return false;
  return static_cast<long double>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE) > 40e9L;
}

// The text after the last line end: the failure message of a failed run.
std::string last_line(std::string text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text.substr(text.rfind('\n') + 1);
}

TEST(RobustExtremes, EveryNumericOptionEndsCleanly) {
  TempDir dir;  // two discrete and two continuous columns
  dir.write("t_freq.csv", "a,x,1.0,2.0\nb,y,2.5,0.5\na,y,3.0,1.5\nb,x,0.5,2.5\na,x,1.5,1.0\nb,y,2.0,3.0\n");
  const std::string values[] = {"0",      "-1",      "2147483647", "2147483648", "nan", "inf", "-inf",
                                "1e4930", "1e-4940", "-1e4930",    std::string(10000, '7')};
  int runs = 0;
  for (const OptionCase &o : kOptions)
    for (const std::string &value : values) {
      if (long_run_on_this_machine(o, value)) continue;
      std::vector<std::string> args = with({"-f", "t", "-x", "4", "-u", "2-3", "-k", "2", "--seed", "5"}, o.extra);
      args.push_back(o.option);
      args.push_back(o.prefix + value + o.suffix);
      std::string what = o.option + " " + o.prefix + value.substr(0, 20) + o.suffix;
      RunResult r = run_program(dir, VESK_BIN, args, 30);
      runs++;
      ASSERT_TRUE(r.status == 0 || r.status == 1) << what << ": status " << r.status << "\n" << r.err.substr(0, 3000);
      EXPECT_FALSE(has_sanitizer_report(r.err)) << what << "\n" << r.err.substr(0, 3000);
      if (r.status == 0) continue;
      // One message: the failure is written once (die writes it to the log
      // too, which is not standard error).
      std::string tail = last_line(r.err);
      EXPECT_FALSE(r.err.empty()) << what;
      EXPECT_TRUE(tail.size() <= 20 || r.err.find(tail) == r.err.rfind(tail)) << what << "\n" << r.err;
    }
  EXPECT_GT(runs, 300);
}

// Reproducers, each on a file of a few lines.
const char kGauss2[] = "1.0,2.0\n1.5,2.5\n3.0,1.0\n";
const char kDiscrete2[] = "a,b\nc,d\na,e\n";

struct Reproducer {
  const char *name;
  std::string file_text;  // of the case file that "-f" names
  std::vector<std::string> args;
  std::string message;  // the whole standard error ends with it
  std::vector<std::string> param_size = {};  // rows of the log's PARAMSIZE section
};

// Each within 200 MB at its peak (sanitizer shadow included). Parameter
// counts of a K beyond the int range are printed whole: K - 1 for the classes,
// the sum of (V - 1) K over discrete attributes, (d(d - 1)/2 + d) K per group.
TEST(RobustReproducers, EndWithOneMessage) {
  const std::string iris = read_file(std::string(VESK_DATA_DIR) + "/iris_freq.csv");
  const std::string pool_message = "Ran out of memory for vectors (allocated size: 8388608 bytes)\n";
  const Reproducer cases[] = {
      // The annealing step count, -ln(0.1) / ln(1.000000001) + 1, exceeds an int.
      {"rate close to 1", kGauss2,
       {"-f", "d", "-x", "2", "-u", "0-1", "-k", "2", "-b", "-B", "0.1:1.000000001", "--seed", "1"},
       "Illegal value for the increasing rate of inverse temperature -- 1.000000\n"},
      // A K whose tables exceed any memory: one allocation message, at once.
      // V = 2 and 3: 3 * 2147483647 = 6442450941; total 2147483646 + 6442450941.
      {"huge K, discrete", kDiscrete2, {"-f", "d", "-x", "2", "-k", "2147483647"},
       "Couldn't allocate memory (allocate.cpp, line 15)\n", {"2147483647,2147483646,6442450941,0,8589934587"}},
      // In a range the second K (214748302 once the fields are cut at nine
      // characters) ends as the same K given alone does.
      {"huge K in a range", iris,
       {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "2:2147483647:2147483000", "--seed", "1"}, pool_message},
      {"huge K alone", iris, {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "214748302", "--seed", "1"}, pool_message},
      // Species has 3 values, the 4-dimensional group 10 covariance entries.
      {"huge K in a range with priors", iris,
       {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "2:999999999:999999997", "-A", "--seed", "1"}, pool_message,
       {"2,1,4,20,25", "999999999,999999998,1999999998,9999999990,12999999986"}},
      // A wrong --n-attr is found on the first line, before per-attribute buffers.
      {"many attributes, few fields", "a,b,c,d,e\n", {"-f", "five", "-x", "100000", "-k", "2"},
       "[ID:374] Illegal line 1 in five_freq.csv: Too few fields (columns)\na,b,c,d,e\n"},
      // The missing-value counts would pass the int range before the total is checked.
      {"missing counts overflow", "NA,1,2147483647\nNA,2,1\n", {"-f", "m", "-x", "2", "-u", "0-1", "-k", "2"},
       "Too large total of object counts in m_freq.csv\n"},
      // A last comment line without a line end is counted; with Gaussian
      // attributes every counted line must give a case.
      {"last comment line", std::string(kGauss2) + "#end", {"-f", "c", "-x", "2", "-u", "0-1", "-k", "2"},
       "Internal error: inconsistency in number of entries"},
  };
  for (const Reproducer &c : cases) {
    TempDir dir;
    dir.write(c.args[1] + "_freq.csv", c.file_text);
    ProcessEnd end;
    RunResult r = run_program(dir, VESK_BIN, c.args, 60, &end);
    EXPECT_EQ(r.status, 1) << c.name;
    EXPECT_EQ(r.err.substr(r.err.size() - std::min(r.err.size(), c.message.size())), c.message) << c.name;
    EXPECT_FALSE(has_sanitizer_report(r.err)) << c.name;
    EXPECT_LT(end.max_rss_kb / 1024, 200) << c.name;
    if (!c.param_size.empty()) {
      EXPECT_EQ(section_rows(dir.read(c.args[1] + "_log.csv"), "PARAMSIZE"), c.param_size) << c.name;
    }
  }
}

// Successful runs of every kind end with status 0 and nothing from the
// sanitizers. A discrete file whose last line is a comment without a line
// end is read as usual (identical cases are merged: no record count to match).
TEST(RobustReproducers, SuccessfulRunsLeaveNothingBehind) {
  const std::vector<std::vector<std::string>> runs = {
      {"-f", "titanic", "-x", "4", "-k", "2", "--seed", "1"},
      {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "3", "--seed", "1", "-D"},
      {"-f", "airquality", "-x", "5", "-u", "0-3", "-k", "2", "--seed", "1", "-A"},
      {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "2:4:1", "-n", "2", "--seed", "1", "-b"},
      {"-f", "iris", "-x", "5", "-u", "0-3", "-R", "-D", "--show-attr-cluster"},
      {"-f", "titanic", "-x", "4", "-R", "--verbose"},
      {"-f", "d", "-x", "2", "-k", "2", "--seed", "3"},
  };
  TempDir dir;
  for (const char *name : {"titanic_freq.txt", "iris_freq.csv", "airquality_freq.csv"}) dir.copy_data(name);
  dir.write("d_freq.csv", std::string(kDiscrete2) + "#end");
  for (const std::vector<std::string> &args : runs) {
    RunResult r = run_program(dir, VESK_BIN, args, 60);
    EXPECT_EQ(r.status, 0) << args[1] << " " << args.back() << "\n" << r.err;
    EXPECT_FALSE(has_sanitizer_report(r.err)) << r.err;
  }
  EXPECT_EQ(section_rows(dir.read("d_log.csv"), "DATASIZE"), (std::vector<std::string>{"3,3,3"}));
}

}  // namespace
