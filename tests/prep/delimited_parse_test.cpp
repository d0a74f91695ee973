// Splitting delimited text into records: quoting, line ends, empty lines,
// delimiter detection, and the messages for broken quoting.
#include "prep/delimited_parse.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Fields = std::vector<std::string>;

std::vector<Fields> fields_of(const std::string &text, char delim = ',') {
  std::vector<Fields> out;
  for (const DelimitedRecord &r : parse_delimited(text, delim, "t.csv")) out.push_back(r.fields);
  return out;
}

std::vector<int> lines_of(const std::string &text) {
  std::vector<int> out;
  for (const DelimitedRecord &r : parse_delimited(text, ',', "t.csv")) out.push_back(r.line);
  return out;
}

TEST(DelimitedParse, QuotedFieldsHoldDelimitersQuotesAndLineEnds) {
  EXPECT_EQ(fields_of("a,\"b,c\",d\n"), (std::vector<Fields>{{"a", "b,c", "d"}}));
  EXPECT_EQ(fields_of("\"say \"\"hi\"\"\",x\n"), (std::vector<Fields>{{"say \"hi\"", "x"}}));
  EXPECT_EQ(fields_of("\"two\nlines\",x\ny,z\n"),
            (std::vector<Fields>{{"two\nlines", "x"}, {"y", "z"}}));
  // An empty quoted field, and a quote inside an unquoted field kept as it is.
  EXPECT_EQ(fields_of("\"\",5 \"in\"\n"), (std::vector<Fields>{{"", "5 \"in\""}}));
  // Blanks around a quoted field (", " separated files) are not part of it.
  EXPECT_EQ(fields_of("a, \"b,c\" ,d\n"), (std::vector<Fields>{{"a", "b,c", "d"}}));
}

TEST(DelimitedParse, LineEndsOfEveryKindAndEmptyLines) {
  std::vector<Fields> want = {{"a", "b"}, {"c", "d"}};
  EXPECT_EQ(fields_of("a,b\nc,d\n"), want);
  EXPECT_EQ(fields_of("a,b\r\nc,d\r\n"), want);
  EXPECT_EQ(fields_of("a,b\rc,d"), want);
  EXPECT_EQ(fields_of("\n\na,b\n\r\n\nc,d\n\n"), want);
  // Trailing empty fields are fields.
  EXPECT_EQ(fields_of("a,,\n"), (std::vector<Fields>{{"a", "", ""}}));
  // Line numbers count the lines inside quoted fields and the empty lines.
  EXPECT_EQ(lines_of("h\n\"x\ny\"\n\nz\r\nw"), (std::vector<int>{1, 2, 5, 6}));
}

TEST(DelimitedParse, OtherDelimiters) {
  EXPECT_EQ(fields_of("a b\tc,d\n", '\t'), (std::vector<Fields>{{"a b", "c,d"}}));
  EXPECT_EQ(fields_of("1,5;\"x;y\"\n", ';'), (std::vector<Fields>{{"1,5", "x;y"}}));
}

TEST(DelimitedParse, DetectsTheDelimiterOfTheFirstLine) {
  EXPECT_EQ(detect_delimiter("a,b,c\n1;2;3;4;5\n"), ',');
  EXPECT_EQ(detect_delimiter("a;b;c\n"), ';');
  EXPECT_EQ(detect_delimiter("name\tcity\r\n"), '\t');
  // Delimiters inside quotes do not count.
  EXPECT_EQ(detect_delimiter("\"a,b,c\";d;e\n"), ';');
  EXPECT_EQ(detect_delimiter("single\n"), ',');
}

TEST(DelimitedParseDeath, BrokenQuotingIsOneMessage) {
  EXPECT_EXIT(parse_delimited("a,b\nc,\"open\nd,e\n", ',', "t.csv"),
              testing::ExitedWithCode(1),
              "^vesk-prep: t.csv: the quoted field that starts on line 2 is never closed\n$");
  EXPECT_EXIT(parse_delimited("a,b\n\"x\"y,z\n", ',', "t.csv"), testing::ExitedWithCode(1),
              "^vesk-prep: t.csv: line 2: a closing quote must be followed by the delimiter or "
              "the line end\n$");
}

}  // namespace
