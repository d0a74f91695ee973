// Runs vesk under a CPU-time limit and reports how it ended: exit status or
// signal, its output, and the peak resident memory of the process.
#ifndef VESK_TESTS_ROBUST_RUN_H
#define VESK_TESTS_ROBUST_RUN_H

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "run_vesk.h"

struct LimitedRun {
  bool exited = false;  // false: ended by a signal (a crash, or the CPU limit)
  int status = -1;      // exit status, or the signal number
  long max_rss_kb = 0;
  std::string out, err;
};

inline LimitedRun run_limited(const TempDir &dir, const std::vector<std::string> &args,
                              int cpu_seconds = 60) {
  ProcessEnd end;
  RunResult res = run_program(dir, VESK_BIN, args, cpu_seconds, &end);
  LimitedRun r;
  r.exited = WIFEXITED(end.wait_status);
  r.status = r.exited ? WEXITSTATUS(end.wait_status) : WTERMSIG(end.wait_status);
  r.max_rss_kb = end.max_rss_kb;
  r.out = res.out;
  r.err = res.err;
  return r;
}

// True when a sanitizer reported something (the sanitize build prints these).
inline bool has_sanitizer_report(const std::string &text) {
  return text.find("Sanitizer") != std::string::npos || text.find("runtime error") != std::string::npos;
}

// The text after the last line of progress: the failure message of a failed run.
inline std::string last_line(const std::string &text) {
  std::string t = text;
  if (!t.empty() && t.back() == '\n') t.pop_back();
  size_t at = t.rfind('\n');
  return at == std::string::npos ? t : t.substr(at + 1);
}

#endif
