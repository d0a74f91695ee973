// Numbers written with a decimal comma ("3,75", "1.234,5"), as spreadsheets
// in many locales export them with ';' between fields.
#ifndef VESK_PREP_DECIMAL_COMMA_H
#define VESK_PREP_DECIMAL_COMMA_H

#include <cstddef>
#include <string>
#include <vector>

#include "prep/delimited_table.h"

// True when every present cell of column `col` is a number with a decimal
// comma (and points between groups of three digits) or a whole number, and
// at least one has a comma.
bool has_decimal_commas(const DelimitedTable &t, size_t col,
                        const std::vector<std::string> &markers);

// Rewrites the present cells of column `col` with a decimal point and no
// group points: "1.234,5" becomes "1234.5".
void convert_decimal_commas(DelimitedTable *t, size_t col,
                            const std::vector<std::string> &markers);

#endif
