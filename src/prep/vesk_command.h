// The vesk command line that fits the prepared case file: base name, number
// of attributes, continuous, ID, answer and ignored columns filled in.
#ifndef VESK_PREP_VESK_COMMAND_H
#define VESK_PREP_VESK_COMMAND_H

#include <string>
#include <vector>

#include "prep/column_role.h"

struct CommandChoices {
  std::string classes;  // value of -k
  bool independent;     // one Gaussian per continuous column instead of one for all
  bool read_param;      // score with a fitted model (-R) instead of fitting
};

// Increasing indices as items joined by ",": runs of three or more as "a-b".
std::string index_items(const std::vector<int> &indices);
// Increasing indices as one-attribute Gaussian groups joined by "#": runs of
// two or more as "a~b".
std::string single_groups(const std::vector<int> &indices);
// `word` as one shell word: unchanged when it holds only safe characters,
// else in single quotes.
std::string shell_quote(const std::string &word);

// "vesk -f BASE -x N [-u ...] [-I i] [-E i] [-y ...] [--uncompress] -k K -n 10 -A",
// or ending in "-R" instead of "-k K -n 10 -A" with `read_param`.
// --uncompress is added when there is neither an ID nor a continuous column,
// so that identical rows stay apart and every case ID is a row number.
std::string vesk_command(const std::string &base, const std::vector<ColumnPlan> &plans,
                         const CommandChoices &choices);

#endif
