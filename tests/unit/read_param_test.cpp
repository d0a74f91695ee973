// Parameter and hyperparameter files: a hand-written file read back and
// written again byte for byte, the stored arrays, the rejection of malformed
// files with their messages, and mutated files that must end the run cleanly.
#include "driver/run.h"
#include "input/read_param.h"

#include <gtest/gtest.h>
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
#include "output/print.h"
#include "test_util.h"

namespace {

// Columns: 0 discrete (colour), 1 and 2 one Gaussian group, 3 discrete (size).
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
  settings.smooth_w = static_cast<long double *>(calloc(2, sizeof(long double)));
  settings.mode_smooth_auto_w = static_cast<int *>(calloc(2, sizeof(int)));
  settings.mode_smooth_auto_w[0] = settings.mode_smooth_auto_w[1] = 1;
  settings.num_smooth_w = 2;
}

const std::string kParam =
    "#### ID:PARAM-CLASS\n#### Class k, Class parameter P(k)\n####\n0\t0.25\n1\t0.75\n"
    "#### ID:PARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. parameter P(x0|k)\n####\n"
    "0\t0\tred\t0.5\n0\t0\tblue\t0.5\n0\t1\tred\t0.125\n0\t1\tblue\t0.875\n"
    "#### ID:PARAM-CAT3\n#### Attr. ID, Class k, Attr. value x3, Attr. parameter P(x3|k)\n####\n"
    "3\t0\tsmall\t1\n3\t0\tbig\t0\n3\t1\tsmall\t0.5\n3\t1\tbig\t0.5\n"
    "#### ID:PARAM-GAUSS-MEAN0\n#### Gauss ID, Class k, Attr. ID, Mean\n####\n"
    "0\t0\t1\t1.5\n0\t0\t2\t-2\n0\t1\t1\t0\n0\t1\t2\t3\n"
    "#### ID:PARAM-GAUSS-COVAR0\n#### Gauss ID, Class k, Attr. ID, Attr. ID, (Co)Variance\n####\n"
    "0\t0\t1\t1\t2\n0\t0\t1\t2\t0.5\n0\t0\t2\t2\t1\n0\t1\t1\t1\t4\n0\t1\t1\t2\t-1\n0\t1\t2\t2\t0.5\n";

const std::string kHparam =
    "#### ID:HPARAM-CLASS\n#### Class k, Class pseudo count delta(k)\n####\n0\t2\n1\t3\n"
    "#### ID:HPARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. pseudo count delta(x0|k)\n####\n"
    "0\t0\tred\t5\n0\t0\tblue\t2\n0\t1\tred\t1.5\n0\t1\tblue\t2\n"
    "#### ID:HPARAM-CAT3\n#### Attr. ID, Class k, Attr. value x3, Attr. pseudo count delta(x3|k)\n####\n"
    "3\t0\tbig\t2\n3\t0\tsmall\t2\n3\t1\tbig\t2\n3\t1\tsmall\t2\n"
    "#### ID:HPARAM-GAUSS-MEAN0\n#### Class k, Gauss ID, Attr. ID, Mean\n####\n"
    "0\t0\t1\t1\n0\t0\t2\t2\n1\t0\t1\t3\n1\t0\t2\t4\n"
    "#### ID:HPARAM-GAUSS-COVAR0\n#### Class k, Gauss ID, Attr. ID, Attr. ID, (Co)Variance\n####\n"
    "0\t0\t1\t1\t2\n0\t0\t1\t2\t0\n0\t0\t2\t2\t2\n1\t0\t1\t1\t1\n1\t0\t1\t2\t0.5\n1\t0\t2\t2\t1\n"
    "#### ID:HPARAM-GAUSS-TAU\n#### Class k, Tau\n####\n0\t0.5\n1\t0.25\n"
    "#### ID:HPARAM-GAUSS-ALPHA0\n#### Class k, Gauss ID, Alpha\n####\n0\t0\t3\n1\t0\t4\n";

const char kCases[] = "red\t1.2\t-1\tbig\nblue\t0.3\t2.5\tsmall\n?\tNA\t3\tsmall\nred\tNA\tNA\t?\n";

std::string replace(std::string text, const std::string &from, const std::string &to) {
  size_t at = text.find(from);
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

void write(const std::string &path, const std::string &text) {
  FILE *fp = fopen(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), fp);
  fclose(fp);
}

std::string printed(void (*writer)(FILE *)) {
  FILE *fp = tmpfile();
  writer(fp);
  std::string text = stream_text(fp);
  fclose(fp);
  return text;
}

