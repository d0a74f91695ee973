// Encoding of values for the case file, checked against hand-written
// encodings and against an independent percent-decoder.
#include "prep/case_encode.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

std::string encode(const std::string &text, bool line_start = false) {
  EncodeCounts counts;
  clear_encode_counts(&counts);
  return encode_case_text(text, line_start, &counts);
}

// Percent-decoding as a URL library does it.
std::string decode(const std::string &text) {
  std::string out;
  for (size_t i = 0; i < text.size(); i++) {
    if (text[i] == '%' && i + 2 < text.size()) {
      out += static_cast<char>(strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

TEST(CaseEncode, HandWrittenEncodings) {
  EXPECT_EQ(encode("New York"), "New%20York");
  EXPECT_EQ(encode("Smith, J."), "Smith%2C%20J.");
  EXPECT_EQ(encode("50%"), "50%25");
  EXPECT_EQ(encode("a\tb\r\nc"), "a%09b%0D%0Ac");
  EXPECT_EQ(encode("?"), "%3F");
  EXPECT_EQ(encode("NA"), "%4EA");
  EXPECT_EQ(encode("NAB"), "NAB");
  EXPECT_EQ(encode("#1", true), "%231");
  EXPECT_EQ(encode("#1", false), "#1");
  EXPECT_EQ(encode("caf\xC3\xA9"), "caf\xC3\xA9");  // UTF-8 passes unchanged
  EXPECT_EQ(encode("plain-text_1.5"), "plain-text_1.5");
}

TEST(CaseEncode, EveryByteDecodesBackAndNoneOfTheCaseFileSpecialsRemain) {
  std::string all;
  for (int c = 1; c < 256; c++) all += static_cast<char>(c);
  std::string enc = encode(all, true);
  EXPECT_EQ(decode(enc), all);
  EXPECT_EQ(enc.find_first_of(std::string(" ,\t\r\n", 5)), std::string::npos);
  for (const char *t : {"?", "NA", "#x", "100%", "a b", "x,,y"}) EXPECT_EQ(decode(encode(t, true)), t);
}

TEST(CaseEncode, CountsNameEachEncodedCharacter) {
  EncodeCounts counts;
  clear_encode_counts(&counts);
  encode_case_text("a b c", false, &counts);
  encode_case_text("x,y", false, &counts);
  encode_case_text("plain", false, &counts);
  EXPECT_EQ(counts.values, 2);
  EXPECT_EQ(describe_encode_counts(counts), "blank x2 as %20, ',' x1 as %2C");
  clear_encode_counts(&counts);
  EXPECT_EQ(describe_encode_counts(counts), "");
}

}  // namespace
