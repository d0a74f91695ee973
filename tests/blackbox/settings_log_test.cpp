// The settings sections at the head of the log: one run with every function
// enabled against a reviewed file, and the rows that follow from how options
// combine. Runs may go on into the fit; only the settings are checked.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

using Rows = std::vector<std::string>;

std::string run_log(const std::string &data, const std::vector<std::string> &args, const std::string &log) {
  TempDir dir;
  dir.copy_data(data);
  run_vesk(dir, args);
  return dir.read(log);
}

// The log up to the first section that is not a setting (or a failure line).
std::string settings_head(const std::string &log) {
  std::string out;
  for (const std::string &l : split_lines(log)) {
    if ((l.rfind("#### ID:", 0) == 0 && l.rfind("#### ID:SETTING-", 0) != 0) || l.rfind("[ID:", 0) == 0) break;
    out += l + "\n";
  }
  return out;
}

TEST(SettingsLog, EveryFunctionEnabledMatchesTheReviewedFile) {
  std::string log = run_log(
      "titanic_freq.txt",
      {"-f", "titanic", "-x", "4", "-k", "2:6:2", "-b", "-B", "0.25:1.5", "-o", "3", "-a", "5", "-G", "2",
       "--norm-jmerge", "--min-c-param", "0.01", "--min-new-c-param", "0.02", "-z", "10", "--hide-rank", "-E",
       "3", "--weight-wallance", "2", "-D", "--dissim", "-S", "-s", "x", "-j", "csv", "-n", "5", "-l", "10",
       "-e", "1e-4", "--init-c", "RANDOM", "--init-a", "v_freq", "--prec-out", "5", "-H", "-r", "7"},
      "titanic_x_log.csv");
  EXPECT_EQ(settings_head(log), read_file(std::string(VESK_TEST_DATA_DIR) + "/settings_every_function.csv"));
}

TEST(SettingsLog, GaussianGroupsAndPriors) {
  std::string log = run_log("iris_freq.csv",
                            {"-f", "iris", "-x", "5", "-u", "2,0#3", "-y", "1", "-E", "4", "-k", "3", "-T", "1",
                             "-O", "5", "-K", "0.5", "-L", "const:2", "--extreme", "0.1"},
                            "iris_log.csv");
  EXPECT_EQ(section_rows(log, "SETTING-MODEL-BASE"),
            (Rows{"Num of classes,3", "Num of attributes,5", "Num of discrete attributes,0",
                  "Num of continuous attributes,3", "ID attribute,(none)", "Answer class attribute,4",
                  "Ignored attributes,1", "Discrete attributes,(none)", "Continuous attributes,0,2,3",
                  "Attributes in Gauss0,0,2", "Dimension of Gauss0,2", "Attributes in Gauss1,3",
                  "Dimension of Gauss1,1"}));
  EXPECT_EQ(section_rows(log, "SETTING-MODEL-HPARAM"),
            (Rows{"Pseudo count [class],0", "Prior Tau,1", "Prior Alpha,5", "Prior Mean,0.5",
                  "Prior Sigma,Diagonal with all elements (variances) being 2"}));
  log = run_log("iris_freq.csv", {"-f", "iris", "-x", "5", "-u", "0-3", "-E", "4", "-k", "3", "-A"}, "iris_log.csv");
  EXPECT_EQ(section_rows(log, "SETTING-MODEL-HPARAM"),
            (Rows{"Pseudo count [class],AutoClass", "Prior Tau,AutoClass", "Prior Alpha,Dimension + 1e-06",
                  "Prior Mean,Sample mean", "Prior Sigma,Sample covariances multiplied by 1"}));
}

// --autoclass is read before the other options, so explicit ones win in any
// order; an unsigned seed of -1 prints through "%d", and --input is lower-cased.
TEST(SettingsLog, ExplicitSmoothingOverridesAutoClass) {
  const struct {
    std::vector<std::string> extra;
    std::string score, class_row, attr_row;
  } cases[] = {
      {{"--autoclass", "--smooth-c", "0.5"}, "Cheeseman-Stutz score", "0.5", "AutoClass"},
      {{"--smooth-c", "0.5", "--autoclass"}, "Cheeseman-Stutz score", "0.5", "AutoClass"},
      {{"-g", "bic", "-A", "-w", "2"}, "BIC", "AutoClass", "2"},
      {{"-r", "-1", "--input", "TXT"}, "BIC", "0", "0"},
  };
  for (const auto &c : cases) {
    std::string log = run_log("titanic_freq.txt", with({"-f", "titanic", "-x", "4", "-k", "2"}, c.extra),
                              "titanic_log.txt");
    EXPECT_EQ(section_rows(log, "SETTING-SELECT"), Rows{"Model score\t" + c.score}) << c.extra[0];
    Rows hp = section_rows(log, "SETTING-MODEL-HPARAM");
    ASSERT_EQ(hp.size(), 5u);
    EXPECT_EQ(hp[0], "Pseudo count [class]\t" + c.class_row) << c.extra[0];
    for (int a = 1; a < 5; a++) EXPECT_EQ(hp[a], "Pseudo count [attr " + std::to_string(a - 1) + "]\t" + c.attr_row);
  }
  std::string log = run_log("titanic_freq.txt", with({"-f", "titanic", "-x", "4", "-k", "2"}, cases[3].extra),
                            "titanic_log.txt");
  EXPECT_EQ(section_rows(log, "SETTING-EM")[0], "Random seed\t-1");
  EXPECT_EQ(section_rows(log, "SETTING-INOUT")[2], "Input file extension\ttxt");
}

// The parameter file read carries the suffix; the case file never does.
TEST(SettingsLog, ReadParamRunHasNoEmSections) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  dir.write("titanic_r1_param.txt", "");
  run_vesk(dir, {"-f", "titanic", "-x", "4", "-R", "-s", "r1"});
  std::string log = dir.read("titanic_r1_log.txt");
  EXPECT_EQ(section_rows(log, "SETTING-FILE"),
            (Rows{"Input\tCases\ttitanic_freq.txt", "Input\tParameters\ttitanic_r1_param.txt",
                  "Output\tClusters\ttitanic_r1_cluster.txt", "Output\tLogs\ttitanic_r1_log.txt"}));
  EXPECT_EQ(section_rows(log, "SETTING-FUNCTION")[0], "Reading parameters\tEnabled");
  for (const char *id : {"SETTING-SELECT", "SETTING-EM", "SETTING-MODEL-HPARAM"})
    EXPECT_TRUE(section_lines(log, id).empty()) << id;
}

}  // namespace
