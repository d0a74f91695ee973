// Case files for unit tests: attribute roles set by hand, a case file written
// to a fresh temporary folder, the reader run on it, and the rows of one
// section of a log.
#ifndef VESK_TESTS_CASE_FILE_UTIL_H
#define VESK_TESTS_CASE_FILE_UTIL_H

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "input/read_freq.h"
#include "test_util.h"

// `groups` lists the columns of each Gaussian group; every other column that
// is not the ID, the answer or ignored is discrete.
struct Roles {
  int tuple_size;
  std::vector<std::vector<int>> groups;
  int id = -1, eval = -1;
  std::vector<int> ignored = {};
};

inline std::string write_case_file(const std::string &text, const char *ext) {
  char dir[] = "/tmp/vesk_cf_XXXXXX";
  std::string path = std::string(mkdtemp(dir)) + "/t_freq." + ext;
  FILE *fp = fopen(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), fp);
  fclose(fp);
  return path;
}

inline void set_roles(const Roles &r) {
  size_t ng = r.groups.size();
  settings.tuple_size = r.tuple_size;
  settings.mode_id = r.id >= 0;
  settings.attr_id = r.id;
  settings.mode_eval = r.eval >= 0;
  settings.attr_eval = r.eval;
  settings.attr_ignore = static_cast<int *>(calloc(r.tuple_size, sizeof(int)));
  for (int a : r.ignored) settings.attr_ignore[a] = 1;
  settings.num_attr_ignore = static_cast<int>(r.ignored.size());
  settings.attr_info = static_cast<AttrInfo *>(calloc(r.tuple_size, sizeof(AttrInfo)));
  settings.gauss_size = static_cast<int>(ng);
  settings.mode_gauss = ng > 0;
  settings.gauss_attr_size = static_cast<int *>(calloc(ng + 1, sizeof(int)));
  settings.gauss_attr = static_cast<int **>(calloc(ng + 1, sizeof(int *)));
  settings.tuple_size_c = 0;
  for (size_t g = 0; g < ng; g++) {
    settings.gauss_attr_size[g] = static_cast<int>(r.groups[g].size());
    settings.gauss_attr[g] = static_cast<int *>(calloc(r.groups[g].size(), sizeof(int)));
    for (size_t k = 0; k < r.groups[g].size(); k++) {
      int a = r.groups[g][k];
      settings.gauss_attr[g][k] = a;
      settings.attr_info[a] = AttrInfo{1, static_cast<int>(g), static_cast<int>(k)};
      settings.tuple_size_c++;
    }
  }
  int d = 0;
  for (int a = 0; a < r.tuple_size; a++) {
    if (a == r.id || a == r.eval || settings.attr_ignore[a] || settings.attr_info[a].cont) continue;
    settings.attr_info[a].index = d++;
  }
  settings.tuple_size_d = d;
  settings.tuple_size_all = d + settings.tuple_size_c;
  settings.mode_nominal = d > 0;
}

// Default settings, the given roles and log stream, a quiet message stream;
// writes `text` as a case file (without reading it yet).
inline void prepare_case_file(const Roles &roles, const std::string &text, const char *ext = "csv",
                              FILE *log = nullptr) {
  setup_process_state();
  static FILE *quiet = tmpfile();
  settings.fp_log = log;
  settings.fp_msg = quiet;
  settings.format_in = strcmp(ext, "csv") == 0 ? FORMAT_CSV : FORMAT_TXT;
  settings.format_out = FORMAT_TXT;
  set_roles(roles);
  std::string path = write_case_file(text, ext);
  snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s", path.c_str());
  cases = CaseTable();
}

inline void read_text_as(const Roles &roles, const std::string &text, const char *ext = "csv",
                         FILE *log = nullptr) {
  prepare_case_file(roles, text, ext, log);
  read_freq();
}

// Data rows of every section `id` in a log text.
inline std::vector<std::string> rows_of(const std::string &log, const std::string &id) {
  std::vector<std::string> rows;
  bool in = false;
  size_t pos = 0;
  while (pos < log.size()) {
    size_t end = log.find('\n', pos);
    if (end == std::string::npos) end = log.size();
    std::string line = log.substr(pos, end - pos);
    pos = end + 1;
    if (line.rfind("#### ID:", 0) == 0) in = line == "#### ID:" + id;
    else if (in && line.rfind("####", 0) != 0) rows.push_back(line);
  }
  return rows;
}

#endif
