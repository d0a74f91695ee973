// Split-and-merge runs of the built binary: the progress messages read back
// as a record of every candidate and checked against the decision rules and
// the log sections; the filters; class counts below three.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

// One tried candidate as the messages report it.
struct Tried {
  int op, pos, tried, i, j, k, part, full;
  bool accepted;
  long double current, last;
  std::string reason;
};

// The candidate blocks of the message stream, each checked for the exact
// layout of its lines (a block that does not match is missed, which the
// callers notice by counting the blocks).
std::vector<Tried> read_tried(const std::string &err) {
  static const std::string singular =
      " \\(Stopped: \\d+ iters -- singular covars \\(det=[^)]*\\) at class#=\\d+, gauss#=\\d+\\)\tL=-?[0-9.]+\n";
  // The partial EM's end: converged, stopped, decreased or singular.
  static const std::string part_end = "(?:\\((?:C|S):(\\d+)\\)|\n\\(part\\) \\(iter:\\d+\\) LL or LPost decreased! "
                                      "\\(curr: -?[0-9.]+ / last: -?[0-9.]+\\)\n|" + singular + ")";
  static const std::regex block(
      "  \\[Op=(\\d+)\\]\n    Candidate (\\d+) \\((\\d+) not skipped\\): Jmerge\\((\\d+),(\\d+)\\)=-?[0-9.]+ / "
      "Jsplit\\((\\d+)\\)=-?[0-9.]+\n    #iters " + part_end + "[0-9.]* \\((?:Converged|Stopped): (\\d+) iters"
      "(?: -- singular covars \\(det=[^)]*\\) at class#=\\d+, gauss#=\\d+)?\\)\tL=-?[0-9.]+\n"
      "    -- (Accepted|Rejected) \\[\\4,\\5\\]->\\[\\4\\] & \\[\\6\\]->\\[\\5,\\6\\] "  // [i,j]->[i] & [k]->[j,k]
      "\\(L current: (-?[0-9.]+) / last: (-?[0-9.]+)\\)\n(?:       <([^\n]*)>\n)?");
  std::vector<Tried> out;
  for (std::sregex_iterator it(err.begin(), err.end(), block), end; it != end; ++it) {
    const std::smatch &m = *it;
    out.push_back(Tried{std::stoi(m[1]), std::stoi(m[2]), std::stoi(m[3]), std::stoi(m[4]), std::stoi(m[5]),
                        std::stoi(m[6]), m[7].matched ? std::stoi(m[7]) : -1, std::stoi(m[8]), m[9] == "Accepted",
                        strtold(m[10].str().c_str(), nullptr), strtold(m[11].str().c_str(), nullptr), m[12]});
    EXPECT_EQ(out.back().accepted, !m[12].matched);
  }
  return out;
}

int count_of(const std::string &text, const std::string &what) {
  int n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
  return n;
}

struct RunCase {
  std::string name, file;
  std::vector<std::string> args;
  int k, num_sm;
  bool map, daem;
};

void PrintTo(const RunCase &c, std::ostream *os) { *os << c.name; }

class SmemRun : public ::testing::TestWithParam<RunCase> {};

