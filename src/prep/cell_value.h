// What a cell of the input table holds: a missing value or a number.
#ifndef VESK_PREP_CELL_VALUE_H
#define VESK_PREP_CELL_VALUE_H

#include <string>
#include <vector>

// The texts read as a missing value unless the user gives others: "", "NA",
// "N/A", "NaN", "nan", "?", "NULL", "null" and "#N/A".
std::vector<std::string> default_missing_markers();

// True for an empty cell and for a cell equal to one of `markers`.
bool is_missing_text(const std::string &cell, const std::vector<std::string> &markers);

// True when `cell` is wholly a finite decimal number (optional sign, digits
// with an optional point, optional exponent); its value goes to `value`.
bool is_number_text(const std::string &cell, long double *value);

#endif
