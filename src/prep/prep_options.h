// Command line of vesk-prep: INPUT BASE [options]. Every option is a word of
// its own and its value is the next word.
#ifndef VESK_PREP_PREP_OPTIONS_H
#define VESK_PREP_PREP_OPTIONS_H

#include <cstdio>
#include <string>
#include <vector>

#include "prep/role_override.h"
#include "prep/vesk_command.h"

struct PrepOptions {
  std::string input;                  // the delimited file to read
  std::string base;                   // base name of the files written
  char delimiter;                     // 0: detect from the first line
  char decimal;                       // ',' or '.'; 0: detect decimal commas per column
  bool header;                        // the first row names the columns
  std::vector<std::string> missing;   // texts read as a missing value
  std::vector<RoleOverride> overrides;
  std::string columns_file;           // roles from an earlier run's columns file
  std::string model_base;             // base name of that run (columns file name less "_columns.csv")
  CommandChoices choices;
};

// Parses the words; prints the usage and exits 0 on --help; dies on anything
// it does not know.
PrepOptions parse_prep_options(int argc, char **argv);

void print_prep_usage(FILE *fp);

#endif