class ReadParamTest : public ::testing::Test {
 protected:
  std::string dir;
  void SetUp() override {
    setup_process_state();
    set_mixed_roles();
    cases = CaseTable();
    model = Model();
    char tmpl[] = "/tmp/vesk_rp_XXXXXX";
    dir = mkdtemp(tmpl);
    auto name = [this](char *dst, const char *file) { snprintf(dst, FNAME_MAX + 1, "%s/%s", dir.c_str(), file); };
    name(settings.fname_freq, "t_freq.txt");
    name(settings.fname_param, "t_param.txt");
    name(settings.fname_hparam, "t_hparam.txt");
    name(settings.fname_memp, "t_memp.txt");
    name(settings.fname_cluster, "t_cluster.txt");
    write(settings.fname_freq, kCases);
  }
  void TearDown() override {
    release_param();
    release_hparam_read();
    release_freq();
    std::string cmd = "rm -rf '" + dir + "'";
    if (system(cmd.c_str()) != 0) ADD_FAILURE() << cmd;
  }
  // The case file's dictionaries, as the hyperparameter reader finds them.
  void read_cases() {
    settings.mode_em = 1;
    read_freq();
  }
};

TEST_F(ReadParamTest, ReadsEveryArrayAndWritesTheSameFileBack) {
  write(settings.fname_param, kParam);
  read_param();
  ASSERT_EQ(model.num_class, 2);
  ASSERT_EQ(cases.num_word[0], 2);
  EXPECT_EQ(model.param_c[1], 0.75L);
  EXPECT_EQ(model.param_w[1][0][1], 0.875L);
  // The lower triangle mirrors the upper one; precision and determinant
  // follow from the 2x2 closed forms.
  EXPECT_EQ(model.param_s[1][0][1][0], -1.0L);
  EXPECT_NEAR(static_cast<double>(model.param_sdet[0][0]), 1.75, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.param_p[1][0][0][1]), 1.0, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.param_p[0][0][1][1]), 2.0 / 1.75, 1e-15);
  // Values are printed in dictionary order, so the file comes back unchanged.
  EXPECT_EQ(printed(print_param), kParam);
}

TEST_F(ReadParamTest, HyperparametersMapValueTextsToCaseIds) {
  settings.mode_read_hparam = 1;
  read_cases();
  // Class 0 lists its colours in the order opposite to the case file's ids.
  std::string text = replace(kHparam, "0\t0\tred\t5\n0\t0\tblue\t2\n", "0\t0\tblue\t2\n0\t0\tred\t5\n");
  write(settings.fname_hparam, replace(text, "0\t2\n", "0\t-1\n"));
  read_hparam();
  ASSERT_EQ(model.num_class, 2);
  EXPECT_EQ(model.hparam_c[0], -1.0L);       // down to -1 is accepted
  EXPECT_EQ(model.hparam_w[0][0][0], 5.0L);  // red has id 0 though listed second
  EXPECT_EQ(model.hparam_u[1][0][1], 4.0L);
  EXPECT_EQ(model.hparam_s[1][0][1][0], 0.5L);
  EXPECT_NEAR(static_cast<double>(model.hparam_sdet[0][0]), 4.0, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.hparam_p[1][0][0][1]), -0.5 / 0.75, 1e-15);
  // Written back in dictionary order, class before group in the Gaussian rows.
  EXPECT_EQ(printed(print_hparam), replace(kHparam, "0\t2\n", "0\t-1\n"));
}

struct BadFile {
  const char *name;
  bool hparam;
  std::string text;
  const char *message;  // regular expression for the error stream
};

