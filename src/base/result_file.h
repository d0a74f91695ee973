// Result files appear whole or not at all: each is written under a temporary
// name in the same folder and renamed to its own name when it is complete.
// A run that ends early removes the temporary files it had open.
#ifndef VESK_BASE_RESULT_FILE_H
#define VESK_BASE_RESULT_FILE_H

#include <cstdio>

// Opens a file that is written as the run goes (the log, the message file):
// binary, truncated, written line by line; a failure prints "Couldn't open
// <name>" to standard error only and ends the run.
FILE *open_stream_file(const char *fname);

// Opens a result file for writing; a failure ends the run with "Couldn't open
// <name>" through die.
FILE *open_output(const char *fname);
// Completes a result file: a failed write ends the run with "Couldn't write
// <name>" and leaves nothing under the name.
void close_output(FILE *fp);
// Removes the temporary files of result files still open.
void discard_outputs();

#endif
