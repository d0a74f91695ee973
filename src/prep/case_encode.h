// Writes a value so that the case file can hold it. The case file has no
// quoting and drops blanks and tabs, so a value that holds a comma, a blank,
// a tab, a line end, another control character or "%" has each of them
// percent-encoded (a comma becomes %2C, a blank %20, "%" itself %25), as in
// URLs; "#" is encoded where it would begin a comment line, and a value that
// would read as missing ("?" or "NA") has its first character encoded.
// Decoding every %XX gives the value back.
#ifndef VESK_PREP_CASE_ENCODE_H
#define VESK_PREP_CASE_ENCODE_H

#include <string>

// How often each byte was encoded, and in how many values.
struct EncodeCounts {
  long by_byte[256];
  long values;
};

void clear_encode_counts(EncodeCounts *counts);

// `text` as the case file can hold it; `line_start` when it begins a line.
std::string encode_case_text(const std::string &text, bool line_start, EncodeCounts *counts);

// "a blank x12 as %20, ',' x3 as %2C", or "" when nothing was encoded.
std::string describe_encode_counts(const EncodeCounts &counts);

#endif
