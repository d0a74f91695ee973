// A model is fitted, then read back from its parameter file with -R: the
// membership and cluster files of the two runs agree to the printed
// precision, on continuous-only, discrete-only and mixed data with missing
// values. Also the read-parameter run's log and its failures.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

std::vector<std::string> split_fields(const std::string &line, char delim) {
  std::vector<std::string> out(1);
  for (char c : line) {
    if (c == delim)
      out.emplace_back();
    else
      out.back() += c;
  }
  return out;
}

bool parse_number(const std::string &s, long double *x) {
  if (s.empty()) return false;
  char *end = nullptr;
  *x = strtold(s.c_str(), &end);
  return *end == '\0';
}

// Fields agree when the texts are equal or both are numbers within a
// relative 1e-8 (the files print 12 significant digits).
bool same_field(const std::string &a, const std::string &b) {
  if (a == b) return true;
  long double x, y;
  if (!parse_number(a, &x) || !parse_number(b, &y)) return false;
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

// Two groups of two-dimensional points with a discrete column on each
// side; "?" and NA mark missing values in both kinds of column.
std::string mixed_cases() {
  std::string text;
  const char *colour[] = {"p", "q", "r"};
  for (int i = 0; i < 60; i++) {
    bool second = i % 2 == 1;
    double x = (second ? 6.0 : 0.0) + 0.37 * ((i * 7) % 11) - 1.8;
    double y = (second ? -3.0 : 2.0) + 0.29 * ((i * 5) % 13) - 1.7;
    std::string d0 = i % 7 == 3 ? "?" : colour[(i / 2 + (second ? 1 : 0)) % 3];
    std::string d3 = i % 9 == 4 ? "?" : (second ? "u" : (i % 4 == 0 ? "v" : "u"));
    char row[128];
    std::string xs = i % 11 == 5 ? "NA" : std::to_string(x);
    std::string ys = i % 13 == 6 ? "NA" : std::to_string(y);
    snprintf(row, sizeof row, "%s,%s,%s,%s\n", d0.c_str(), xs.c_str(), ys.c_str(), d3.c_str());
    text += row;
  }
  return text;
}

struct RoundTrip {
  const char *name;
  const char *data;   // bundled data file, or empty for the generated one
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

class ResultsRoundTrip : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(ResultsRoundTrip, ReadBackGivesTheSameMembershipsAndClusters) {
  const RoundTrip &t = GetParam();
  TempDir dir;
  if (t.data[0] != '\0')
    dir.copy_data(t.data);
  else
    dir.write(std::string(t.base) + "_freq.csv", mixed_cases());
  std::string ext = t.delim == ',' ? ".csv" : ".txt";
  std::vector<std::string> common = concat(concat({"-f", t.base}, t.model), kShow);
  RunResult fit = run_vesk(dir, concat(common, t.fit));
  ASSERT_EQ(fit.status, 0) << fit.err;
  std::string param = dir.read(std::string(t.base) + "_param" + ext);
  std::string memp = dir.read(std::string(t.base) + "_memp" + ext);
  std::string cluster = dir.read(std::string(t.base) + "_cluster" + ext);
  ASSERT_NE(memp.find("#### ID:MEMBER-CASE\n"), std::string::npos);
  ASSERT_NE(memp.find("#### ID:MEMBER-"), memp.rfind("#### ID:MEMBER-"));  // attribute sections too

  RunResult read = run_vesk(dir, concat(common, {"-R"}));
  ASSERT_EQ(read.status, 0) << read.err;
  EXPECT_NE(read.err.find("Reading parameters from " + std::string(t.base) + "_param" + ext + "...done\n"),
            std::string::npos)
      << read.err;
  EXPECT_EQ(dir.read(std::string(t.base) + "_param" + ext), param);  // read, not rewritten
  expect_same_results(memp, dir.read(std::string(t.base) + "_memp" + ext), t.delim);
  expect_same_results(cluster, dir.read(std::string(t.base) + "_cluster" + ext), t.delim);

  std::string log = dir.read(std::string(t.base) + "_log" + ext);
  std::vector<std::string> cpu = section_rows(log, "CPUTIME");
  ASSERT_EQ(cpu.size(), 3u) << log;
  EXPECT_EQ(cpu[0].rfind(std::string("Reading cases") + t.delim, 0), 0u);
  EXPECT_EQ(cpu[1].rfind(std::string("Computing membership probs") + t.delim, 0), 0u);
  EXPECT_EQ(cpu[2].rfind(std::string("Computing clusters") + t.delim, 0), 0u);
  EXPECT_EQ(section_rows(log, "LAPTIME").size(), 3u);
  EXPECT_FALSE(section_rows(log, "CLUSTER-FREQ-CASE").empty());
}

INSTANTIATE_TEST_SUITE_P(
    Data, ResultsRoundTrip,
    ::testing::Values(
        RoundTrip{"ContinuousOnly", "iris_freq.csv", "iris", ',', {"-x", "5", "-u", "0-3", "-y", "4"},
                  {"-k", "3", "--seed", "7", "-n", "2"}},
        RoundTrip{"DiscreteOnly", "titanic_freq.txt", "titanic", '\t', {"-x", "4"},
                  {"-k", "3", "--seed", "5", "-n", "2", "-c", "0.5", "-w", "0.5"}},
        RoundTrip{"MixedWithMissing", "", "mixed", ',', {"-x", "4", "-u", "1-2"},
                  {"-k", "2", "--seed", "3", "-c", "1", "-w", "1"}},
        RoundTrip{"MixedLogScale", "", "mixed", ',', {"-x", "4", "-u", "1-2", "-J", "-c", "1", "-w", "1", "-T", "1"},
                  {"-k", "2", "--seed", "3"}},
        RoundTrip{"AirQuality", "airquality_freq.csv", "airquality", ',', {"-x", "5", "-u", "0-3"},
                  {"-k", "2", "--seed", "11"}}),
    [](const ::testing::TestParamInfo<RoundTrip> &info) { return std::string(info.param.name); });

TEST(ReadParamRun, SuffixedFileAndCleanFailures) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  RunResult r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-R"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("titanic_param.txt"), std::string::npos) << r.err;
  EXPECT_FALSE(dir.exists("titanic_cluster.txt"));
  // The suffix names the parameter file read as well as the files written.
  ASSERT_EQ(run_vesk(dir, {"-f", "titanic", "-x", "4", "-k", "2", "--seed", "1", "-s", "a"}).status, 0);
  r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-R", "-s", "a"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("Reading parameters from titanic_a_param.txt...done\n"), std::string::npos);
  EXPECT_FALSE(dir.read("titanic_a_cluster.txt").empty());
  // A parameter file that lacks a value of the case file.
  dir.write("titanic_param.txt",
            "#### ID:PARAM-CLASS\n####\n0\t1\n####\n0\t0\t1st\t1\n####\n1\t0\tMale\t1\n"
            "####\n2\t0\tChild\t1\n####\n3\t0\tNo\t1\n");
  r = run_vesk(dir, {"-f", "titanic", "-x", "4", "-R"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Unknown attribute value -- "), std::string::npos) << r.err;
}

}  // namespace
