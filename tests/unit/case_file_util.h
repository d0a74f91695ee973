// Case files for unit tests: attribute roles built as the options build them,
// a case file written to a fresh temporary folder, and the reader run on it.
#ifndef VESK_TESTS_CASE_FILE_UTIL_H
#define VESK_TESTS_CASE_FILE_UTIL_H

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "driver/init.h"
#include "input/read_freq.h"
#include "test_util.h"

// Attribute roles as the command line gives them: `gauss` and `ignore` in the
// syntax of --gauss and --ignore, `id` and `eval` column indices or -1.
struct Roles {
  int tuple_size;
  const char *gauss = nullptr;
  int id = -1, eval = -1;
  const char *ignore = nullptr;
};

// The folders made by write_case_file, removed when the process that made
// them ends (not by a forked death-check child).
struct CaseFolders {
  std::vector<std::string> made;
  pid_t owner = getpid();
  ~CaseFolders() {
    if (getpid() != owner) return;
    for (const std::string &d : made) {
      std::string cmd = "rm -rf '" + d + "'";
      if (system(cmd.c_str()) != 0) continue;
    }
  }
};

inline std::string write_case_file(const std::string &text, const char *ext) {
  static CaseFolders folders;
  char dir[] = "/tmp/vesk_cf_XXXXXX";
  folders.made.push_back(mkdtemp(dir));
  std::string path = folders.made.back() + "/t_freq." + ext;
  FILE *fp = fopen(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), fp);
  fclose(fp);
  return path;
}

// Builds the roles as the option passes do.
inline void set_roles(const Roles &r) {
  settings.tuple_size = r.tuple_size;
  settings.mode_id = r.id >= 0;
  settings.attr_id = r.id;
  settings.mode_eval = r.eval >= 0;
  settings.attr_eval = r.eval;
  if (r.ignore != nullptr) add_attr_ignore(r.ignore);
  if (r.gauss != nullptr) add_gauss(r.gauss);
  build_attr_info();
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
}

inline void read_text_as(const Roles &roles, const std::string &text, const char *ext = "csv",
                         FILE *log = nullptr) {
  prepare_case_file(roles, text, ext, log);
  read_freq();
}

#endif
