// Commands that once crashed, overflowed or ran away with memory, each on a
// file of a few lines: every one ends with its one message and status 1, or
// completes, and a successful run leaves nothing for LeakSanitizer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "robust_run.h"

namespace {

const char kGauss2[] = "1.0,2.0\n1.5,2.5\n3.0,1.0\n";
const char kDiscrete2[] = "a,b\nc,d\na,e\n";

struct Reproducer {
  const char *name;
  std::string file_name, file_text;
  std::vector<std::string> args;
  std::string message;  // the whole standard error ends with it
  long max_rss_mb;      // peak memory allowed (sanitizer shadow included)
};

bool ends_with(const std::string &s, const std::string &tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

TEST(RobustReproducers, EndWithOneMessage) {
  const std::string iris = read_file(std::string(VESK_DATA_DIR) + "/iris_freq.csv");
  const Reproducer cases[] = {
      // The annealing step count, -ln(0.1) / ln(1.000000001) + 1, exceeds an int.
      {"rate close to 1", "d_freq.csv", kGauss2,
       {"-f", "d", "-x", "2", "-u", "0-1", "-k", "2", "-b", "-B", "0.1:1.000000001", "--seed", "1"},
       "Illegal value for the increasing rate of inverse temperature -- 1.000000\n", 200},
      // A K whose tables exceed any memory: one allocation message, at once.
      {"huge K, discrete", "d_freq.csv", kDiscrete2, {"-f", "d", "-x", "2", "-k", "2147483647"},
       "Couldn't allocate memory (allocate.cpp, line 15)\n", 200},
      // In a range the second K (214748302 once the fields are cut at nine
      // characters) ends as the same K given alone does.
      {"huge K in a range", "iris_freq.csv", iris,
       {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "2:2147483647:2147483000", "--seed", "1"},
       "Ran out of memory for vectors (allocated size: 8388608 bytes)\n", 200},
      {"huge K alone", "iris_freq.csv", iris,
       {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "214748302", "--seed", "1"},
       "Ran out of memory for vectors (allocated size: 8388608 bytes)\n", 200},
      {"huge K in a range with priors", "iris_freq.csv", iris,
       {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "2:999999999:999999997", "-A", "--seed", "1"},
       "Ran out of memory for vectors (allocated size: 8388608 bytes)\n", 200},
      // A wrong --n-attr is found on the first line, before per-attribute buffers.
      {"many attributes, few fields", "five_freq.csv", "a,b,c,d,e\n",
       {"-f", "five", "-x", "100000", "-k", "2"},
       "[ID:374] Illegal line 1 in five_freq.csv: Too few fields (columns)\na,b,c,d,e\n", 200},
      // The missing-value counts would pass the int range before the total is checked.
      {"missing counts overflow", "m_freq.csv", "NA,1,2147483647\nNA,2,1\n",
       {"-f", "m", "-x", "2", "-u", "0-1", "-k", "2"}, "Too large total of object counts in m_freq.csv\n",
       200},
      // A last comment line without a line end is counted; with Gaussian
      // attributes every counted line must give a case.
      {"last comment line", "c_freq.csv", std::string(kGauss2) + "#end",
       {"-f", "c", "-x", "2", "-u", "0-1", "-k", "2"},
       "Internal error: inconsistency in number of entries", 200},
  };
  for (const Reproducer &c : cases) {
    TempDir dir;
    dir.write(c.file_name, c.file_text);
    LimitedRun r = run_limited(dir, c.args);
    ASSERT_TRUE(r.exited) << c.name << ": signal " << r.status;
    EXPECT_EQ(r.status, 1) << c.name;
    EXPECT_TRUE(ends_with(r.err, c.message)) << c.name << "\n" << r.err.substr(0, 2000);
    EXPECT_FALSE(has_sanitizer_report(r.err)) << c.name;
    EXPECT_LT(r.max_rss_kb / 1024, c.max_rss_mb) << c.name;
  }
}

// Parameter counts of a K beyond the int range are printed whole: class
// counts K - 1, discrete sum of (V - 1) K, Gaussian (d(d - 1)/2 + d) K.
TEST(RobustReproducers, ParameterCountsDoNotWrap) {
  TempDir dir;
  dir.write("d_freq.csv", kDiscrete2);
  run_limited(dir, {"-f", "d", "-x", "2", "-k", "2147483647"});
  // V = 2 and 3: 3 * 2147483647 = 6442450941; total 2147483646 + 6442450941.
  EXPECT_EQ(section_rows(dir.read("d_log.csv"), "PARAMSIZE"),
            (std::vector<std::string>{"2147483647,2147483646,6442450941,0,8589934587"}));

  dir.copy_data("iris_freq.csv");
  run_limited(dir, {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "2:999999999:999999997", "-A"});
  // Species has 3 values, the 4-dimensional group 10 covariance entries.
  EXPECT_EQ(section_rows(dir.read("iris_log.csv"), "PARAMSIZE"),
            (std::vector<std::string>{"2,1,4,20,25",
                                      "999999999,999999998,1999999998,9999999990,12999999986"}));
}

// A discrete file whose last line is a comment without a line end is read as
// usual (identical cases are merged, so no record count is expected).
TEST(RobustReproducers, LastCommentLineWithoutGaussians) {
  TempDir dir;
  dir.write("d_freq.csv", std::string(kDiscrete2) + "#end");
  LimitedRun r = run_limited(dir, {"-f", "d", "-x", "2", "-k", "2", "--seed", "3"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(section_rows(dir.read("d_log.csv"), "DATASIZE"), (std::vector<std::string>{"3,3,3"}));
}

// Successful runs of every kind end with status 0 and nothing from the
// sanitizers (in the Sanitize build LeakSanitizer checks at exit).
TEST(RobustReproducers, SuccessfulRunsLeaveNothingBehind) {
  const std::vector<std::vector<std::string>> runs = {
      {"-f", "titanic", "-x", "4", "-k", "2", "--seed", "1"},
      {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "3", "--seed", "1", "-D"},
      {"-f", "airquality", "-x", "5", "-u", "0-3", "-k", "2", "--seed", "1", "-A"},
      {"-f", "iris", "-x", "5", "-u", "0-3", "-k", "2:4:1", "-n", "2", "--seed", "1", "-b"},
      {"-f", "iris", "-x", "5", "-u", "0-3", "-R", "-D", "--show-attr-cluster"},
      {"-f", "titanic", "-x", "4", "-R", "--verbose"},
  };
  TempDir dir;
  for (const char *name : {"titanic_freq.txt", "iris_freq.csv", "airquality_freq.csv"}) dir.copy_data(name);
  for (const std::vector<std::string> &args : runs) {
    LimitedRun r = run_limited(dir, args);
    EXPECT_TRUE(r.exited && r.status == 0) << args[1] << " " << args[args.size() - 1] << "\n" << r.err;
    EXPECT_FALSE(has_sanitizer_report(r.err)) << r.err;
  }
}

}  // namespace
