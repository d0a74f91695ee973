// Every numeric option at its extremes (0, -1, INT_MAX, INT_MAX + 1, nan,
// inf, -inf, 1e4930, a tiny subnormal, a value of 10,000 characters): each
// run ends by exiting with status 0 or 1, never by a signal, never with a
// sanitizer report, and a failure says one thing on standard error.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "robust_run.h"

namespace {

// Two discrete and two continuous columns, six cases.
const char kCases[] =
    "a,x,1.0,2.0\nb,y,2.5,0.5\na,y,3.0,1.5\nb,x,0.5,2.5\na,x,1.5,1.0\nb,y,2.0,3.0\n";

const std::vector<std::string> kBase = {"-f", "t", "-x", "4", "-u", "2-3", "-k", "2", "--seed", "5"};

std::vector<std::string> extremes() {
  return {"0",    "-1",       "2147483647", "2147483648", "nan",   "inf",
          "-inf", "1e4930",   "1e-4940",    "-1e4930",    std::string(10000, '7')};
}

struct OptionCase {
  std::string option;
  std::vector<std::string> extra;  // what the option needs to take effect
  std::string prefix, suffix;      // the extreme is placed between these
};

const OptionCase kOptions[] = {
    {"-a", {}, "", ""},
    {"-B", {"-b"}, "", ":1.2"},
    {"-B", {"-b"}, "0.5:", ""},
    {"-B", {"-b"}, "", ""},
    {"-c", {}, "", ""},
    {"-e", {}, "", ""},
    {"-E", {}, "", ""},
    {"-G", {}, "", ""},
    {"-I", {}, "", ""},
    {"-k", {}, "", ""},
    {"-k", {}, "2:", ":999999999"},
    {"-k", {}, "2:9:", ""},
    {"-K", {"-T", "1"}, "", ""},
    {"-l", {"-n", "2"}, "", ""},
    {"-L", {"-T", "1"}, "", ""},
    {"-L", {"-T", "1"}, "const:", ""},
    {"-m", {}, "", ""},
    {"-n", {}, "", ""},
    {"-o", {}, "", ""},
    {"-O", {"-T", "1"}, "", ""},
    {"-r", {}, "", ""},
    {"-T", {}, "", ""},
    {"-u", {}, "", ""},
    {"-w", {}, "", ""},
    {"-w", {}, "0.5,", ""},
    {"-x", {}, "", ""},
    {"-y", {}, "", ""},
    {"-z", {}, "", ""},
    {"--min-c-param", {}, "", ""},
    {"--min-sm-imp", {}, "", ""},
    {"--min-new-c-param", {}, "", ""},
    {"--prec-out", {}, "", ""},
    {"--prec-msg", {}, "", ""},
    {"--weight-purity", {"-E", "0"}, "", ""},
    {"--weight-wallance", {"-E", "0"}, "", ""},
    {"--noise", {}, "", ""},
    {"--noise-gauss", {}, "", ""},
    {"--extreme", {"--regular-stat"}, "", ""},
};

// Restarts allocate tables of one entry per restart: a count too large for
// this machine's memory ends with the allocation message, a smaller one would
// only take very long. Such counts are left out where memory is plentiful.
bool long_run_on_this_machine(const OptionCase &o, const std::string &value) {
  if (o.option != "-n" || value.size() < 10 || value[0] == '-') return false;
  long double bytes = static_cast<long double>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
  return bytes > 40e9L;
}

TEST(RobustExtremes, EveryNumericOptionEndsCleanly) {
  TempDir dir;
  dir.write("t_freq.csv", kCases);
  int runs = 0;
  for (const OptionCase &o : kOptions) {
    for (const std::string &value : extremes()) {
      if (long_run_on_this_machine(o, value)) continue;
      std::vector<std::string> args = kBase;
      args.insert(args.end(), o.extra.begin(), o.extra.end());
      args.push_back(o.option);
      args.push_back(o.prefix + value + o.suffix);
      std::string what = o.option + " " + o.prefix + value.substr(0, 20) + o.suffix;
      LimitedRun r = run_limited(dir, args, 30);
      runs++;
      ASSERT_TRUE(r.exited) << what << ": signal " << r.status << "\n" << r.err.substr(0, 3000);
      EXPECT_TRUE(r.status == 0 || r.status == 1) << what << ": status " << r.status;
      EXPECT_FALSE(has_sanitizer_report(r.err)) << what << "\n" << r.err.substr(0, 3000);
      if (r.status == 1) {
        EXPECT_FALSE(r.err.empty()) << what;
        // One message: the failure is written once (die writes it to the log
        // too, which is not standard error).
        std::string tail = last_line(r.err);
        if (tail.size() > 20) {
          EXPECT_EQ(r.err.find(tail), r.err.rfind(tail)) << what << "\n" << r.err;
        }
      }
    }
  }
  EXPECT_GT(runs, 300);
}

}  // namespace
