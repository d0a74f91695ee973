// Reads a whole input file as UTF-8 text: drops a UTF-8 byte-order mark and
// rejects files that are not text a case file can be made from.
#ifndef VESK_PREP_TEXT_FILE_H
#define VESK_PREP_TEXT_FILE_H

#include <string>

// The bytes of `path` without a leading UTF-8 byte-order mark. Dies when the
// file cannot be read, is UTF-16 or UTF-32 encoded, or holds a NUL byte.
std::string read_text_file(const char *path);

// `text` without a leading UTF-8 byte-order mark (EF BB BF).
std::string strip_utf8_bom(const std::string &text);

#endif
