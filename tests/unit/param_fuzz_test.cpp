// Mutated parameter and hyperparameter files (truncated, lines swapped,
// dropped or repeated, numbers edited, junk bytes inserted): each is read in
// a child process, the parameter files through the whole read-parameter
// run, and the child must end normally with status 0 or 1.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "input/read_freq.h"
#include "input/read_hparam.h"
#include "model/allocate.h"
#include "model/cluster.h"
#include "test_util.h"

namespace {

const char kParam[] =
    "#### ID:PARAM-CLASS\n#### Class k, Class parameter P(k)\n####\n0\t0.25\n1\t0.75\n"
    "#### ID:PARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. parameter P(x0|k)\n####\n"
    "0\t0\tred\t0.5\n0\t0\tblue\t0.5\n0\t1\tred\t0.125\n0\t1\tblue\t0.875\n"
    "#### ID:PARAM-CAT3\n#### Attr. ID, Class k, Attr. value x3, Attr. parameter P(x3|k)\n####\n"
    "3\t0\tsmall\t1\n3\t0\tbig\t0\n3\t1\tsmall\t0.5\n3\t1\tbig\t0.5\n"
    "#### ID:PARAM-GAUSS-MEAN0\n#### Gauss ID, Class k, Attr. ID, Mean\n####\n"
    "0\t0\t1\t1.5\n0\t0\t2\t-2\n0\t1\t1\t0\n0\t1\t2\t3\n"
    "#### ID:PARAM-GAUSS-COVAR0\n#### Gauss ID, Class k, Attr. ID, Attr. ID, (Co)Variance\n####\n"
    "0\t0\t1\t1\t2\n0\t0\t1\t2\t0.5\n0\t0\t2\t2\t1\n0\t1\t1\t1\t4\n0\t1\t1\t2\t-1\n0\t1\t2\t2\t0.5\n";

const char kHparam[] =
    "#### ID:HPARAM-CLASS\n####\n0\t2\n1\t3\n"
    "#### ID:HPARAM-CAT0\n####\n0\t0\tred\t2\n0\t0\tblue\t2\n0\t1\tred\t1.5\n0\t1\tblue\t2\n"
    "#### ID:HPARAM-CAT3\n####\n3\t0\tsmall\t2\n3\t0\tbig\t2\n3\t1\tsmall\t2\n3\t1\tbig\t2\n"
    "#### ID:HPARAM-GAUSS-MEAN0\n####\n0\t0\t1\t1\n0\t0\t2\t2\n1\t0\t1\t3\n1\t0\t2\t4\n"
    "#### ID:HPARAM-GAUSS-COVAR0\n####\n0\t0\t1\t1\t2\n0\t0\t1\t2\t0\n0\t0\t2\t2\t2\n"
    "1\t0\t1\t1\t1\n1\t0\t1\t2\t0.5\n1\t0\t2\t2\t1\n"
    "#### ID:HPARAM-GAUSS-TAU\n####\n0\t0.5\n1\t0.25\n"
    "#### ID:HPARAM-GAUSS-ALPHA0\n####\n0\t0\t3\n1\t0\t4\n";

const char kCases[] =
    "red\t1.2\t-1\tsmall\nblue\t0.3\t2.5\tbig\n?\tNA\t3\tsmall\nred\tNA\tNA\t?\nblue\t-0.5\t0.1\tsmall\n";

// Columns: 0 discrete, 1 and 2 one Gaussian group, 3 discrete.
void set_mixed_roles() {
  settings.tuple_size = 4;
  settings.attr_info = static_cast<AttrInfo *>(calloc(4, sizeof(AttrInfo)));
  settings.attr_info[1] = AttrInfo{1, 0, 0};
  settings.attr_info[2] = AttrInfo{1, 0, 1};
  settings.attr_info[3] = AttrInfo{0, 0, 1};
  settings.gauss_size = 1;
  settings.gauss_attr_size = static_cast<int *>(calloc(1, sizeof(int)));
  settings.gauss_attr_size[0] = 2;
  settings.gauss_attr = static_cast<int **>(calloc(1, sizeof(int *)));
  settings.gauss_attr[0] = static_cast<int *>(calloc(2, sizeof(int)));
  settings.gauss_attr[0][0] = 1;
  settings.gauss_attr[0][1] = 2;
  settings.tuple_size_c = settings.tuple_size_d = 2;
  settings.tuple_size_all = 4;
  settings.mode_nominal = settings.mode_gauss = 1;
  settings.format_in = settings.format_out = FORMAT_TXT;
  // One smoothing constant per discrete attribute, given as a number.
  settings.smooth_w = static_cast<long double *>(calloc(2, sizeof(long double)));
  settings.mode_smooth_auto_w = static_cast<int *>(calloc(2, sizeof(int)));
  settings.mode_smooth_auto_w[0] = settings.mode_smooth_auto_w[1] = 1;
  settings.num_smooth_w = 2;
}

std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end + 1;
    out.push_back(text.substr(start, end - start));
    start = end;
  }
  return out;
}

std::string join(const std::vector<std::string> &lines) {
  std::string s;
  for (const std::string &l : lines) s += l;
  return s;
}

