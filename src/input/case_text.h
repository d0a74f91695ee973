// The texts of a distinct case as the result files show them: attribute
// values, case identifier and answer class.
#ifndef VESK_INPUT_CASE_TEXT_H
#define VESK_INPUT_CASE_TEXT_H

// Text of attribute `attr` (column index) in distinct case `entry`.
const char *freq_entry_val(int entry, int attr);
const char *get_case_id(int entry);
// Text of the answer class of a distinct case ("?" when it has none).
const char *get_ans_class(int entry);

#endif
