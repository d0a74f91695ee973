#include "prep/vesk_command.h"

#include <cstdio>
#include <cstring>

namespace {

std::string num(int i) {
  char buf[16];
  snprintf(buf, sizeof buf, "%d", i);
  return buf;
}

std::vector<int> columns_with(const std::vector<ColumnPlan> &plans, int role) {
  std::vector<int> out;
  for (size_t c = 0; c < plans.size(); c++) {
    if (plans[c].role == role) out.push_back(static_cast<int>(c));
  }
  return out;
}

// Joins runs of consecutive indices: a run of at least `min_run` as
// first + mark + last, shorter runs index by index; items separated by `sep`.
std::string join_runs(const std::vector<int> &idx, size_t min_run, char mark, char sep) {
  std::string out;
  for (size_t i = 0; i < idx.size();) {
    size_t j = i;
    while (j + 1 < idx.size() && idx[j + 1] == idx[j] + 1) j++;
    size_t len = j - i + 1;
    if (len >= min_run) {
      if (!out.empty()) out += sep;
      out += num(idx[i]) + mark + num(idx[j]);
    } else {
      for (size_t k = i; k <= j; k++) {
        if (!out.empty()) out += sep;
        out += num(idx[k]);
      }
    }
    i = j + 1;
  }
  return out;
}

}  // namespace

std::string index_items(const std::vector<int> &indices) { return join_runs(indices, 3, '-', ','); }

std::string single_groups(const std::vector<int> &indices) {
  return join_runs(indices, 2, '~', '#');
}

std::string shell_quote(const std::string &word) {
  const char *safe = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./+:@%,=";
  if (!word.empty() && strspn(word.c_str(), safe) == word.size()) return word;
  std::string out = "'";
  for (char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

std::string vesk_command(const std::string &base, const std::vector<ColumnPlan> &plans,
                         const CommandChoices &choices) {
  // A count column is the last field, after the -x attributes.
  int n_attr = static_cast<int>(plans.size() - columns_with(plans, ROLE_COUNT).size());
  std::string cmd = "vesk -f " + shell_quote(base) + " -x " + num(n_attr);
  std::vector<int> cont = columns_with(plans, ROLE_CONTINUOUS);
  std::vector<int> id = columns_with(plans, ROLE_ID), answer = columns_with(plans, ROLE_ANSWER);
  std::vector<int> ignored = columns_with(plans, ROLE_IGNORED);
  if (!cont.empty()) cmd += " -u " + (choices.independent ? single_groups(cont) : index_items(cont));
  if (!id.empty()) cmd += " -I " + num(id[0]);
  if (!answer.empty()) cmd += " -E " + num(answer[0]);
  if (!ignored.empty()) cmd += " -y " + index_items(ignored);
  if (id.empty() && cont.empty()) cmd += " --uncompress";
  if (choices.read_param) return cmd + " -R";
  return cmd + " -k " + shell_quote(choices.classes) + " -n 10 -A";
}
