// Output files written whole or not at all: the text goes to a temporary file
// beside the target, which is renamed over the target when complete.
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
// Closes and renames; dies (removing the temporary file) on a write error.
void commit_output_file(OutputFile *out);

#endif
