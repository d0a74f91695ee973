// Relevance ranking: the stable decreasing order against an independent
// sort, the case and value limits, the threshold and --hide-rank stops, the
// three sections as written, and the two internal-error texts.
#include "analysis/rank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "analysis_fixture.h"
#include "output/print.h"

namespace {

// Decreasing key, then increasing index; NaN keys after all numbers.
std::vector<int> reference_order(const std::vector<long double> &key) {
  std::vector<int> idx(key.size());
  for (size_t i = 0; i < idx.size(); i++) idx[i] = static_cast<int>(i);
  std::sort(idx.begin(), idx.end(), [&key](int a, int b) {
    bool na = std::isnan(key[a]), nb = std::isnan(key[b]);
    if (na != nb) return nb;
    if (!na && key[a] != key[b]) return key[a] > key[b];
    return a < b;
  });
  return idx;
}

TEST(RankIndices, StableDecreasingOrderWithTiesAndNaN) {
  std::mt19937 gen(5);
  for (int round = 0; round < 50; round++) {
    int n = 1 + static_cast<int>(gen() % 300);
    std::vector<long double> key(n);
    for (auto &k : key) {
      unsigned r = gen() % 12;
      k = r == 11 ? NAN : r / 10.0L;  // few distinct values: many ties
    }
    std::vector<int> got(n);
    rank_indices(got.data(), n, key.data());
    ASSERT_EQ(got, reference_order(key)) << "round " << round;
  }
}

// The text of one section of a result file.
std::string section(const std::string &text, const std::string &id) {
  size_t start = text.find("#### ID:" + id + "\n");
  if (start == std::string::npos) return "";
  size_t end = text.find("#### ID:", start + 1);
  return text.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

const char kComment[] = "#### -- in the decending order of the class probs. and the membership probs.\n";

class RankTest : public AnalysisTest {
 protected:
  // Five cases (value of attribute 0, value of the Gaussian 1, answer) and
  // two classes, class 1 the more probable.
  void set_up(const std::vector<long double> &c = {0.4L, 0.6L}) {
    load(Roles{3, "1", -1, 2}, "a,1,yes\nb,2,no\na,3,no\nc,4,yes\nb,5,yes\n", c);
    if (c.size() == 2) {
      set_case_members({{0.3L, 0.7L}, {0.8L, 0.2L}, {0.3L, 0.7L}, {0.6L, 0.4L}, {0.1L, 0.9L}});
      set_value_members(0, {{0.5L, 0.5L}, {0.2L, 0.8L}, {0.9L, 0.1L}});  // a, b, c
      set_group_members(0, std::vector<std::vector<long double>>(5, {0.5L, 0.5L}));
    }
  }
  std::string ranked() {
    alloc_rank();
    compute_rank();
    FILE *fp = tmpfile();
    print_rank(fp);
    std::string text = stream_text(fp);
    fclose(fp);
    release_rank();
    return text;
  }
};

// Class 1 first; within a class by decreasing membership (cases 0 and 2 tie
// in class 1, every Gaussian entry ties), equal ones in entry order.
TEST_F(RankTest, CountLimitsCasesAndValues) {
  set_up();
  settings.num_rank = 2;
  std::string text = ranked();
  EXPECT_EQ(section(text, "RANK-CASE"),
            std::string("#### ID:RANK-CASE\n#### Class k, Answer class, Case ID, Attributes values x, "
                        "Class prob. P(k), Membership prob. P(k|x)\n") +
                kComment +
                "####\n1,yes,4,b,5,0.6,0.9\n1,yes,0,a,1,0.6,0.7\n0,no,1,b,2,0.4,0.8\n0,yes,3,c,4,0.4,0.6\n");
  EXPECT_EQ(section(text, "RANK-CAT0"),
            std::string("#### ID:RANK-CAT0\n#### Attr. ID, Class k, Attr. value x0, Class prob. P(k), "
                        "Membership prob. P(k|x0)\n") +
                kComment + "####\n0,1,b,0.6,0.8\n0,1,a,0.6,0.5\n0,0,c,0.4,0.9\n0,0,a,0.4,0.5\n");
  EXPECT_EQ(section(text, "RANK-GAUSS0"),
            std::string("#### ID:RANK-GAUSS0\n#### Gauss ID, Class k, Case ID, Attr. x1, Class prob. P(k), "
                        "Membership prob. P(k|Gauss0)\n") +
                kComment + "####\n0,1,0,1,0.6,0.5\n0,1,1,2,0.6,0.5\n0,0,0,1,0.4,0.5\n0,0,1,2,0.4,0.5\n");
}

// A count of 0, or at least the number of entries or values, lists all.
TEST_F(RankTest, CountsOutsideTheTableListEverything) {
  set_up();
  for (int count : {0, 3, 5, 9}) {
    SCOPED_TRACE(count);
    settings.num_rank = count;
    std::string text = ranked();
    auto rows = [&text](const char *id) {
      std::string s = section(text, id);
      return std::count(s.begin(), s.end(), '\n') - 4;
    };
    EXPECT_EQ(rows("RANK-CASE"), count == 3 ? 6 : 10);
    EXPECT_EQ(rows("RANK-CAT0"), 6);  // three values per class
    EXPECT_EQ(rows("RANK-GAUSS0"), count == 3 ? 6 : 10);
  }
}

TEST_F(RankTest, ThresholdAndHideRankEndEachList) {
  set_up();
  settings.mode_rank_th = 1;
  settings.rank_th = 0.5L;
  std::string th = ranked();
  EXPECT_NE(th.find("####\n1,yes,4,b,5,0.6,0.9\n1,yes,0,a,1,0.6,0.7\n1,no,2,a,3,0.6,0.7\n"
                    "0,no,1,b,2,0.4,0.8\n0,yes,3,c,4,0.4,0.6\n#### ID:RANK-CAT0"),
            std::string::npos)
      << th;
  EXPECT_NE(th.find("####\n0,1,b,0.6,0.8\n0,1,a,0.6,0.5\n0,0,c,0.4,0.9\n0,0,a,0.4,0.5\n#### ID:RANK-GAUSS0"),
            std::string::npos);
  // With --hide-rank 1/K = 0.5 is the bar, whatever the count.
  settings.mode_rank_th = 0;
  settings.rank_th = -1;
  settings.num_rank = 0;
  settings.mode_rank_hide = 1;
  EXPECT_EQ(ranked(), th);
  // A 0.55 threshold stops before the 0.5 entries; --hide-rank adds nothing.
  settings.mode_rank_th = 1;
  settings.rank_th = 0.55L;
  std::string both = ranked();
  EXPECT_NE(both.find("####\n0,1,b,0.6,0.8\n0,0,c,0.4,0.9\n#### ID:RANK-GAUSS0"), std::string::npos);
  EXPECT_EQ(both.substr(both.size() - 12), "probs.\n####\n");  // every Gaussian entry is below
}

TEST_F(RankTest, OneClassHidesOnlyMembershipsBelowOne) {
  set_up({1.0L});
  set_case_members({{1}, {1}, {0.999L}, {1}, {1}});
  set_value_members(0, {{1}, {1}, {1}});
  set_group_members(0, {{1}, {1}, {1}, {1}, {1}});
  settings.mode_rank_hide = 1;
  settings.mode_eval = 0;
  settings.mode_hide_attr = 1;
  std::string text = ranked();
  EXPECT_EQ(section(text, "RANK-CASE"),
            std::string("#### ID:RANK-CASE\n#### Class k, Case ID, Class prob. P(k), Membership prob. P(k|x)\n") +
                kComment + "####\n0,0,1,1\n0,1,1,1\n0,3,1,1\n0,4,1,1\n");
  EXPECT_NE(text.find("#### Gauss ID, Class k, Case ID, Class prob. P(k), Membership prob. P(k|Gauss0)\n"),
            std::string::npos);
}

TEST_F(RankTest, UnknownRelevanceMeasureIsAnInternalError) {
  set_up();
  alloc_rank();
  settings.rel_m = 2;
  settings.fp_msg = nullptr;
  EXPECT_EXIT(compute_rank(), ::testing::ExitedWithCode(1),
              "^Internal error: Unexpected relevance measure between classes and attribute values\n$");
  EXPECT_EXIT(print_rank(stdout), ::testing::ExitedWithCode(1),
              "^Internal error: Unexpected relevance measure between class and attribute values\n$");
}

TEST_F(RankTest, MainWritesTheFileOrFailsOnItsOpen) {
  set_up();
  snprintf(settings.fname_rank, sizeof settings.fname_rank, "%s", path("t_rank.csv").c_str());
  rank_main();
  EXPECT_EQ(read_text(settings.fname_rank).rfind("#### ID:RANK-CASE\n", 0), 0u);
  EXPECT_GT(settings.stime_lap_rank, 0);
  snprintf(settings.fname_rank, sizeof settings.fname_rank, "%s", path("none/t_rank.csv").c_str());
  settings.fp_msg = nullptr;
  EXPECT_EXIT(rank_main(), ::testing::ExitedWithCode(1),
              "^Ranking relevant cases/attvals\\.\\.\\.Couldn't open .*/none/t_rank\\.csv\n$");
}

}  // namespace
