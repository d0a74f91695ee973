// Dissimilarity sections: divergences in closed form, the failure messages
// after the rows before the failing pair, the layouts, and a long section
// against the naive formula printed row by row.
#include "driver/run.h"
#include "analysis/dissim.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "analysis_fixture.h"
#include "driver/vesk.h"

namespace {

class DissimTest : public AnalysisTest {};

const Roles kRoles{3, "1", -1, 2};  // discrete 0, Gaussian 1, answer class 2
const char kRows[] = "b,1.5,yes\na,2,no\nb,NA,yes\n";
const char kDeath[] = "^Couldn't compute KL div\\. since P\\(Class=";

// `format` with the divergences printed as the file prints them.
std::string rows_with(const char *format, long double d1, long double d2) {
  char buf[1024];
  snprintf(buf, sizeof buf, format, d1, d2);
  return buf;
}

// A class with p_k = 0 contributes nothing; p_k > 0 against q_k = 0 stops
// the run at that ordered pair, after the rows before it.
TEST_F(DissimTest, CaseSectionStopsAtTheFirstUndefinedPair) {
  load(kRoles, kRows, {0.5L, 0.5L});
  settings.mode_eval = 0;
  set_case_members({{1, 0}, {0.5L, 0.5L}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  EXPECT_EXIT(written(print_dissim_case), ::testing::ExitedWithCode(1),
              std::string(kDeath) + "1\\|case-ID=0\\) = 0 \\(smoothing may be required\\)\n$");
  EXPECT_EQ(read_text(path("out.txt").c_str()),
            rows_with("#### ID:DISSIM-CASE\n#### Case ID of x, Case ID of x', KL-divergence D(x||x')\n####\n"
                      "0,0,0\n0,1,%.12Lg\n0,2,%.12Lg\n",
                      logl(2.0L), logl(2.0L)));
}

// Values in print order (a before b, while b has id 0); both orders of a pair.
TEST_F(DissimTest, ValueSectionFollowsThePrintOrder) {
  load(kRoles, kRows, {0.5L, 0.5L});
  set_value_members(0, {{0.2L, 0.8L}, {0.6L, 0.4L}});  // b, a
  auto cat0 = [](FILE *fp) { print_dissim_cat(fp, 0); };
  EXPECT_EQ(written(cat0),
            rows_with("#### ID:DISSIM-CAT0\n#### Attr. ID, Attr. value x0, Attr. value x0', KL-divergence "
                      "D(x0||x0')\n####\n0,a,a,0\n0,a,b,%.12Lg\n0,b,a,%.12Lg\n0,b,b,0\n",
                      0.6L * logl(3.0L) - 0.4L * logl(2.0L), 0.8L * logl(2.0L) - 0.2L * logl(3.0L)));
  set_value_members(0, {{0, 1}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  EXPECT_EXIT(written(cat0), ::testing::ExitedWithCode(1),
              std::string(kDeath) + "0\\|b\\) = 0 \\(smoothing may be required\\)\n$");
}

// Case IDs and member values ("?" where missing) on both sides; equal
// distributions give exactly 0.
TEST_F(DissimTest, GaussianSectionCarriesIdsAndMemberValues) {
  load(Roles{4, "1", 3, 2}, "b,1.5,yes,c1\na,2,no,c2\nb,NA,yes,c3\n", {0.5L, 0.5L});
  set_group_members(0, {{0.5L, 0.5L}, {0.9L, 0.1L}, {0.5L, 0.5L}});
  settings.format_out = FORMAT_TXT;
  auto gauss0 = [](FILE *fp) { print_dissim_gauss(fp, 0); };
  EXPECT_EQ(written(gauss0),
            rows_with("#### ID:DISSIM-GAUSS0\n#### Gauss ID, Case ID of Gauss0, Attr. x1, Case ID of Gauss0', "
                      "Attr. x1', KL-divergence D(Gauss0||Gauss0')\n####\n"
                      "0\tc1\t1.5\tc1\t1.5\t0\n0\tc1\t1.5\tc2\t2\t%1$.12Lg\n0\tc1\t1.5\tc3\t?\t0\n"
                      "0\tc2\t2\tc1\t1.5\t%2$.12Lg\n0\tc2\t2\tc2\t2\t0\n0\tc2\t2\tc3\t?\t%2$.12Lg\n"
                      "0\tc3\t?\tc1\t1.5\t0\n0\tc3\t?\tc2\t2\t%1$.12Lg\n0\tc3\t?\tc3\t?\t0\n",
                      0.5L * logl(0.5L / 0.9L) + 0.5L * logl(0.5L / 0.1L),
                      0.9L * logl(0.9L / 0.5L) + 0.1L * logl(0.1L / 0.5L)));
  settings.mode_hide_attr = 1;
  EXPECT_NE(written(gauss0).find("#### Gauss ID, Case ID of Gauss0, Case ID of Gauss0', "
                                 "KL-divergence D(Gauss0||Gauss0')\n####\n0\tc1\tc1\t0\n"),
            std::string::npos);
  set_group_members(0, {{0.5L, 0.5L}, {1, 0}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  EXPECT_EXIT(written(gauss0), ::testing::ExitedWithCode(1),
              std::string(kDeath) + "1\\|Gauss0\\) = 0 for c2 \\(smoothing should be required\\)\n$");
}

// 400 cases give 160,000 rows, several output blocks: the file must be the
// naive computation printed row by row with printf, byte for byte.
TEST_F(DissimTest, LongSectionEqualsRowByRowPrintf) {
  std::string rows;
  for (int i = 0; i < 400; i++) rows += "a," + std::to_string(i) + "," + (i % 3 ? "x" : "y") + "\n";
  load(kRoles, rows.c_str(), {0.2L, 0.3L, 0.5L});
  std::mt19937_64 gen(99);
  Dists m(400, std::vector<long double>(3));
  for (auto &p : m) {
    long double s = 0;
    for (auto &v : p) s += v = static_cast<long double>(gen() % 1000000 + 1) / (gen() % 1000 + 1);
    for (auto &v : p) v /= s;
  }
  m[7] = m[3];  // identical distributions
  set_case_members(m);
  std::string got = written(print_dissim_case);
  std::string want =
      "#### ID:DISSIM-CASE\n#### Case ID of x, Answer class of x, Case ID of x', Answer class of x', "
      "KL-divergence D(x||x')\n####\n";
  char buf[256];
  for (int x = 0; x < 400; x++)
    for (int y = 0; y < 400; y++) {
      long double d = 0;
      for (int k = 0; k < 3; k++) d += m[x][k] * (logl(m[x][k]) - logl(m[y][k]));
      snprintf(buf, sizeof buf, "%d,%s,%d,%s,%.12Lg\n", x, x % 3 ? "x" : "y", y, y % 3 ? "x" : "y", d);
      want += buf;
    }
  ASSERT_EQ(got.size(), want.size());
  EXPECT_TRUE(got == want);
  EXPECT_NE(got.find("\n3,y,7,x,0\n"), std::string::npos);
}

// Sections in the order case, values, Gaussian groups; a full disk (here
// /dev/full) ends the run instead of leaving a short file.
TEST_F(DissimTest, MainWritesEverySectionOrFailsOnAFullDisk) {
  load(kRoles, kRows, {0.5L, 0.5L});
  set_case_members(Dists(3, {0.5L, 0.5L}));
  set_value_members(0, Dists(2, {0.5L, 0.5L}));
  set_group_members(0, Dists(3, {0.5L, 0.5L}));
  snprintf(settings.fname_dissim, sizeof settings.fname_dissim, "%s", path("t_dissim.csv").c_str());
  dissim_main();
  std::string text = read_text(settings.fname_dissim);
  size_t c = text.find("#### ID:DISSIM-CASE\n"), v = text.find("#### ID:DISSIM-CAT0\n"),
         g = text.find("#### ID:DISSIM-GAUSS0\n");
  EXPECT_TRUE(c == 0 && c < v && v < g && g != std::string::npos) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3 * 3 + 9 + 4 + 9);  // headers and rows
  EXPECT_GT(run_times.stime_lap_dissim, 0);
  EXPECT_GE(run_times.etime_lap_dissim, run_times.stime_lap_dissim);
  settings.fp_msg = nullptr;
  snprintf(settings.fname_dissim, sizeof settings.fname_dissim, "/dev/full");
  EXPECT_EXIT(dissim_main(), ::testing::ExitedWithCode(1),
              "^Computing dissimilarities between attribute values\\.\\.\\.Couldn't write /dev/full\n$");
}

}  // namespace
