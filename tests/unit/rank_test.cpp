// Relevance ranking: the order against an independent stable sort, the
// limits and stops, the sections as written, the internal-error texts.
#include "analysis/rank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "analysis_fixture.h"
#include "output/print.h"

namespace {

// Decreasing key, equal keys in index order, NaN after every number; twelve
// keys, so that sorted runs are merged.
TEST(RankIndices, StableDecreasingOrderWithTiesAndNaN) {
  const long double key[] = {0.5L, NAN, 0.2L, 0.5L, 0.9L, 0.2L, NAN, 0.5L, 0.9L, 0, 0.2L, NAN};
  std::vector<int> got(12);
  rank_indices(got.data(), 12, key);
  EXPECT_EQ(got, (std::vector<int>{4, 8, 0, 3, 7, 2, 5, 10, 9, 1, 6, 11}));
}

// The text of one section of a result file.
inline std::string section(const std::string &text, const std::string &id) {
  size_t start = text.find("#### ID:" + id + "\n");
  if (start == std::string::npos) return "";
  size_t end = text.find("#### ID:", start + 1);
  return text.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

const Roles kRoles{3, "1", -1, 2};
const char kRows[] = "a,1,yes\nb,2,no\na,3,no\nc,4,yes\nb,5,yes\n";
const char kComment[] = "#### -- in the decending order of the class probs. and the membership probs.\n####\n";

class RankTest : public AnalysisTest {
 protected:
  // Five cases (value of attribute 0, value of the Gaussian 1, answer) and
  // two classes, class 1 the more probable.
  void SetUp() override {
    AnalysisTest::SetUp();
    load(kRoles, kRows, {0.4L, 0.6L});
    set_case_members({{0.3L, 0.7L}, {0.8L, 0.2L}, {0.3L, 0.7L}, {0.6L, 0.4L}, {0.1L, 0.9L}});
    set_value_members(0, {{0.5L, 0.5L}, {0.2L, 0.8L}, {0.9L, 0.1L}});  // a, b, c
    set_group_members(0, Dists(5, {0.5L, 0.5L}));
  }
  std::string ranked() {
    alloc_rank();
    compute_rank();
    std::string text = written(print_rank);
    release_rank();
    return text;
  }
};

// Class 1 first; within a class by decreasing membership (cases 0 and 2 tie
// in class 1, every Gaussian entry ties), equal ones in entry order. A count
// of 0, or at least the number of entries or values, lists all.
TEST_F(RankTest, CountLimitsCasesAndValues) {
  settings.num_rank = 2;
  std::string text = ranked();
  EXPECT_EQ(section(text, "RANK-CASE"),
            std::string("#### ID:RANK-CASE\n#### Class k, Answer class, Case ID, Attributes values x, "
                        "Class prob. P(k), Membership prob. P(k|x)\n") +
                kComment + "1,yes,4,b,5,0.6,0.9\n1,yes,0,a,1,0.6,0.7\n0,no,1,b,2,0.4,0.8\n0,yes,3,c,4,0.4,0.6\n");
  EXPECT_EQ(section(text, "RANK-CAT0"),
            std::string("#### ID:RANK-CAT0\n#### Attr. ID, Class k, Attr. value x0, Class prob. P(k), "
                        "Membership prob. P(k|x0)\n") +
                kComment + "0,1,b,0.6,0.8\n0,1,a,0.6,0.5\n0,0,c,0.4,0.9\n0,0,a,0.4,0.5\n");
  EXPECT_EQ(section(text, "RANK-GAUSS0"),
            std::string("#### ID:RANK-GAUSS0\n#### Gauss ID, Class k, Case ID, Attr. x1, Class prob. P(k), "
                        "Membership prob. P(k|Gauss0)\n") +
                kComment + "0,1,0,1,0.6,0.5\n0,1,1,2,0.6,0.5\n0,0,0,1,0.4,0.5\n0,0,1,2,0.4,0.5\n");
  for (int count : {0, 3, 5, 9}) {
    settings.num_rank = count;
    text = ranked();
    auto rows = [&text](const char *id) {
      std::string s = section(text, id);
      return std::count(s.begin(), s.end(), '\n') - 4;
    };
    int cases_per_class = count == 3 ? 3 : 5;
    EXPECT_EQ(rows("RANK-CASE"), 2 * cases_per_class) << count;
    EXPECT_EQ(rows("RANK-CAT0"), 6) << count;  // three values per class
    EXPECT_EQ(rows("RANK-GAUSS0"), 2 * cases_per_class) << count;
  }
}

TEST_F(RankTest, ThresholdAndHideRankEndEachList) {
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
  load(kRoles, kRows, {1.0L});
  set_case_members({{1}, {1}, {0.999L}, {1}, {1}});
  set_value_members(0, {{1}, {1}, {1}});
  set_group_members(0, Dists(5, {1}));
  settings.mode_rank_hide = 1;
  settings.mode_eval = 0;
  settings.mode_hide_attr = 1;
  std::string text = ranked();
  EXPECT_EQ(section(text, "RANK-CASE"),
            std::string("#### ID:RANK-CASE\n#### Class k, Case ID, Class prob. P(k), Membership prob. P(k|x)\n") +
                kComment + "0,0,1,1\n0,1,1,1\n0,3,1,1\n0,4,1,1\n");
  EXPECT_NE(text.find("#### Gauss ID, Class k, Case ID, Class prob. P(k), Membership prob. P(k|Gauss0)\n"),
            std::string::npos);
}

TEST_F(RankTest, UnknownRelevanceMeasureIsAnInternalError) {
  alloc_rank();
  settings.rel_m = 2;
  settings.fp_msg = nullptr;
  EXPECT_EXIT(compute_rank(), ::testing::ExitedWithCode(1),
              "^Internal error: Unexpected relevance measure between classes and attribute values\n$");
  EXPECT_EXIT(print_rank(stdout), ::testing::ExitedWithCode(1),
              "^Internal error: Unexpected relevance measure between class and attribute values\n$");
  release_rank();
}

}  // namespace