// One random change of the file text.
std::string mutate(std::string text, std::mt19937 &rng) {
  auto pick = [&rng](size_t n) { return n == 0 ? 0 : static_cast<size_t>(rng() % n); };
  std::vector<std::string> lines = lines_of(text);
  static const char *const numbers[] = {"-1", "0", "1e999", "nan", "2147483648", "-0", "1.5", "1e-5000",
                                        "99999999999", "0x10", "", "-2147483649", "3", "1e4000", "-inf"};
  switch (rng() % 7) {
    case 0:  // truncate anywhere
      return text.substr(0, pick(text.size() + 1));
    case 1:  // swap two lines
      if (!lines.empty()) std::swap(lines[pick(lines.size())], lines[pick(lines.size())]);
      return join(lines);
    case 2:  // drop a line
      if (!lines.empty()) lines.erase(lines.begin() + static_cast<long>(pick(lines.size())));
      return join(lines);
    case 3:  // repeat a line
      if (!lines.empty()) {
        size_t i = pick(lines.size());
        lines.insert(lines.begin() + static_cast<long>(i), lines[i]);
      }
      return join(lines);
    case 4: {  // replace a digit run by another number
      size_t at = text.find_first_of("0123456789", pick(text.size()));
      if (at == std::string::npos) return text;
      size_t end = text.find_first_not_of("0123456789.e-", at);
      if (end == std::string::npos) end = text.size();
      return text.replace(at, end - at, numbers[pick(sizeof numbers / sizeof numbers[0])]);
    }
    case 5: {  // insert junk bytes, NUL and line ends included
      std::string junk;
      for (size_t n = 1 + pick(8); n > 0; n--) junk += static_cast<char>(rng() % 256);
      return text.insert(pick(text.size() + 1), junk);
    }
    default: {  // change one delimiter or character
      static const char subst[] = {',', '\t', '#', ' ', '\n', '\r', '%', '~'};
      if (!text.empty()) text[pick(text.size())] = subst[pick(sizeof subst)];
      return text;
    }
  }
}

void write(const std::string &path, const std::string &text) {
  FILE *fp = fopen(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), fp);
  fclose(fp);
}

// The read-parameter run, or the case file plus the hyperparameter file.
[[noreturn]] void child_run(const std::string &dir, bool hparam) {
  int null_fd = open("/dev/null", O_WRONLY);
  dup2(null_fd, 1);
  dup2(null_fd, 2);
  alarm(60);  // a hang would show up as a signal, not as a stuck test
  setup_process_state();
  set_mixed_roles();
  cases = CaseTable();
  model = Model();
  auto name = [&dir](char *dst, const char *file) { snprintf(dst, FNAME_MAX + 1, "%s/%s", dir.c_str(), file); };
  name(settings.fname_freq, "f_freq.txt");
  name(settings.fname_param, "f_param.txt");
  name(settings.fname_hparam, "f_hparam.txt");
  name(settings.fname_memp, "f_memp.txt");
  name(settings.fname_cluster, "f_cluster.txt");
  settings.fp_log = fopen((dir + "/f_log.txt").c_str(), "wb");
  settings.mode_memp = settings.mode_show_attr_memp = settings.mode_show_attr_cluster = 1;
  if (hparam) {
    settings.mode_read_hparam = 1;
    read_freq();
    read_hparam();
    check_read_hparam();
  } else {
    settings.mode_em = 0;
    no_em_main();
  }
  fclose(settings.fp_log);
  _exit(0);
}

class ParamFuzz : public ::testing::Test {
 protected:
  std::string dir;
  void SetUp() override {
    char tmpl[] = "/tmp/vesk_fz_XXXXXX";
    dir = mkdtemp(tmpl);
    write(dir + "/f_freq.txt", kCases);
  }
  void TearDown() override {
    std::string cmd = "rm -rf '" + dir + "'";
    if (system(cmd.c_str()) != 0) ADD_FAILURE() << cmd;
  }

  // Exit status of the child, or 128 + signal number.
  int run(const std::string &text, bool hparam) {
    write(dir + (hparam ? "/f_hparam.txt" : "/f_param.txt"), text);
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) child_run(dir, hparam);
    int st = 0;
    waitpid(pid, &st, 0);
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
  }

  void fuzz(const char *base, bool hparam, unsigned seed, int count) {
    ASSERT_EQ(run(base, hparam), 0) << "the unmutated file must be accepted";
    std::mt19937 rng(seed);
    int rejected = 0;
    for (int i = 0; i < count; i++) {
      std::string text = base;
      for (unsigned m = 1 + rng() % 3; m > 0; m--) text = mutate(text, rng);
      int status = run(text, hparam);
      ASSERT_TRUE(status == 0 || status == 1) << "status " << status << " for:\n" << text;
      rejected += status;
    }
    // Most mutations break the file; some (a swapped pair of equal rows) do not.
    EXPECT_GT(rejected, count / 4);
  }
};

TEST_F(ParamFuzz, MutatedParameterFilesEndCleanly) { fuzz(kParam, false, 20261122u, 250); }

TEST_F(ParamFuzz, MutatedHyperparameterFilesEndCleanly) { fuzz(kHparam, true, 7u, 150); }

}  // namespace
