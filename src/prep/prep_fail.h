// Failure and warning messages of vesk-prep: one message, then exit status 1.
#ifndef VESK_PREP_PREP_FAIL_H
#define VESK_PREP_PREP_FAIL_H

#include <string>

// Prints "vesk-prep: " and the formatted text and a newline to standard error,
// removes every file registered with remove_on_failure, then exits with
// status 1.
[[noreturn]] void prep_die(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Prints "vesk-prep: warning: " and the formatted text and a newline to
// standard error, and returns.
void prep_warn(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Files that prep_die removes: the unfinished outputs.
void remove_on_failure(const std::string &path);
void keep_on_failure(const std::string &path);

#endif
