// Runs the built vesk binary in a fresh temporary folder and captures its exit
// status, standard output and standard error; helpers to set up input files
// and read result files.
#ifndef VESK_TESTS_RUN_VESK_H
#define VESK_TESTS_RUN_VESK_H

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

struct RunResult {
  int status;
  std::string out;
  std::string err;
};

inline std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline bool file_exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

inline void write_file(const std::string &path, const std::string &text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
}

// A temporary working folder, removed when the object goes away.
struct TempDir {
  std::string path;
  TempDir() {
    char tmpl[] = "/tmp/vesk_test_XXXXXX";
    char *p = mkdtemp(tmpl);
    path = p != nullptr ? p : "/tmp";
  }
  ~TempDir() {
    std::string cmd = "rm -rf '" + path + "'";
    if (system(cmd.c_str()) != 0) {
    }
  }
  std::string file(const std::string &name) const { return path + "/" + name; }
  void write(const std::string &name, const std::string &text) const { write_file(file(name), text); }
  std::string read(const std::string &name) const { return read_file(file(name)); }
  bool exists(const std::string &name) const { return file_exists(file(name)); }
  // Copies one of the bundled example data files into the folder.
  void copy_data(const std::string &name) const {
    write(name, read_file(std::string(VESK_DATA_DIR) + "/" + name));
  }
};

// How a child process ended: its raw wait status and its peak resident memory.
struct ProcessEnd {
  int wait_status = 0;
  long max_rss_kb = 0;
};

// Runs the program `bin` with the given arguments (no shell quoting
// involved) in `dir`; a positive `cpu_seconds` limits its CPU time, and
// `end`, when given, receives how it ended.
inline RunResult run_program(const TempDir &dir, const std::string &bin, const std::vector<std::string> &args,
                             int cpu_seconds = 0, ProcessEnd *end = nullptr) {
  std::string out_path = dir.file(".stdout"), err_path = dir.file(".stderr");
  pid_t pid = fork();
  if (pid == 0) {
    if (cpu_seconds > 0) {
      struct rlimit cpu = {static_cast<rlim_t>(cpu_seconds), static_cast<rlim_t>(cpu_seconds)};
      setrlimit(RLIMIT_CPU, &cpu);
    }
    if (chdir(dir.path.c_str()) != 0) _exit(127);
    if (!freopen(out_path.c_str(), "wb", stdout)) _exit(127);
    if (!freopen(err_path.c_str(), "wb", stderr)) _exit(127);
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(bin.c_str()));
    for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execv(bin.c_str(), argv.data());
    _exit(127);
  }
  int st = 0;
  struct rusage usage = {};
  wait4(pid, &st, 0, &usage);
  if (end != nullptr) *end = ProcessEnd{st, usage.ru_maxrss};
  RunResult r;
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
  r.out = read_file(out_path);
  r.err = read_file(err_path);
  unlink(out_path.c_str());
  unlink(err_path.c_str());
  return r;
}

// Runs vesk with the given arguments in `dir`.
inline RunResult run_vesk(const TempDir &dir, const std::vector<std::string> &args) {
  return run_program(dir, VESK_BIN, args);
}

// Lines of a text, without their line ends.
inline std::vector<std::string> split_lines(const std::string &text) {
  std::vector<std::string> lines;
  std::string cur;
  for (char c : text) {
    if (c == '\n') {
      lines.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  if (!cur.empty()) lines.push_back(cur);
  return lines;
}

// Fields of a data row.
inline std::vector<std::string> split_fields(const std::string &line, char delim) {
  std::vector<std::string> out(1);
  for (char c : line) {
    if (c == delim)
      out.emplace_back();
    else
      out.back() += c;
  }
  return out;
}

// The arguments `base` followed by `more`.
inline std::vector<std::string> with(std::vector<std::string> base, const std::vector<std::string> &more) {
  base.insert(base.end(), more.begin(), more.end());
  return base;
}

// The lines of section `id` of a result file: the header lines and the rows
// up to the next section.
inline std::vector<std::string> section_lines(const std::string &text, const std::string &id) {
  std::vector<std::string> all = split_lines(text), out;
  bool in = false;
  for (const std::string &l : all) {
    if (l.rfind("#### ID:", 0) == 0) {
      if (in) break;
      in = (l == "#### ID:" + id);
    }
    if (in) out.push_back(l);
  }
  return out;
}

// Only the data rows of a section.
inline std::vector<std::string> section_rows(const std::string &text, const std::string &id) {
  std::vector<std::string> out;
  for (const std::string &l : section_lines(text, id))
    if (l.rfind("####", 0) != 0) out.push_back(l);
  return out;
}

#endif
