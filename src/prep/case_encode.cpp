#include "prep/case_encode.h"

#include <cstdio>
#include <cstring>

namespace {

bool needs_encoding(unsigned char c) {
  return c < 0x20 || c == 0x7F || c == ' ' || c == ',' || c == '%';
}

void append_encoded(std::string *out, unsigned char c, EncodeCounts *counts) {
  char buf[4];
  snprintf(buf, sizeof buf, "%%%02X", c);
  *out += buf;
  counts->by_byte[c]++;
}

// How a byte is named in the warning.
std::string byte_name(unsigned char c) {
  switch (c) {
    case ' ': return "blank";
    case '\t': return "tab";
    case '\n': return "line feed";
    case '\r': return "carriage return";
    default: break;
  }
  char buf[16];
  if (c < 0x20 || c == 0x7F) {
    snprintf(buf, sizeof buf, "byte 0x%02X", c);
  } else {
    snprintf(buf, sizeof buf, "'%c'", c);
  }
  return buf;
}

}  // namespace

void clear_encode_counts(EncodeCounts *counts) { memset(counts, 0, sizeof *counts); }

std::string encode_case_text(const std::string &text, bool line_start, EncodeCounts *counts) {
  bool reads_missing = text == "?" || text == "NA";
  std::string out;
  bool encoded = false;
  for (size_t i = 0; i < text.size(); i++) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    bool first = i == 0;
    if (needs_encoding(c) || (first && reads_missing) || (first && line_start && c == '#')) {
      append_encoded(&out, c, counts);
      encoded = true;
    } else {
      out += static_cast<char>(c);
    }
  }
  if (encoded) counts->values++;
  return out;
}

std::string describe_encode_counts(const EncodeCounts &counts) {
  std::string out;
  for (int c = 0; c < 256; c++) {
    if (counts.by_byte[c] == 0) continue;
    char buf[64];
    snprintf(buf, sizeof buf, " x%ld as %%%02X", counts.by_byte[c], c);
    if (!out.empty()) out += ", ";
    out += byte_name(static_cast<unsigned char>(c)) + buf;
  }
  return out;
}
