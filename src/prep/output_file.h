// Output files written whole or not at all: the text goes to a temporary file
// beside the target, which is renamed over the target when every output of
// the run is complete. Until then a failure (prep_die) removes the temporary
// files, so that a failed run leaves no output behind.
#ifndef VESK_PREP_OUTPUT_FILE_H
#define VESK_PREP_OUTPUT_FILE_H

#include <cstdio>
#include <string>

struct OutputFile {
  FILE *fp;
  std::string path;      // the target
  std::string tmp_path;  // where the text goes until it is complete
};

// Dies when the temporary file cannot be created.
OutputFile open_output_file(const std::string &path);
// Closes the temporary file; dies (removing the temporary files) on a write
// error.
void close_output_file(OutputFile *out);
// Renames the closed temporary file over the target; dies on failure, after
// removing `done`, an output of the same run already in place (or "").
void commit_output_file(OutputFile *out, const std::string &done);

#endif
