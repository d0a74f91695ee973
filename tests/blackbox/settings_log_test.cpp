// The settings sections at the head of the log: rows, conditions and both
// delimiters. Runs may go on into the fit; only the settings are checked.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "run_vesk.h"

namespace {

using Rows = std::vector<std::string>;

// Runs vesk on a bundled data file and returns the log text.
std::string run_log(const std::string &data, const std::vector<std::string> &args,
                    const std::string &log) {
  TempDir dir;
  dir.copy_data(data);
  run_vesk(dir, args);
  return dir.read(log);
}

// Also: an unsigned seed of -1 prints through "%d", and --input is lower-cased.
TEST(SettingsLog, PlainRunOverDiscreteAttributes) {
  std::string log = run_log("titanic_freq.txt",
                            {"-f", "titanic", "-x", "4", "-k", "2", "-r", "-1", "--input", "TXT"},
                            "titanic_log.txt");
  EXPECT_EQ(log.rfind("#### ID:SETTING-VERSION\n#### Version\n####\n"
                      "VESK version 0.6 (ML+MAP, built on Apr 22 2011)\n#### ID:SETTING-FILE\n", 0),
            0u);
  EXPECT_EQ(section_lines(log, "SETTING-FILE")[1], "#### Input/Output, Contents, Filename");
  EXPECT_EQ(section_rows(log, "SETTING-FILE"),
            (Rows{"Input\tCases\ttitanic_freq.txt", "Output\tParameters\ttitanic_param.txt",
                  "Output\tClusters\ttitanic_cluster.txt", "Output\tLogs\ttitanic_log.txt"}));
  EXPECT_EQ(section_lines(log, "SETTING-FUNCTION")[1], "#### Major function, Enabled/Disabled");
  EXPECT_EQ(section_rows(log, "SETTING-FUNCTION"),
            (Rows{"Reading parameters\tDisabled", "Reading hyperparameters\tDisabled",
                  "Member distributions\tDisabled", "Clustering\tEnabled",
                  "Relevance analysis\tDisabled", "Dissimilarities\tDisabled",
                  "Model selection\tDisabled", "Deterministic annealing EM\tDisabled",
                  "Split-merge EM\tDisabled", "Evaluation\tDisabled"}));
  EXPECT_EQ(section_lines(log, "SETTING-SELECT"),
            (Rows{"#### ID:SETTING-SELECT", "#### Control parameter, Value", "####",
                  "Model score\tBIC"}));
  for (const char *id : {"SETTING-RANK", "SETTING-DAEM", "SETTING-SMEM", "SETTING-EVAL"})
    EXPECT_TRUE(section_lines(log, id).empty()) << id;
  EXPECT_EQ(section_rows(log, "SETTING-INOUT"),
            (Rows{"Target\ttitanic", "Suffix\t(none)", "Input file extension\ttxt",
                  "Output file extension\ttxt", "Log-scale computation\tDisabled",
                  "Ignoring extreme values when computing sample means/covars\tDisabled",
                  "Writing attvals in lexicographical order\tEnabled",
                  "Uncompressing identical objects\tDisabled", "Saving messages\tDisabled",
                  "Being verbose\tDisabled", "Showing attvals\tEnabled",
                  "Showing membership probs. for attributes\tDisabled",
                  "Showing clusters of attvals\tDisabled",
                  "Precision of float-point numbers [file output]\t12",
                  "Precision of float-point numbers [terminal message]\t6",
                  "Byte size [double]\t8", "Byte size [long-double]\t16"}));
  EXPECT_EQ(section_rows(log, "SETTING-EM"),
            (Rows{"Random seed\t-1", "Threshold for convergence\t0.001",
                  "Max num Of EM iterations\t3000", "Random restarts\tDisabled",
                  "Initialization method for class\tNOISY_UNIFORM",
                  "Initialization method for discrete attributes\tNOISY_UNIFORM",
                  "Noises in initialization of categorical parameters\t0.1"}));
  EXPECT_EQ(section_lines(log, "SETTING-MODEL-BASE")[1], "#### Model specification");
  EXPECT_EQ(section_rows(log, "SETTING-MODEL-BASE"),
            (Rows{"Num of classes\t2", "Num of attributes\t4", "Num of discrete attributes\t4",
                  "Num of continuous attributes\t0", "ID attribute\t(none)",
                  "Answer class attribute\t(none)", "Ignored attributes\t(none)",
                  "Discrete attributes\t0\t1\t2\t3", "Continuous attributes\t(none)"}));
  EXPECT_EQ(section_lines(log, "SETTING-MODEL-HPARAM")[1], "#### Hyperparameter, Value");
  EXPECT_EQ(section_rows(log, "SETTING-MODEL-HPARAM"),
            (Rows{"Pseudo count [class]\t0", "Pseudo count [attr 0]\t0", "Pseudo count [attr 1]\t0",
                  "Pseudo count [attr 2]\t0", "Pseudo count [attr 3]\t0"}));
}

TEST(SettingsLog, EveryFunctionEnabledInCommaSeparatedLog) {
  std::string log = run_log(
      "titanic_freq.txt",
      {"-f", "titanic", "-x", "4", "-k", "2:6:2", "-b", "-B", "0.25:1.5", "-o", "3", "-a", "5",
       "-G", "2", "--norm-jmerge", "--min-c-param", "0.01", "--min-new-c-param", "0.02", "-z",
       "10", "--hide-rank", "-E", "3", "--weight-wallance", "2", "-D", "--dissim", "-S", "-s",
       "x", "-j", "csv", "-n", "5", "-l", "10", "-e", "1e-4", "--init-c", "RANDOM", "--init-a",
       "v_freq", "--prec-out", "5", "-H"},
      "titanic_x_log.csv");
  EXPECT_EQ(section_rows(log, "SETTING-FILE"),
            (Rows{"Input,Cases,titanic_freq.txt", "Output,Parameters,titanic_x_param.csv",
                  "Input,Hyperparameters,titanic_x_hparam.txt",
                  "Output,Member distributions,titanic_x_memp.csv",
                  "Output,Dissimilarities,titanic_x_dissim.csv", "Output,Clusters,titanic_x_cluster.csv",
                  "Output,Rankings,titanic_x_rank.csv", "Output,Evaluation results,titanic_x_eval.csv",
                  "Output,Logs,titanic_x_log.csv", "Output,Message logs,titanic_x_msg.txt"}));
  for (const std::string &row : section_rows(log, "SETTING-FUNCTION"))
    EXPECT_TRUE(row.find(",Enabled") != std::string::npos || row == "Reading parameters,Disabled")
        << row;
  EXPECT_EQ(section_rows(log, "SETTING-RANK"),
            (Rows{"Hiding less relevant cases/attvals,Enabled", "Num of relevant cases/attvals,10"}));
  EXPECT_EQ(section_rows(log, "SETTING-DAEM"),
            (Rows{"Initial value of inverse temperature,0.25", "Update rate of inverse temperature,1.5"}));
  EXPECT_EQ(section_rows(log, "SETTING-SMEM"),
            (Rows{"Num of split-merge operations,3", "Max num of split-merge candidates,5",
                  "Max num of split candidates,2", "Normalization of J-merge,Enabled",
                  "Min class prob. before split-merge operation [0: No limit],0.01",
                  "Min class prob. after split-merge operation [0: No limit],0.02",
                  "Min improvement,0.001"}));
  EXPECT_EQ(section_rows(log, "SETTING-EVAL"),
            (Rows{"Weight in F-measure of Purity,1", "Weight in F-measure of Wallance's measures,2"}));
  Rows em = section_rows(log, "SETTING-EM");
  ASSERT_EQ(em.size(), 9u);
  EXPECT_EQ(Rows(em.begin() + 3, em.begin() + 8),
            (Rows{"Random restarts,Enabled", "Num. of restarts,5",
                  "Max num of EM iterations in restarts,10", "Initialization method for class,RANDOM",
                  "Initialization method for discrete attributes,WORD_FREQ"}));
  Rows base = section_rows(log, "SETTING-MODEL-BASE");
  ASSERT_GE(base.size(), 3u);
  EXPECT_EQ(Rows(base.begin(), base.begin() + 3),
            (Rows{"Num of classes [min],2", "Num of classes [max],6", "Num of classes [step],2"}));
  EXPECT_TRUE(section_lines(log, "SETTING-MODEL-HPARAM").empty());
}

TEST(SettingsLog, GaussianGroupsAndPriors) {
  std::string log = run_log("iris_freq.csv",
                            {"-f", "iris", "-x", "5", "-u", "2,0#3", "-y", "1", "-E", "4", "-k",
                             "3", "-T", "1", "-O", "5", "-K", "0.5", "-L", "const:2", "--extreme",
                             "0.1"},
                            "iris_log.csv");
  EXPECT_EQ(section_rows(log, "SETTING-MODEL-BASE"),
            (Rows{"Num of classes,3", "Num of attributes,5", "Num of discrete attributes,0",
                  "Num of continuous attributes,3", "ID attribute,(none)",
                  "Answer class attribute,4", "Ignored attributes,1", "Discrete attributes,(none)",
                  "Continuous attributes,0,2,3", "Attributes in Gauss0,0,2", "Dimension of Gauss0,2",
                  "Attributes in Gauss1,3", "Dimension of Gauss1,1"}));
  EXPECT_EQ(section_rows(log, "SETTING-MODEL-HPARAM"),
            (Rows{"Pseudo count [class],0", "Prior Tau,1", "Prior Alpha,5", "Prior Mean,0.5",
                  "Prior Sigma,Diagonal with all elements (variances) being 2"}));
  Rows em = section_rows(log, "SETTING-EM");
  ASSERT_GE(em.size(), 3u);
  EXPECT_EQ(Rows(em.end() - 3, em.end()),
            (Rows{"Noises in initialization of means of Gaussians,0.1",
                  "Threshold for extreme values (Min.),0.1", "Threshold for extreme values (Max.),0.9"}));
}

TEST(SettingsLog, DefaultGaussianPriorsWithAutoClass) {
  std::string log = run_log("iris_freq.csv",
                            {"-f", "iris", "-x", "5", "-u", "0-3", "-E", "4", "-k", "3", "-A"},
                            "iris_log.csv");
  EXPECT_EQ(section_rows(log, "SETTING-MODEL-HPARAM"),
            (Rows{"Pseudo count [class],AutoClass", "Prior Tau,AutoClass",
                  "Prior Alpha,Dimension + 1e-06", "Prior Mean,Sample mean",
                  "Prior Sigma,Sample covariances multiplied by 1"}));
}

struct AutoCase {
  std::vector<std::string> extra;
  std::string score, class_row, attr_row;
};

// --autoclass is read before the other options, so explicit ones win in any order.
TEST(SettingsLog, ExplicitSmoothingOverridesAutoClass) {
  const AutoCase cases[] = {
      {{"--autoclass", "--smooth-c", "0.5"}, "Cheeseman-Stutz score", "0.5", "AutoClass"},
      {{"--smooth-c", "0.5", "--autoclass"}, "Cheeseman-Stutz score", "0.5", "AutoClass"},
      {{"-g", "bic", "-A", "-w", "2"}, "BIC", "AutoClass", "2"},
  };
  for (const AutoCase &c : cases) {
    std::vector<std::string> args = {"-f", "titanic", "-x", "4", "-k", "2"};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    std::string log = run_log("titanic_freq.txt", args, "titanic_log.txt");
    EXPECT_EQ(section_rows(log, "SETTING-SELECT"), Rows{"Model score\t" + c.score}) << c.extra[0];
    Rows hp = section_rows(log, "SETTING-MODEL-HPARAM");
    ASSERT_EQ(hp.size(), 5u);
    EXPECT_EQ(hp[0], "Pseudo count [class]\t" + c.class_row) << c.extra[0];
    for (int a = 1; a < 5; a++)
      EXPECT_EQ(hp[a], "Pseudo count [attr " + std::to_string(a - 1) + "]\t" + c.attr_row);
  }
}

// The parameter file read carries the suffix; the case file never does.
TEST(SettingsLog, ReadParamRunHasNoEmSections) {
  TempDir dir;
  dir.copy_data("titanic_freq.txt");
  dir.write("titanic_r1_param.txt", "");
  run_vesk(dir, {"-f", "titanic", "-x", "4", "-R", "-s", "r1"});
  std::string log = dir.read("titanic_r1_log.txt");
  Rows files = section_rows(log, "SETTING-FILE");
  ASSERT_EQ(files.size(), 4u);
  EXPECT_EQ(files[1], "Input\tParameters\ttitanic_r1_param.txt");
  EXPECT_EQ(section_rows(log, "SETTING-FUNCTION")[0], "Reading parameters\tEnabled");
  for (const char *id : {"SETTING-SELECT", "SETTING-EM", "SETTING-MODEL-HPARAM"})
    EXPECT_TRUE(section_lines(log, id).empty()) << id;
}

}  // namespace