std::vector<BadFile> bad_files() {
  const std::string &p = kParam, &h = kHparam;
  return {
      {"ClassOrder", false, replace(p, "1\t0.75\n", "2\t0.75\n"),
       "\\[ID:503\\] Illegal line 5 in .*: Unexpected order of class numbers\n2\t0.75\n\\^\n"},
      {"ClassNotBelowCount", false, replace(p, "0\t1\tred", "0\t2\tred"),
       "Different number of classes exist in entries for P\\(c\\) and P\\(x1\\|c\\)\n$"},
      {"OnlyClassSection", false, p.substr(0, p.find("#### ID:PARAM-CAT0")),
       "Insufficiennt parameter specifications in .* \\(#data-matrices = 1\\)\n$"},
      {"ClassProbAboveOne", false, replace(p, "0\t0.25", "0\t1.5"), "Unexpected class parameter: 1.500000 \\(class=0\\)$"},
      {"NegativeAttrProb", false, replace(p, "3\t1\tbig\t0.5", "3\t1\tbig\t-0.1"),
       "Unexpected attribute parameter: -0.100000 \\(class=1, attribute=3\\)$"},
      {"ClassFields", false, replace(p, "0\t0.25", "0\t0.25\t1"),
       "\\[ID:501\\] Illegal line 4 in .*: Unexpected number of fields for class probs\n0\t0.25\t1\n$"},
      {"ClassNumberText", false, replace(p, "0\t0.25", "x\t0.25"), "illegal format for an integer\nx\t0.25\n\\^\n"},
      {"ProbText", false, replace(p, "0\t0.25", "0\t0.25x"), "illegal format for an floating-point number\n0\t0.25x\n  \\^\n"},
      {"ContinuousAttrInCatSection", false, replace(p, "0\t0\tred", "1\t0\tred"), "\\[ID:513\\].*Unexpected attribute ID"},
      {"EmptyValue", false, replace(p, "0\t0\tred", "0\t0\t"), "\\[ID:514\\].*Empty value\n0\t0\t\t0.5\n$"},
      {"RepeatedValue", false, replace(p, "0\t0\tblue", "0\t0\tred"),
       "\\[.*t_param.txt, line 10\\] Found an inconsistent entry \\(0\t0\tred\t0.5\n\\)$"},
      {"CatFields", false, replace(p, "0\t0\tred\t0.5", "0\t0\tred"),
       "\\[ID:511\\].*Unexpected number of fields for discrete attribute probs"},
      {"TooManySections", false, p + "####\n0\t0\t1\t1\n", "Too many attribute parameter fields in .*t_param.txt\n$"},
      {"MeanFields", false, replace(p, "0\t0\t1\t1.5", "0\t0\t1\t1.5\t2"),
       "\\[ID:522\\].*Unexpected number of fields for means of continuous attributes"},
      {"CovarFields", false, replace(p, "0\t0\t1\t1\t2", "0\t0\t1\t2"),
       "\\[ID:523\\].*Unexpected number of fields for covariances of continuous attributes"},
      {"UnknownGroup", false, replace(p, "0\t0\t1\t1.5", "1\t0\t1\t1.5"), "\\[ID:526\\].*Unexpected Gauss ID"},
      {"SingularCovariance", false, replace(p, "0\t1\t1\t1\t4", "0\t1\t1\t1\t2"),
       "Numerical error \\(read_param\\): Failed to invert covariances"},
      {"ClassBelowMinusOne", true, replace(h, "0\t2\n", "0\t-1.5\n"), "Illegal class hyperparameter: -1.500000 \\(class=0\\)\n$"},
      {"AttrBelowMinusOne", true, replace(h, "3\t1\tsmall\t2", "3\t1\tsmall\t-2"),
       "Illegal attribute hyperparameter: -2.000000 \\(class=1, attribute=3\\)\n$"},
      {"UnknownValue", true, replace(h, "0\t0\tblue", "0\t0\tgreen"), "\\[ID:616\\].*Unknown attribute value"},
      {"HparamClassFields", true, replace(h, "1\t3\n", "1\n"), "\\[ID:601\\].*Unexpected # of fields for class probs"},
      {"HparamCatFields", true, replace(h, "0\t0\tred\t5", "0\t0\tred"),
       "\\[ID:611\\].*Unexpected # of fields for discrete attribute probs"},
      {"TauFields", true, replace(h, "0\t0.5\n", "0\t0.5\t1\n"),
       "\\[ID:631\\].*Unexpected # of fields for tau's in Normal Wishart distrib."},
      {"AlphaFields", true, replace(h, "0\t0\t3\n", "0\t3\n"),
       "\\[ID:632\\].*Unexpected # of fields for alpha's in Normal Wishart distrib."},
      {"NoAlpha", true, h.substr(0, h.find("#### ID:HPARAM-GAUSS-ALPHA0")),
       "Insufficiennt hyperparameter specifications in .* \\(#data-matrices = 6\\)\n$"},
      {"HparamTooMany", true, h + "####\n0\t0\t1\n", "Too many attribute hyperparameter fields in .*\n$"},
      {"HparamMeanFields", true, replace(h, "0\t0\t1\t1\n", "0\t0\t1\n"),
       "\\[ID:622\\].*Unexpected # of fields for means of continuous attributes"},
      {"HparamCovarFields", true, replace(h, "0\t0\t1\t1\t2\n", "0\t0\t1\t1\n"),
       "\\[ID:623\\].*Unexpected # of fields for covariances of continuous attributes"},
      {"HparamGroupSecond", true, replace(h, "1\t0\t1\t3\n", "0\t1\t1\t3\n"), "\\[ID:626\\].*Unexpected Gauss ID"},
  };
}

