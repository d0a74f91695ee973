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
  std::string out_path = dir.file(".stdout"), err_path = dir.file(".stderr");
  pid_t pid = fork();
  if (pid == 0) {
    struct rlimit cpu = {static_cast<rlim_t>(cpu_seconds), static_cast<rlim_t>(cpu_seconds)};
    setrlimit(RLIMIT_CPU, &cpu);
    if (chdir(dir.path.c_str()) != 0) _exit(127);
    if (!freopen(out_path.c_str(), "wb", stdout)) _exit(127);
    if (!freopen(err_path.c_str(), "wb", stderr)) _exit(127);
    std::vector<char *> argv;
    std::string bin = VESK_BIN;
    argv.push_back(const_cast<char *>(bin.c_str()));
    for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execv(bin.c_str(), argv.data());
    _exit(127);
  }
  int st = 0;
  struct rusage usage = {};
  wait4(pid, &st, 0, &usage);
  LimitedRun r;
  r.exited = WIFEXITED(st);
  r.status = r.exited ? WEXITSTATUS(st) : WTERMSIG(st);
  r.max_rss_kb = usage.ru_maxrss;
  r.out = read_file(out_path);
  r.err = read_file(err_path);
  unlink(out_path.c_str());
  unlink(err_path.c_str());
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
