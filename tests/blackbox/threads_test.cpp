// The same fits with 1, 2 and 3 threads (OMP_NUM_THREADS) write the same
// bytes: every result file and the message stream, only the timing rows
// aside. The data set is large enough for the passes to split their work.
#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

// 4500 cases from three groups: four continuous columns and two discrete
// ones, about 12% of the values missing, and an occurrence count.
std::string generated_cases() {
  unsigned long long st = 777;
  auto next = [&st] {
    st = st * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(st >> 11) / 9007199254740992.0;
  };
  std::string text;
  for (int i = 0; i < 4500; i++) {
    int g = static_cast<int>(next() * 3);
    std::string line;
    for (int j = 0; j < 4; j++) {
      char buf[32];
      snprintf(buf, sizeof buf, "%.4f", g * (j + 1) + 2 * next() + (j > 0 ? next() : 0));
      line += (next() < 0.12 ? std::string("NA") : std::string(buf)) + ",";
    }
    for (int a = 0; a < 2; a++)
      line += (next() < 0.12 ? std::string("?") : "c" + std::to_string((g + a + (next() < 0.3)) % 3)) + ",";
    text += line + std::to_string(1 + i % 2) + "\n";
  }
  return text;
}

// The timing rows of the CPUTIME and LAPTIME sections lose their numbers.
std::string mask_times(const std::string &text) {
  std::string out;
  bool timing = false;
  for (const std::string &line : split_lines(text)) {
    if (line.rfind("#### ID:", 0) == 0) timing = line == "#### ID:CPUTIME" || line == "#### ID:LAPTIME";
    out += timing && line.rfind("####", 0) != 0 ? line.substr(0, line.find_first_of(",\t")) : line;
    out += "\n";
  }
  return out;
}

// Runs the command lines in a fresh folder with the given thread count;
// returns every file written (timing masked), the messages and the statuses.
std::map<std::string, std::string> run_all(const std::vector<std::vector<std::string>> &commands,
                                           const char *threads) {
  TempDir dir;
  dir.write("mix_freq.csv", generated_cases());
  std::map<std::string, std::string> out;
  setenv("OMP_NUM_THREADS", threads, 1);
  for (size_t i = 0; i < commands.size(); i++) {
    RunResult r = run_vesk(dir, commands[i]);
    out["status " + std::to_string(i)] = std::to_string(r.status);
    out["stdout " + std::to_string(i)] = r.out;
    out["stderr " + std::to_string(i)] = r.err;
  }
  unsetenv("OMP_NUM_THREADS");
  DIR *d = opendir(dir.path.c_str());
  for (dirent *ent = readdir(d); ent != nullptr; ent = readdir(d)) {
    std::string name = ent->d_name;
    if (name == "." || name == ".." || name == "mix_freq.csv") continue;
    out[name] = mask_times(dir.read(name));
  }
  closedir(d);
  return out;
}

struct ThreadCase {
  std::string name;
  std::vector<std::vector<std::string>> commands;
};

void PrintTo(const ThreadCase &c, std::ostream *os) { *os << c.name; }

class ThreadCount : public ::testing::TestWithParam<ThreadCase> {};

TEST_P(ThreadCount, SameBytesWithOneTwoAndThreeThreads) {
  const ThreadCase &tc = GetParam();
  std::map<std::string, std::string> one = run_all(tc.commands, "1");
  EXPECT_EQ(one["status 0"], "0") << one["stderr 0"];
  EXPECT_TRUE(one.count("mix_param.csv") == 1);
  for (const char *threads : {"2", "3"}) {
    std::map<std::string, std::string> more = run_all(tc.commands, threads);
    ASSERT_EQ(more.size(), one.size()) << threads;
    for (const auto &kv : one) EXPECT_TRUE(more[kv.first] == kv.second) << kv.first << " differs with " << threads << " threads";
  }
}

std::vector<std::string> fit(std::vector<std::string> more) {
  std::vector<std::string> args = {"-f", "mix", "-x", "6", "-u", "0-3", "-r", "3", "--prec-out", "21", "--prec-msg", "21"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

INSTANTIATE_TEST_SUITE_P(
    Fits, ThreadCount,
    ::testing::Values(
        ThreadCase{"MaximumLikelihoodRange", {fit({"-k", "2:3:1", "-n", "2", "-m", "40", "-D", "--show-attr-memp"})}},
        ThreadCase{"MapCheesemanStutz", {fit({"-k", "3", "-A", "-g", "cs", "-D", "--show-attr-memp"})}},
        ThreadCase{"Annealed", {fit({"-k", "3", "-A", "-b", "-m", "60"})}},
        ThreadCase{"LogScale", {fit({"-k", "3", "-A", "-J", "-D", "--show-attr-memp"})}},
        ThreadCase{"LogScaleAnnealed", {fit({"-k", "2", "-c", "1", "-w", "1", "-T", "1", "-J", "-b", "-m", "60"})}},
        ThreadCase{"SplitMerge", {fit({"-k", "3", "-A", "-m", "30", "--n-sm", "1", "-a", "2", "-z", "3"})}},
        ThreadCase{"ReadParameters", {fit({"-k", "3", "-A", "-m", "20"}), fit({"-R", "-A", "-D", "--show-attr-memp"})}}),
    [](const ::testing::TestParamInfo<ThreadCase> &info) { return info.param.name; });

}  // namespace