TEST_F(ReadParamTest, RejectsMalformedFiles) {
  for (const BadFile &b : bad_files()) {
    SCOPED_TRACE(b.name);
    write(b.hparam ? settings.fname_hparam : settings.fname_param, b.text);
    EXPECT_EXIT((b.hparam ? (read_cases(), read_hparam()) : read_param()), ::testing::ExitedWithCode(1), b.message);
  }
  unlink(settings.fname_param);
  EXPECT_EXIT(read_param(), ::testing::ExitedWithCode(1), "Couldn't open .*t_param.txt\n$");
}

// ---- mutated files ----------------------------------------------------------

// One random change: truncation, a line swapped, dropped or repeated, a
// number replaced, junk bytes inserted, or one character changed.
std::string mutate(std::string text, std::mt19937 &rng) {
  auto pick = [&rng](size_t n) { return n == 0 ? 0 : static_cast<size_t>(rng() % n); };
  std::vector<std::string> lines;
  for (size_t at = 0, end; at < text.size(); at = end) {
    end = text.find('\n', at);
    end = end == std::string::npos ? text.size() : end + 1;
    lines.push_back(text.substr(at, end - at));
  }
  if (lines.empty()) return text;
  size_t i = pick(lines.size()), j = pick(lines.size());
  static const char *const numbers[] = {"-1", "0", "1e999", "nan", "2147483648", "-0", "1.5", "1e-5000",
                                        "99999999999", "0x10", "", "-2147483649", "3", "-inf"};
  static const char subst[] = {',', '\t', '#', ' ', '\n', '\r', '%', '~'};
  std::string junk;
  size_t at = text.find_first_of("0123456789", pick(text.size()));
  switch (rng() % 7) {
    case 0: return text.substr(0, pick(text.size() + 1));
    case 1: std::swap(lines[i], lines[j]); break;
    case 2: lines.erase(lines.begin() + static_cast<long>(i)); break;
    case 3: lines.insert(lines.begin() + static_cast<long>(i), lines[i]); break;
    case 4:
      if (at == std::string::npos) return text;
      return text.replace(at, text.find_first_not_of("0123456789.e-", at) - at, numbers[pick(14)]);
    case 5:
      for (size_t n = 1 + pick(8); n > 0; n--) junk += static_cast<char>(rng() % 256);
      return text.insert(pick(text.size() + 1), junk);
    default: text[pick(text.size())] = subst[pick(sizeof subst)]; return text;
  }
  std::string out;
  for (const std::string &l : lines) out += l;
  return out;
}

// Exit status of a child that reads the file, or 128 + signal number. A
// parameter file goes through the whole read-parameter run.
int run_child(bool hparam) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    if (!freopen("/dev/null", "w", stderr)) _exit(2);
    alarm(60);  // a hang shows up as a signal, not as a stuck test
    settings.fp_log = tmpfile();
    settings.mode_memp = settings.mode_show_attr_memp = settings.mode_show_attr_cluster = 1;
    if (hparam) {
      settings.mode_read_hparam = 1;
      read_hparam();
      check_read_hparam();
    } else {
      settings.mode_em = 0;
      no_em_main();
    }
    _exit(0);
  }
  int st = 0;
  waitpid(pid, &st, 0);
  return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

TEST_F(ReadParamTest, MutatedFilesEndCleanly) {
  for (bool hparam : {false, true}) {
    const std::string &base = hparam ? kHparam : kParam;
    const char *path = hparam ? settings.fname_hparam : settings.fname_param;
    if (hparam) read_cases();
    write(path, base);
    ASSERT_EQ(run_child(hparam), 0) << "the unmutated file must be accepted";
    std::mt19937 rng(hparam ? 7u : 20261122u);
    int rejected = 0, count = hparam ? 150 : 250;
    for (int i = 0; i < count; i++) {
      std::string text = base;
      for (unsigned m = 1 + rng() % 3; m > 0; m--) text = mutate(text, rng);
      write(path, text);
      int status = run_child(hparam);
      ASSERT_TRUE(status == 0 || status == 1) << "status " << status << " for:\n" << text;
      rejected += status;
    }
    EXPECT_GT(rejected, count / 4);  // a swap of two equal rows, say, changes nothing
  }
}

}  // namespace
