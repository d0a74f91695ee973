// Missing-value markers and the test for a number.
#include "prep/cell_value.h"

#include <gtest/gtest.h>

namespace {

TEST(CellValue, NumbersAreDecimalAndFinite) {
  struct Case {
    const char *text;
    long double value;
  };
  const Case numbers[] = {{"1", 1},      {"-2.5e3", -2500}, {".5", 0.5},
                          {"1.", 1},     {"+7", 7},         {"0.000", 0},
                          {"1E-2", 0.01L}};
  for (const Case &c : numbers) {
    long double v = -99;
    EXPECT_TRUE(is_number_text(c.text, &v)) << c.text;
    EXPECT_EQ(v, c.value) << c.text;
  }
  const char *texts[] = {"",   "inf", "-inf", "nan",  "0x10", "1,5", "1 2", "e5",
                         "+",  "-",   ".",    "1e",   "1.2.3", "12a", "--1", "1e5e"};
  for (const char *t : texts) EXPECT_FALSE(is_number_text(t, nullptr)) << t;
}

TEST(CellValue, MissingMarkers) {
  std::vector<std::string> m = default_missing_markers();
  for (const char *t : {"", "NA", "N/A", "NaN", "nan", "?", "NULL", "null", "#N/A"})
    EXPECT_TRUE(is_missing_text(t, m)) << t;
  for (const char *t : {"na", "None", "0", "-", "NA ", "n/a"}) EXPECT_FALSE(is_missing_text(t, m)) << t;
  // The empty cell is missing whatever the list says.
  EXPECT_TRUE(is_missing_text("", {}));
  EXPECT_TRUE(is_missing_text("-", {"-"}));
}

}  // namespace
