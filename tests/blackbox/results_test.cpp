// A model is fitted, then read back from its parameter file with -R: the
// membership and cluster files of the two runs agree to the printed
// precision, on continuous-only, discrete-only and mixed data with missing
// values, and the read-parameter run times only the phases it ran.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

// Fields agree when the texts are equal or both are numbers within a
// relative 1e-8 (the files print 12 significant digits).
bool same_field(const std::string &a, const std::string &b) {
  if (a == b) return true;
  char *end_a = nullptr, *end_b = nullptr;
  long double x = strtold(a.c_str(), &end_a), y = strtold(b.c_str(), &end_b);
  if (a.empty() || b.empty() || *end_a != '\0' || *end_b != '\0') return false;
  return fabsl(x - y) <= 1e-8L * fmaxl(fabsl(x), fabsl(y));
}

// Compares two result files line by line: header lines exactly, data rows
// field by field.
void expect_same_results(const std::string &want, const std::string &got, char delim) {
  std::vector<std::string> a = split_lines(want), b = split_lines(got);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); i++) {
    if (a[i].rfind("#", 0) == 0) {
      ASSERT_EQ(a[i], b[i]);
      continue;
    }
    std::vector<std::string> fa = split_fields(a[i], delim), fb = split_fields(b[i], delim);
    ASSERT_EQ(fa.size(), fb.size()) << a[i] << " | " << b[i];
    for (size_t j = 0; j < fa.size(); j++) ASSERT_TRUE(same_field(fa[j], fb[j])) << a[i] << " | " << b[i];
  }
}

struct RoundTrip {
  const char *name;
  const char *data;  // bundled data file
  const char *base;
  char delim;
  std::vector<std::string> model;  // attribute options
  std::vector<std::string> fit;    // fitting options
};

std::vector<std::string> concat(std::vector<std::string> a, const std::vector<std::string> &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

const std::vector<std::string> kShow = {"-D", "--show-attr-memp", "--show-attr-cluster"};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const RoundTrip &c, std::ostream *os) { *os << c.name; }

class ResultsRoundTrip : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(ResultsRoundTrip, ReadBackGivesTheSameMembershipsAndClusters) {
  const RoundTrip &t = GetParam();
  TempDir dir;
  dir.copy_data(t.data);
  std::string ext = t.delim == ',' ? ".csv" : ".txt";
  auto name = [&](const char *ending) { return std::string(t.base) + ending + ext; };
  std::vector<std::string> common = concat(concat({"-f", t.base}, t.model), kShow);
  RunResult fit = run_vesk(dir, concat(common, t.fit));
  ASSERT_EQ(fit.status, 0) << fit.err;
  std::string param = dir.read(name("_param")), memp = dir.read(name("_memp"));
  std::string cluster = dir.read(name("_cluster"));
  ASSERT_NE(memp.find("#### ID:MEMBER-CASE\n"), std::string::npos);
  ASSERT_NE(memp.find("#### ID:MEMBER-"), memp.rfind("#### ID:MEMBER-"));  // attribute sections too

  RunResult read = run_vesk(dir, concat(common, {"-R"}));
  ASSERT_EQ(read.status, 0) << read.err;
  EXPECT_NE(read.err.find("Reading parameters from " + name("_param") + "...done\n"), std::string::npos);
  EXPECT_EQ(dir.read(name("_param")), param);  // read, not rewritten
  expect_same_results(memp, dir.read(name("_memp")), t.delim);
  expect_same_results(cluster, dir.read(name("_cluster")), t.delim);
  std::vector<std::string> cpu = section_rows(dir.read(name("_log")), "CPUTIME");
  ASSERT_EQ(cpu.size(), 3u);  // reading, memberships, clusters: no EM phase
  EXPECT_EQ(cpu[1].rfind(std::string("Computing membership probs") + t.delim, 0), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Data, ResultsRoundTrip,
    ::testing::Values(
        RoundTrip{"ContinuousOnly", "iris_freq.csv", "iris", ',', {"-x", "5", "-u", "0-3", "-y", "4"},
                  {"-k", "3", "--seed", "7", "-n", "2"}},
        RoundTrip{"DiscreteOnly", "titanic_freq.txt", "titanic", '\t', {"-x", "4"},
                  {"-k", "3", "--seed", "5", "-n", "2", "-c", "0.5", "-w", "0.5"}},
        RoundTrip{"MixedWithMissing", "airquality_freq.csv", "airquality", ',', {"-x", "5", "-u", "0-3"},
                  {"-k", "2", "--seed", "11"}},
        RoundTrip{"MixedLogScale", "airquality_freq.csv", "airquality", ',',
                  {"-x", "5", "-u", "0-3", "-J", "-c", "1", "-w", "1", "-T", "1"}, {"-k", "2", "--seed", "3"}}),
    [](const ::testing::TestParamInfo<RoundTrip> &info) { return std::string(info.param.name); });

}  // namespace
