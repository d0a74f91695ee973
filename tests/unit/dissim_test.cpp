// Dissimilarity sections against Kullback-Leibler divergences worked out in
// closed form, the three failure messages with the rows written before the
// failing pair, the column layouts, and a long section (several output
// blocks) against a row-by-row printf rendering of the naive formula.
#include "analysis/dissim.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "analysis_fixture.h"
#include "driver/vesk.h"
#include "model/cluster.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

Rows data_rows(const std::string &text, char delim) {
  Rows rows;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    std::string line = text.substr(pos, end - pos);
    pos = end + 1;
    if (line.rfind("####", 0) == 0) continue;
    std::vector<std::string> fields(1);
    for (char ch : line) {
      if (ch == delim)
        fields.emplace_back();
      else
        fields.back() += ch;
    }
    rows.push_back(fields);
  }
  return rows;
}

void expect_value(const std::string &field, long double want) {
  long double got = strtold(field.c_str(), nullptr);
  EXPECT_NEAR(static_cast<double>(got), static_cast<double>(want), 1e-11 * (1 + fabsl(want))) << field;
}

const Roles kRoles{3, "1", -1, 2};  // discrete 0, Gaussian 1, answer class 2
const Roles kRolesWithId{4, "1", 3, 2};
const char kRows[] = "b,1.5,yes\na,2,no\nb,NA,yes\n";
const char kRowsWithId[] = "b,1.5,yes,c1\na,2,no,c2\nb,NA,yes,c3\n";

class DissimTest : public AnalysisTest {
 protected:
  std::string write_with(void (*writer)(FILE *)) {
    std::string file = path("out.txt");
    FILE *fp = fopen(file.c_str(), "wb");
    writer(fp);
    fclose(fp);
    return read_text(file.c_str());
  }
};

TEST_F(DissimTest, CaseSectionHoldsBothOrdersOfEveryPair) {
  load(kRoles, kRows, {0.5L, 0.5L});
  set_case_members({{0.5L, 0.5L}, {0.25L, 0.75L}, {0.5L, 0.5L}});
  std::string text = write_with(print_dissim_case);
  EXPECT_EQ(text.substr(0, text.find("####\n") + 5),
            "#### ID:DISSIM-CASE\n#### Case ID of x, Answer class of x, Case ID of x', Answer class of x', "
            "KL-divergence D(x||x')\n####\n");
  Rows rows = data_rows(text, ',');
  ASSERT_EQ(rows.size(), 9u);
  // D(m0||m1) = ln(4/3) / 2; D(m1||m0) = ln(1/2) / 4 + 3 ln(3/2) / 4
  const long double d01 = logl(4.0L / 3) / 2, d10 = logl(0.5L) / 4 + 3 * logl(1.5L) / 4;
  const long double want[3][3] = {{0, d01, 0}, {d10, 0, d10}, {0, d01, 0}};
  const char *ans[3] = {"yes", "no", "yes"};
  for (int x = 0; x < 3; x++)
    for (int y = 0; y < 3; y++) {
      const std::vector<std::string> &r = rows[x * 3 + y];
      ASSERT_EQ(r.size(), 5u);
      EXPECT_EQ(r[0], std::to_string(x));
      EXPECT_EQ(r[1], ans[x]);
      EXPECT_EQ(r[2], std::to_string(y));
      EXPECT_EQ(r[3], ans[y]);
      expect_value(r[4], want[x][y]);
      if (want[x][y] == 0) {
        EXPECT_EQ(r[4], "0");  // identical distributions give exactly 0
      }
    }
}

