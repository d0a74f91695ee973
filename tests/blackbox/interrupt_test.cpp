// SIGINT and SIGTERM sent to a real run while it reads, fits and writes the
// cluster file: the run ends with 128 + the signal, the log ends with a line
// end, no temporary file is left, and every result file present is the one
// an uninterrupted run writes.
#include <dirent.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "run_vesk.h"

namespace {

const char *const kResults[] = {"big_param.csv", "big_cluster.csv", "big_memp.csv"};

std::vector<std::string> args() {
  return {"-f", "big", "-k", "2:3:1", "-x", "4", "-u", "0-3", "-m", "8", "-r", "3", "-D"};
}

// 60,000 cases in three groups: reading, EM and writing each take a
// noticeable time.
std::string big_cases() {
  std::string text;
  char line[128];
  unsigned x = 12345;
  for (int i = 0; i < 60000; i++) {
    double v[4];
    for (double &d : v) {
      x = x * 1103515245u + 12345u;
      d = (x >> 8) / 16777216.0 + (i % 3) * (&d - v + 1);
    }
    snprintf(line, sizeof line, "%.5f,%.5f,%.5f,%.5f\n", v[0], v[1], v[2], v[3]);
    text += line;
  }
  return text;
}

// A temporary file (of the result file `prefix` names) in the folder.
bool has_temp_file(const std::string &dir, const std::string &prefix = "") {
  DIR *d = opendir(dir.c_str());
  bool found = false;
  for (dirent *e; d != nullptr && (e = readdir(d)) != nullptr;) {
    std::string name = e->d_name;
    if (name.rfind(prefix, 0) == 0 && name.find(".tmp") != std::string::npos) found = true;
  }
  if (d != nullptr) closedir(d);
  return found;
}

// Starts vesk in `dir`, waits until `ready` holds (or the run ends), sends
// `sig`, and returns the exit status (minus the signal when it killed vesk).
int interrupted_run(const TempDir &dir, int sig, const std::function<bool()> &ready) {
  pid_t pid = fork();
  if (pid == 0) {
    if (chdir(dir.path.c_str()) != 0 || !freopen(".stderr", "wb", stderr)) _exit(127);
    std::vector<std::string> a = args();
    std::vector<char *> argv{const_cast<char *>(VESK_BIN)};
    for (std::string &s : a) argv.push_back(&s[0]);
    argv.push_back(nullptr);
    execv(VESK_BIN, argv.data());
    _exit(127);
  }
  int st = 0;
  while (waitpid(pid, &st, WNOHANG) == 0) {
    if (ready()) {
      kill(pid, sig);
      waitpid(pid, &st, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return WIFEXITED(st) ? WEXITSTATUS(st) : -WTERMSIG(st);  // killed: negative
}

TEST(Interrupt, StopsAtASafePointAndLeavesWholeFiles) {
  TempDir ref;
  std::string cases = big_cases();
  ref.write("big_freq.csv", cases);
  ASSERT_EQ(run_vesk(ref, args()).status, 0);

  struct Point {
    const char *name;
    std::function<bool(const TempDir &)> ready;
  } points[] = {
      {"reading", [](const TempDir &d) { return d.read(".stderr").find("Reading cases") != std::string::npos; }},
      {"EM", [](const TempDir &d) { return d.read(".stderr").find("#iters") != std::string::npos; }},
      {"cluster file", [](const TempDir &d) { return has_temp_file(d.path, "big_cluster.csv."); }},
  };
  for (const Point &p : points)
    for (int sig : {SIGINT, SIGTERM}) {
      SCOPED_TRACE(std::string(p.name) + (sig == SIGINT ? " SIGINT" : " SIGTERM"));
      TempDir dir;
      dir.write("big_freq.csv", cases);
      EXPECT_EQ(interrupted_run(dir, sig, [&] { return p.ready(dir); }), 128 + sig);
      std::string log = dir.read("big_log.csv");
      EXPECT_TRUE(!log.empty() && log.back() == '\n');
      EXPECT_FALSE(has_temp_file(dir.path));
      for (const char *name : kResults)
        if (dir.exists(name)) {
          EXPECT_EQ(dir.read(name), ref.read(name)) << name;
        }
    }
}

}  // namespace
