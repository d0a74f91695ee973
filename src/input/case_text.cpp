#include "input/case_text.h"

#include <cstdio>

#include "base/misc.h"
#include "input/read_freq.h"
#include "settings/settings.h"

namespace {

char case_id_field[12];

}  // namespace

const char *freq_entry_val(int entry, int attr) {
  const AttrInfo &info = settings.attr_info[attr];
  const CaseRecord &rec = cases.freq_list[entry];
  if (info.cont) {
    if (rec.miss_g[info.group][info.index]) return "?";
    return float2str(rec.gauss[info.group][info.index]);
  }
  int word = rec.word[info.index];
  if (word >= 0) return cases.word_list[info.index][word];
  if (rec.miss_w[info.index]) return "?";
  die("Internal error: freq_entry_val(): word not assigned");
}

const char *get_case_id(int entry) {
  if (settings.mode_id) return cases.case_id_list[cases.freq_list[entry].case_id];
  snprintf(case_id_field, sizeof case_id_field, "%d", entry);
  return case_id_field;
}

const char *get_ans_class(int entry) {
  int a = cases.freq_list[entry].ans_class;
  return a >= 0 ? cases.ans_class_list[a] : "?";
}