// A class with p_k = 0 contributes nothing; p_k > 0 against q_k = 0 stops the
// run at that ordered pair, after the rows before it.
TEST_F(DissimTest, CaseSectionStopsAtTheFirstUndefinedPair) {
  load(kRoles, kRows, {0.5L, 0.5L});
  settings.mode_eval = 0;
  set_case_members({{1, 0}, {0.5L, 0.5L}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  std::string file = path("fail.csv");
  EXPECT_EXIT(
      {
        FILE *fp = fopen(file.c_str(), "wb");
        print_dissim_case(fp);
      },
      ::testing::ExitedWithCode(1),
      "^Couldn't compute KL div\\. since P\\(Class=1\\|case-ID=0\\) = 0 \\(smoothing may be required\\)\n$");
  std::string text = read_text(file.c_str());
  char buf[64];
  snprintf(buf, sizeof buf, "%.12Lg", logl(2.0L));
  EXPECT_EQ(text, std::string("#### ID:DISSIM-CASE\n#### Case ID of x, Case ID of x', KL-divergence D(x||x')\n"
                              "####\n0,0,0\n0,1,") +
                      buf + "\n0,2," + buf + "\n");
}

TEST_F(DissimTest, ValueSectionsFollowThePrintOrder) {
  load(kRoles, kRows, {0.5L, 0.5L});
  set_value_members(0, {{0.2L, 0.8L}, {0.6L, 0.4L}});  // ids: b, a
  std::string text = write_with([](FILE *fp) { print_dissim_cat(fp, 0); });
  EXPECT_EQ(text.substr(0, text.find("####\n") + 5),
            "#### ID:DISSIM-CAT0\n#### Attr. ID, Attr. value x0, Attr. value x0', KL-divergence D(x0||x0')\n####\n");
  Rows rows = data_rows(text, ',');
  ASSERT_EQ(rows.size(), 4u);
  const long double ab = 0.6L * logl(3.0L) - 0.4L * logl(2.0L), ba = 0.2L * logl(1 / 3.0L) + 0.8L * logl(2.0L);
  const char *order[4][2] = {{"a", "a"}, {"a", "b"}, {"b", "a"}, {"b", "b"}};
  const long double want[4] = {0, ab, ba, 0};
  for (int i = 0; i < 4; i++) {
    EXPECT_EQ(rows[i][0], "0");
    EXPECT_EQ(rows[i][1], order[i][0]);
    EXPECT_EQ(rows[i][2], order[i][1]);
    expect_value(rows[i][3], want[i]);
  }
  set_value_members(0, {{0, 1}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  EXPECT_EXIT(write_with([](FILE *fp) { print_dissim_cat(fp, 0); }), ::testing::ExitedWithCode(1),
              "^Couldn't compute KL div\\. since P\\(Class=0\\|b\\) = 0 \\(smoothing may be required\\)\n$");
}

TEST_F(DissimTest, GaussianSectionCarriesIdsAndMemberValues) {
  load(kRolesWithId, kRowsWithId, {0.5L, 0.5L});
  set_group_members(0, {{0.5L, 0.5L}, {0.9L, 0.1L}, {0.5L, 0.5L}});
  settings.format_out = FORMAT_TXT;
  std::string text = write_with([](FILE *fp) { print_dissim_gauss(fp, 0); });
  EXPECT_EQ(text.substr(0, text.find("####\n") + 5),
            "#### ID:DISSIM-GAUSS0\n#### Gauss ID, Case ID of Gauss0, Attr. x1, Case ID of Gauss0', Attr. x1', "
            "KL-divergence D(Gauss0||Gauss0')\n####\n");
  Rows rows = data_rows(text, '\t');
  ASSERT_EQ(rows.size(), 9u);
  EXPECT_EQ(rows[1][0], "0");
  EXPECT_EQ(rows[1][1], "c1");
  EXPECT_EQ(rows[1][2], "1.5");
  EXPECT_EQ(rows[1][3], "c2");
  EXPECT_EQ(rows[1][4], "2");
  expect_value(rows[1][5], 0.5L * logl(0.5L / 0.9L) + 0.5L * logl(0.5L / 0.1L));
  EXPECT_EQ(rows[5][2], "2");
  EXPECT_EQ(rows[5][4], "?");  // c3 has no value in the group

  settings.mode_hide_attr = 1;
  text = write_with([](FILE *fp) { print_dissim_gauss(fp, 0); });
  EXPECT_NE(text.find("#### Gauss ID, Case ID of Gauss0, Case ID of Gauss0', KL-divergence D(Gauss0||Gauss0')\n"
                      "####\n0\tc1\tc1\t0\n"),
            std::string::npos)
      << text;

  set_group_members(0, {{0.5L, 0.5L}, {1, 0}, {0.5L, 0.5L}});
  settings.fp_msg = nullptr;
  EXPECT_EXIT(
      write_with([](FILE *fp) { print_dissim_gauss(fp, 0); }), ::testing::ExitedWithCode(1),
      "^Couldn't compute KL div\\. since P\\(Class=1\\|Gauss0\\) = 0 for c2 \\(smoothing should be required\\)\n$");
}

// 400 cases give 160,000 rows, several output blocks: the file must be the
// naive computation printed row by row with printf, byte for byte.
TEST_F(DissimTest, LongSectionEqualsRowByRowPrintf) {
  std::string rows;
  for (int i = 0; i < 400; i++) rows += "a," + std::to_string(i) + "," + (i % 3 ? "x" : "y") + "\n";
  load(kRoles, rows.c_str(), {0.2L, 0.3L, 0.5L});
  std::mt19937_64 gen(99);
  std::vector<std::vector<long double>> m(400, std::vector<long double>(3));
  for (auto &p : m) {
    long double s = 0;
    for (auto &v : p) s += v = static_cast<long double>(gen() % 1000000 + 1) / (gen() % 1000 + 1);
    for (auto &v : p) v /= s;
  }
  m[7] = m[3];  // identical distributions
  set_case_members(m);
  std::string got = write_with(print_dissim_case);
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

TEST_F(DissimTest, MainWritesEverySectionOrFailsOnItsFile) {
  load(kRoles, kRows, {0.5L, 0.5L});
  set_case_members({{0.5L, 0.5L}, {0.25L, 0.75L}, {0.5L, 0.5L}});
  set_value_members(0, {{0.2L, 0.8L}, {0.6L, 0.4L}});
  set_group_members(0, {{0.5L, 0.5L}, {0.9L, 0.1L}, {0.5L, 0.5L}});
  snprintf(settings.fname_dissim, sizeof settings.fname_dissim, "%s", path("t_dissim.csv").c_str());
  dissim_main();
  std::string text = read_text(settings.fname_dissim);
  size_t c = text.find("#### ID:DISSIM-CASE\n"), v = text.find("#### ID:DISSIM-CAT0\n"),
         g = text.find("#### ID:DISSIM-GAUSS0\n");
  EXPECT_EQ(c, 0u);
  EXPECT_LT(c, v);
  EXPECT_LT(v, g);
  EXPECT_EQ(data_rows(text, ',').size(), 9u + 4u + 9u);
  EXPECT_GT(settings.stime_lap_dissim, 0);
  EXPECT_GE(settings.etime_lap_dissim, settings.stime_lap_dissim);

  snprintf(settings.fname_dissim, sizeof settings.fname_dissim, "%s", path("none/t_dissim.csv").c_str());
  settings.fp_msg = nullptr;
  EXPECT_EXIT(dissim_main(), ::testing::ExitedWithCode(1),
              "^Computing dissimilarities between attribute values\\.\\.\\.Couldn't open .*/none/t_dissim\\.csv\n$");
  // A full disk (here /dev/full) ends the run instead of leaving a short file.
  snprintf(settings.fname_dissim, sizeof settings.fname_dissim, "/dev/full");
  EXPECT_EXIT(dissim_main(), ::testing::ExitedWithCode(1),
              "^Computing dissimilarities between attribute values\\.\\.\\.Couldn't write /dev/full\n$");
}

}  // namespace