// Decisions follow the rules and agree with the count sections; the final
// objective is never below the best restart's.
TEST_P(SmemRun, MessagesAgreeWithRulesAndSections) {
  const RunCase &tc = GetParam();
  TempDir dir;
  dir.copy_data(tc.file);
  RunResult r = run_vesk(dir, tc.args);
  ASSERT_EQ(r.status, 0) << r.err;
  char d = tc.file.back() == 'v' ? ',' : '\t';
  std::string ks = std::to_string(tc.k), log = dir.read(tc.file.substr(0, tc.file.find("_freq")) + "_log" +
                                                        tc.file.substr(tc.file.size() - 4));
  std::vector<Tried> tried = read_tried(r.err);
  ASSERT_FALSE(tried.empty()) << r.err;
  EXPECT_EQ(static_cast<int>(tried.size()), count_of(r.err, "    Candidate "));  // every block read
  std::vector<std::string> seed = section_rows(log, "SEED"), em_stat = section_rows(log, "SMEM-EM-STAT-K" + ks);
  std::vector<std::string> op_stat = section_rows(log, "SMEM-OP-STAT-K" + ks);
  ASSERT_EQ(em_stat.size(), static_cast<size_t>(tc.num_sm + 1));
  ASSERT_EQ(op_stat.size(), static_cast<size_t>(tc.num_sm));
  // Row 0 counts the last restart, whichever is kept.
  EXPECT_EQ(em_stat[0], ks + d + "0" + d + "N/A" + d + split_fields(seed.back(), d)[3]);
  long double best = -1e300L;
  for (const std::string &row : seed) best = std::max(best, strtold(split_fields(row, d)[4].c_str(), nullptr));
  long double kept = best;
  std::vector<int> rejected(tc.num_sm + 1);
  int ops_ended = 0;
  for (const Tried &t : tried) {
    EXPECT_NEAR(t.last, kept, 1e-6L);
    EXPECT_EQ(t.tried, rejected[t.op]);  // no filter skips candidates in these runs
    EXPECT_EQ(t.pos, t.tried);
    if (!t.accepted) rejected[t.op]++;
    long double gain = t.current - t.last;
    if (t.accepted) {
      EXPECT_GT(gain, 0.01L);  // ten times the default epsilon
      std::vector<std::string> f = split_fields(em_stat[t.op], d);
      EXPECT_TRUE(t.part < 0 || f[2] == std::to_string(t.part)) << f[2];
      EXPECT_EQ(f[3], std::to_string(t.full));
      kept = t.current;
      ops_ended++;
    } else if (t.reason == "No improvement") {
      EXPECT_LE(gain, 1e-6L);
    } else {
      ASSERT_EQ(t.reason.rfind("Too small improvement: ", 0), 0u) << t.reason;
      long double diff = strtold(t.reason.c_str() + 23, nullptr);
      EXPECT_TRUE(diff > 0 && diff <= 0.01L) << t.reason;
      EXPECT_NEAR(diff, gain, 1e-6L);
    }
  }
  EXPECT_GE(kept, best);
  for (int o = 1; o <= tc.num_sm; o++)
    EXPECT_EQ(op_stat[o - 1], ks + d + std::to_string(o) + d + std::to_string(rejected[o]) + d + "0");
  // Every operation ends once: accepted, or the walk ends and so does the loop.
  int walk_ends = count_of(r.err, "  <<All candidates are rejected>>\n");
  EXPECT_TRUE(walk_ends == 1 ? ops_ended < tc.num_sm : walk_ends == 0 && ops_ended == tc.num_sm) << walk_ends;
  // The trace: rows below each operation's total update count.
  std::vector<std::string> trace = section_rows(log, "LOGLIKE-SMEM-K" + ks);
  size_t rows = 0;
  for (const std::string &row : em_stat) rows += std::stoul(split_fields(row, d)[3]);
  EXPECT_EQ(trace.size(), rows);
  EXPECT_EQ(split_fields(trace.back(), d).size(), 4u + (tc.map ? 2 : 0) + (tc.daem ? 1 : 0));
  EXPECT_EQ(section_rows(log, "LOGLIKE-K" + ks).size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Variants, SmemRun,
    ::testing::Values(
        RunCase{"IrisMapCsv", "iris_freq.csv",
                {"-f", "iris", "-k", "4", "-x", "5", "-u", "0-3", "-n", "3", "-r", "7", "-A", "-o", "3"},
                4, 3, true, false},
        RunCase{"IrisMapLogScaleDaem", "iris_freq.csv",
                {"-f", "iris", "-k", "4", "-x", "5", "-u", "0-3", "-n", "2", "-r", "5", "-A", "-J", "-b", "-o", "2"},
                4, 2, true, true},
        RunCase{"TitanicMlTxt", "titanic_freq.txt",
                {"-f", "titanic", "-k", "4", "-x", "4", "-n", "2", "-r", "1", "-o", "3"}, 4, 3, false, false},
        RunCase{"TitanicMlDaem", "titanic_freq.txt",
                {"-f", "titanic", "-k", "3", "-x", "4", "-n", "2", "-r", "3", "-o", "2", "-b"}, 3, 2, false, true},
        RunCase{"AirqualityMissingMap", "airquality_freq.csv",
                {"-f", "airquality", "-k", "3", "-x", "5", "-u", "0-3", "-n", "2", "-r", "5", "-A", "-o", "2"},
                3, 2, true, false}),
    [](const ::testing::TestParamInfo<RunCase> &info) { return info.param.name; });

const std::vector<std::string> kTitanic4 = {"-f", "titanic", "-k", "4", "-x", "4", "-n", "2", "-r", "3", "-o", "3"};

// --n-cand: at most that many rejections per operation, then the limit
// message. --n-jsplit 1: after a rejection the other splits of the same merge
// pair are skipped, so no two candidates tried in a row share a pair and
// positions run ahead of the tried count. --min-c-param above every class
// probability: every candidate is ignored (and --verbose writes the criteria
// of the operation). --min-new-c-param above every new probability: an
// improving candidate is rejected with the class probabilities.
TEST(SmemFilters, CandidateAndClassLimits) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  RunResult r = run_vesk(dir, with(kTitanic4, {"-a", "1"}));
  ASSERT_EQ(r.status, 0) << r.err;
  for (const Tried &t : read_tried(r.err)) EXPECT_EQ(t.tried, 0);
  EXPECT_NE(r.err.find("  <<The number of rejected split-merge candidates reached the limit>>\n"), std::string::npos);
  for (const std::string &row : section_rows(dir.read("titanic_log.txt"), "SMEM-OP-STAT-K4"))
    EXPECT_LE(std::stoi(split_fields(row, '\t')[2]), 1) << row;
  r = run_vesk(dir, with(kTitanic4, {"-G", "1"}));
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<Tried> tried = read_tried(r.err);
  ASSERT_GT(tried.size(), 2u);
  for (size_t n = 1; n < tried.size(); n++) {
    EXPECT_GE(tried[n].pos, tried[n].tried);
    bool same_pair = tried[n].i == tried[n - 1].i && tried[n].j == tried[n - 1].j;
    EXPECT_FALSE(tried[n].op == tried[n - 1].op && same_pair) << n;
  }
  EXPECT_GT(tried.back().pos, tried.back().tried);
  r = run_vesk(dir, with(kTitanic4, {"--min-c-param", "0.99", "--verbose"}));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(std::regex_search(r.err, std::regex("iters\\)\tL=-?[0-9.]+\n  \\[Op=1\\]\n  <<All candidates are "
                                                  "rejected>>\n  BIC = ")))
      << r.err;
  std::string log = dir.read("titanic_log.txt");
  EXPECT_EQ(section_rows(log, "SMEM-OP-STAT-K4"),
            (std::vector<std::string>{"4\t1\t0\t12", "4\t2\t0\t0", "4\t3\t0\t0"}));
  EXPECT_EQ(section_rows(log, "JMERGE").size(), 6u);
  EXPECT_EQ(section_rows(log, "JSPLIT").size(), 4u);
  r = run_vesk(dir, with(kTitanic4, {"--min-new-c-param", "0.99"}));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err.find("Accepted"), std::string::npos);
  std::regex line("\n    -- Rejected \\[(\\d+),(\\d+)\\]->\\[\\1\\] & \\[(\\d+)\\]->\\[\\2,\\3\\] [^\n]*\n"
                  "       <Too small split/merged class probabilities: \\1 - 0\\.\\d{6}, \\2 - 0\\.\\d{6}, "
                  "\\3 - 0\\.\\d{6}>\n");
  EXPECT_TRUE(std::regex_search(r.err, line)) << r.err;
}

