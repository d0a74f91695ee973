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
    for (int j = 0; j < 4; j++) {
      char buf[32];
      snprintf(buf, sizeof buf, "%.4f", g * (j + 1) + 2 * next() + (j > 0 ? next() : 0));
      text += (next() < 0.12 ? std::string("NA") : std::string(buf)) + ",";
    }
    for (int a = 0; a < 2; a++)
      text += (next() < 0.12 ? std::string("?") : "c" + std::to_string((g + a + (next() < 0.3)) % 3)) + ",";
    text += std::to_string(1 + i % 2) + "\n";
  }
  return text;
}

// Runs the command lines in a fresh folder with the given thread count;
// returns every file written, the timing rows of the CPUTIME and LAPTIME
// sections cut to their names, and the statuses and messages.
std::map<std::string, std::string> run_all(const std::vector<std::vector<std::string>> &commands,
                                           const char *threads) {
  TempDir dir;
  dir.write("mix_freq.csv", generated_cases());
  std::map<std::string, std::string> out;
  setenv("OMP_NUM_THREADS", threads, 1);
  for (size_t i = 0; i < commands.size(); i++) {
    RunResult r = run_vesk(dir, commands[i]);
    out["run " + std::to_string(i)] = std::to_string(r.status) + "\n" + r.out + "\n" + r.err;
  }
  unsetenv("OMP_NUM_THREADS");
  DIR *d = opendir(dir.path.c_str());
  for (dirent *ent = readdir(d); ent != nullptr; ent = readdir(d)) {
    std::string name = ent->d_name, text;
    if (name == "." || name == ".." || name == "mix_freq.csv") continue;
    bool timing = false;
    for (const std::string &line : split_lines(dir.read(name))) {
      if (line.rfind("#### ID:", 0) == 0) timing = line == "#### ID:CPUTIME" || line == "#### ID:LAPTIME";
      text += (timing && line.rfind("####", 0) != 0 ? line.substr(0, line.find_first_of(",\t")) : line) + "\n";
    }
    out[name] = text;
  }
  closedir(d);
  return out;
}

std::vector<std::string> fit(const std::vector<std::string> &more) {
  return with({"-f", "mix", "-x", "6", "-u", "0-3", "-r", "3", "--prec-out", "21", "--prec-msg", "21"}, more);
}

using Commands = std::vector<std::vector<std::string>>;
const std::vector<std::pair<std::string, Commands>> kFits = {
    {"MaximumLikelihoodRange", {fit({"-k", "2:3:1", "-n", "2", "-m", "40", "-D", "--show-attr-memp"})}},
    {"MapCheesemanStutz", {fit({"-k", "3", "-A", "-g", "cs", "-D", "--show-attr-memp"})}},
    {"Annealed", {fit({"-k", "3", "-A", "-b", "-m", "60"})}},
    {"LogScale", {fit({"-k", "3", "-A", "-J", "-D", "--show-attr-memp"})}},
    {"LogScaleAnnealed", {fit({"-k", "2", "-c", "1", "-w", "1", "-T", "1", "-J", "-b", "-m", "60"})}},
    {"SplitMerge", {fit({"-k", "3", "-A", "-m", "30", "--n-sm", "1", "-a", "2", "-z", "3"})}},
    {"ReadParameters", {fit({"-k", "3", "-A", "-m", "20"}), fit({"-R", "-A", "-D", "--show-attr-memp"})}}};

class ThreadCount : public ::testing::TestWithParam<size_t> {};

TEST_P(ThreadCount, SameBytesWithOneTwoAndThreeThreads) {
  std::map<std::string, std::string> one = run_all(kFits[GetParam()].second, "1");
  EXPECT_EQ(one["run 0"].substr(0, 2), "0\n") << one["run 0"];
  EXPECT_EQ(one.count("mix_param.csv"), 1u);
  for (const char *threads : {"2", "3"}) {
    std::map<std::string, std::string> more = run_all(kFits[GetParam()].second, threads);
    ASSERT_EQ(more.size(), one.size()) << threads;
    for (const auto &kv : one) EXPECT_TRUE(more[kv.first] == kv.second) << kv.first << " differs with " << threads << " threads";
  }
}

INSTANTIATE_TEST_SUITE_P(Fits, ThreadCount, ::testing::Range<size_t>(0, kFits.size()),
                         [](const ::testing::TestParamInfo<size_t> &info) { return kFits[info.param].first; });

}  // namespace