// An ML fit of iris whose best restart ends on a singular class 0. The
// partial EM tests every class, as the full EM does: candidate 0 stops before
// its first partial update, naming class 0. Candidate 1's partial update
// meets a covariance it cannot invert, which ends the run.
TEST(SmemSingular, PartialEmTestsEveryClassAndStopsOnAFailedInversion) {
  TempDir dir;
  dir.copy_data("iris_freq.csv");
  RunResult r = run_vesk(dir, split_fields("-f iris -s v2 -k 4 -x 5 -u 0-3 -E 4 -o 1 -r 5 --min-sm-imp 1e9", ' '));
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("    Candidate 0 (0 not skipped): Jmerge(1,2)=9.125546 / Jsplit(3)=-3.769288\n    #iters  "
                       "(Stopped: 0 iters -- singular covars (det=1.296878e-16) at class#=0, gauss#=0)\t"),
            std::string::npos)
      << r.err;
  const std::string msg = "Numerical error (update_param_part): Failed to invert covariances\n", end = "#iters " + msg;
  EXPECT_EQ(r.err.substr(r.err.size() - std::min(r.err.size(), end.size())), end);
  std::string log = dir.read("iris_v2_log.csv");  // the parameters, then the message
  EXPECT_NE(log.find("#### ID:PARAM-CLASS"), std::string::npos);
  EXPECT_EQ(log.substr(log.size() - std::min(log.size(), msg.size())), msg);
}

// Below three classes no split-merge triple exists: K = 2 of a range is fitted
// by restarts, K = 3 by the split-merge loop; both keep their seed tables.
TEST(SmemRange, TwoClassesUsePlainEm) {
  TempDir dir;
  dir.copy_data("iris_freq.csv");
  RunResult r = run_vesk(dir, {"-f", "iris", "-k", "2:3:1", "-x", "5", "-u", "0-3", "-n", "2", "-r", "7", "-A", "-o",
                               "2"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::string log = dir.read("iris_log.csv");
  EXPECT_EQ(section_rows(log, "SMEM-EM-STAT-K2").size(), 0u);
  EXPECT_GT(section_rows(log, "LOGLIKE-K2").size(), 0u);
  EXPECT_EQ(section_rows(log, "SMEM-EM-STAT-K3").size(), 3u);
  EXPECT_EQ(section_rows(log, "LOGLIKE-K3").size(), 0u);
  EXPECT_EQ(section_rows(log, "SEED-K3").size(), 2u);
  size_t k3 = r.err.find("|Classes| = 3:\n");
  ASSERT_NE(k3, std::string::npos);
  EXPECT_NE(r.err.rfind("  <<Resumed best parameter set #", k3), std::string::npos);
  EXPECT_EQ(r.err.substr(k3 + 15, 14), "  [0] #iters 0");
  EXPECT_EQ(section_lines(log, "SETTING-SMEM"),
            (std::vector<std::string>{"#### ID:SETTING-SMEM", "#### Control parameter, Value", "####",
                                      "Num of split-merge operations,2", "Max num of split-merge candidates,0",
                                      "Max num of split candidates,0", "Normalization of J-merge,Disabled",
                                      "Min class prob. before split-merge operation [0: No limit],0.001",
                                      "Min class prob. after split-merge operation [0: No limit],0.001",
                                      "Min improvement,0.01"}));
}

}  // namespace
