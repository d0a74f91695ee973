// Parameter and hyperparameter file readers: a hand-written file read back
// and written again byte for byte, the stored arrays, and the rejection of
// malformed files with their messages.
#include "input/read_param.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/hash.h"
#include "input/read_freq.h"
#include "input/read_hparam.h"
#include "model/allocate.h"
#include "output/print.h"
#include "test_util.h"

namespace {

// Columns: 0 discrete (colour), 1 and 2 one Gaussian group, 3 discrete (size).
void set_mixed_roles() {
  settings.tuple_size = 4;
  settings.attr_info = static_cast<AttrInfo *>(calloc(4, sizeof(AttrInfo)));
  settings.attr_info[0] = AttrInfo{0, 0, 0};
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
  settings.tuple_size_c = 2;
  settings.tuple_size_d = 2;
  settings.tuple_size_all = 4;
  settings.mode_nominal = 1;
  settings.mode_gauss = 1;
  settings.format_in = settings.format_out = FORMAT_TXT;
}

const char kHead[] =
    "#### ID:PARAM-CLASS\n#### Class k, Class parameter P(k)\n####\n"
    "0\t0.25\n1\t0.75\n";
const char kCat[] =
    "#### ID:PARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. parameter P(x0|k)\n####\n"
    "0\t0\tred\t0.5\n0\t0\tblue\t0.5\n0\t1\tred\t0.125\n0\t1\tblue\t0.875\n"
    "#### ID:PARAM-CAT3\n#### Attr. ID, Class k, Attr. value x3, Attr. parameter P(x3|k)\n####\n"
    "3\t0\tsmall\t1\n3\t0\tbig\t0\n3\t1\tsmall\t0.5\n3\t1\tbig\t0.5\n";
const char kGauss[] =
    "#### ID:PARAM-GAUSS-MEAN0\n#### Gauss ID, Class k, Attr. ID, Mean\n####\n"
    "0\t0\t1\t1.5\n0\t0\t2\t-2\n0\t1\t1\t0\n0\t1\t2\t3\n"
    "#### ID:PARAM-GAUSS-COVAR0\n#### Gauss ID, Class k, Attr. ID, Attr. ID, (Co)Variance\n####\n"
    "0\t0\t1\t1\t2\n0\t0\t1\t2\t0.5\n0\t0\t2\t2\t1\n0\t1\t1\t1\t4\n0\t1\t1\t2\t-1\n0\t1\t2\t2\t0.5\n";

class ReadParamTest : public ::testing::Test {
 protected:
  std::string dir, path;
  void SetUp() override {
    setup_process_state();
    set_mixed_roles();
    cases = CaseTable();
    model = Model();
    char tmpl[] = "/tmp/vesk_rp_XXXXXX";
    dir = mkdtemp(tmpl);
    path = dir + "/t_param.txt";
    snprintf(settings.fname_param, sizeof settings.fname_param, "%s", path.c_str());
    snprintf(settings.fname_hparam, sizeof settings.fname_hparam, "%s/t_hparam.txt", dir.c_str());
  }
  void TearDown() override {
    cases = CaseTable();
    model = Model();
    std::string cmd = "rm -rf '" + dir + "'";
    if (system(cmd.c_str()) != 0) ADD_FAILURE() << cmd;
  }
  void write(const std::string &text, const char *file) {
    FILE *fp = fopen(file, "wb");
    fwrite(text.data(), 1, text.size(), fp);
    fclose(fp);
  }
  void write_param(const std::string &text) { write(text, settings.fname_param); }
};

TEST_F(ReadParamTest, ReadsEveryArrayAndWritesTheSameFileBack) {
  std::string text = std::string(kHead) + kCat + kGauss;
  write_param(text);
  read_param();
  ASSERT_EQ(settings.num_class, 2);
  ASSERT_EQ(cases.num_word[0], 2);
  ASSERT_EQ(cases.num_word[1], 2);
  EXPECT_EQ(lookup_hashtable(&cases.ht[0], "red"), 0);
  EXPECT_EQ(lookup_hashtable(&cases.ht[1], "big"), 1);
  EXPECT_EQ(model.param_c[1], 0.75L);
  EXPECT_EQ(model.param_w[1][0][1], 0.875L);
  EXPECT_EQ(model.param_w[0][1][1], 0.0L);
  EXPECT_EQ(model.param_u[0][0][1], -2.0L);
  // The lower triangle mirrors the upper one; precision and determinant
  // follow from the 2x2 closed forms.
  EXPECT_EQ(model.param_s[1][0][1][0], -1.0L);
  EXPECT_NEAR(static_cast<double>(model.param_sdet[0][0]), 1.75, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.param_sdet[1][0]), 1.0, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.param_p[1][0][0][0]), 0.5, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.param_p[1][0][0][1]), 1.0, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.param_p[0][0][1][1]), 2.0 / 1.75, 1e-15);
  // Values are printed in dictionary order, so the file comes back unchanged.
  FILE *fp = tmpfile();
  print_param(fp);
  EXPECT_EQ(stream_text(fp), text);
  fclose(fp);
}

TEST_F(ReadParamTest, CommaSeparatedFileAndLowerTriangleEntries) {
  settings.format_in = FORMAT_CSV;
  std::string text = std::string(kHead) + kCat + kGauss;
  for (char &c : text)
    if (c == '\t') c = ',';
  // A covariance given below the diagonal lands in the same place.
  size_t at = text.find("0,1,1,2,-1");
  text.replace(at, 10, "0,1,2,1,-1");
  write_param(text);
  read_param();
  EXPECT_EQ(model.param_s[1][0][0][1], -1.0L);
  EXPECT_EQ(model.param_s[1][0][1][0], -1.0L);
}

TEST_F(ReadParamTest, DiscreteOnlyModelAndBlankLines) {
  settings.mode_gauss = 0;
  settings.gauss_size = 0;
  settings.attr_info[1] = AttrInfo{0, 0, 1};
  settings.attr_info[2] = AttrInfo{0, 0, 2};
  settings.attr_info[3] = AttrInfo{0, 0, 3};
  settings.tuple_size_d = 4;
  settings.tuple_size_c = 0;
  std::string text = kHead;
  for (int a = 0; a < 4; a++)
    text += "####\n\n" + std::to_string(a) + "\t0\tv\t1\n" + std::to_string(a) + "\t1\tv\t1\n";
  write_param(text);
  read_param();
  EXPECT_EQ(settings.num_class, 2);
  for (int d = 0; d < 4; d++) EXPECT_EQ(cases.num_word[d], 1);
}

struct BadFile {
  const char *name;
  std::string text;
  const char *message;  // regular expression for the error stream
};

std::string replace(std::string text, const std::string &from, const std::string &to) {
  size_t at = text.find(from);
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

std::vector<BadFile> bad_param_files() {
  std::string good = std::string(kHead) + kCat + kGauss;
  return {
      {"ClassOrder", replace(good, "1\t0.75\n", "2\t0.75\n"),
       "\\[ID:503\\] Illegal line 5 in .*: Unexpected order of class numbers\n2\t0.75\n\\^\n"},
      {"ClassNotBelowCount", replace(good, "0\t1\tred", "0\t2\tred"),
       "Different number of classes exist in entries for P\\(c\\) and P\\(x1\\|c\\)\n$"},
      {"OnlyClassSection", kHead, "Insufficiennt parameter specifications in .* \\(#data-matrices = 1\\)\n"},
      {"ClassProbAboveOne", replace(good, "0\t0.25", "0\t1.5"), "Unexpected class parameter: 1.500000 \\(class=0\\)$"},
      {"NegativeAttrProb", replace(good, "3\t1\tbig\t0.5", "3\t1\tbig\t-0.1"),
       "Unexpected attribute parameter: -0.100000 \\(class=1, attribute=3\\)$"},
      {"ClassFields", replace(good, "0\t0.25", "0\t0.25\t1"),
       "\\[ID:501\\] Illegal line 4 in .*: Unexpected number of fields for class probs\n0\t0.25\t1\n$"},
      {"ClassNumberText", replace(good, "0\t0.25", "x\t0.25"), "illegal format for an integer\nx\t0.25\n\\^\n"},
      {"ProbText", replace(good, "0\t0.25", "0\t0.25x"),
       "illegal format for an floating-point number\n0\t0.25x\n  \\^\n"},
      {"ProbNotFinite", replace(good, "0\t0.25", "0\tinf"), "illegal format for an floating-point number"},
      {"ContinuousAttrInCatSection", replace(good, "0\t0\tred", "1\t0\tred"), "\\[ID:513\\].*Unexpected attribute ID"},
      {"EmptyValue", replace(good, "0\t0\tred", "0\t0\t"), "\\[ID:514\\].*Empty value\n0\t0\t\t0.5\n$"},
      {"RepeatedValue", replace(good, "0\t0\tblue", "0\t0\tred"),
       "\\[.*t_param.txt, line 10\\] Found an inconsistent entry \\(0\t0\tred\t0.5\n\\)$"},
      {"NewValueAfterFirstClass", replace(good, "0\t1\tblue", "0\t1\tgreen"), "Found an inconsistent entry"},
      {"CatFields", replace(good, "0\t0\tred\t0.5", "0\t0\tred"), "Unexpected number of fields for discrete attribute probs"},
      {"TooManySections", good + "####\n0\t0\t1\t1\n", "Too many attribute parameter fields in .*t_param.txt\n$"},
      {"NoCovariances", std::string(kHead) + kCat + "####\n0\t0\t1\t1.5\n",
       "\\(#data-matrices = 4\\)"},
      {"MeanFields", replace(good, "0\t0\t1\t1.5", "0\t0\t1\t1.5\t2"),
       "Unexpected number of fields for means of continuous attributes"},
      {"CovarFields", replace(good, "0\t0\t1\t1\t2", "0\t0\t1\t2"),
       "Unexpected number of fields for covariances of continuous attributes"},
      {"MeanOfDiscreteAttr", replace(good, "0\t0\t1\t1.5", "0\t0\t3\t1.5"), "\\[ID:528\\].*Unexpected attribute ID"},
      {"UnknownGroup", replace(good, "0\t0\t1\t1.5", "1\t0\t1\t1.5"), "\\[ID:526\\]"},
      {"SingularCovariance", replace(good, "0\t1\t1\t1\t4", "0\t1\t1\t1\t2"),
       "Numerical error \\(read_param\\): Failed to invert covariances"},
  };
}

TEST_F(ReadParamTest, RejectsMalformedFiles) {
  for (const BadFile &b : bad_param_files()) {
    SCOPED_TRACE(b.name);
    write_param(b.text);
    EXPECT_EXIT(read_param(), ::testing::ExitedWithCode(1), b.message);
  }
}

TEST_F(ReadParamTest, MissingFile) {
  EXPECT_EXIT(read_param(), ::testing::ExitedWithCode(1), "Couldn't open .*t_param.txt\n");
}

// ---- hyperparameter file ----------------------------------------------------

// The value dictionaries of a case file: colour red, blue; size big, small.
void set_case_dictionaries() {
  cases.ht = static_cast<HashTable *>(calloc(2, sizeof(HashTable)));
  cases.num_word = static_cast<int *>(calloc(2, sizeof(int)));
  const char *words[2][2] = {{"red", "blue"}, {"big", "small"}};
  for (int d = 0; d < 2; d++) {
    init_hashtable(&cases.ht[d]);
    for (const char *w : words[d]) register_hashtable(&cases.ht[d], w);
    cases.num_word[d] = 2;
  }
  cases.word_list = static_cast<const char ***>(calloc(2, sizeof(char **)));
  for (int d = 0; d < 2; d++) cases.word_list[d] = get_keys(&cases.ht[d]);
}

std::string hparam_text(const std::string &class0_count) {
  return "#### ID:HPARAM-CLASS\n####\n0\t" + class0_count + "\n1\t3\n" +
         "#### ID:HPARAM-CAT0\n####\n0\t0\tblue\t2\n0\t0\tred\t5\n0\t1\tred\t1.5\n0\t1\tblue\t2\n"
         "#### ID:HPARAM-CAT3\n####\n3\t0\tbig\t2\n3\t0\tsmall\t2\n3\t1\tbig\t2\n3\t1\tsmall\t2\n"
         "#### ID:HPARAM-GAUSS-MEAN0\n####\n0\t0\t1\t1\n0\t0\t2\t2\n1\t0\t1\t3\n1\t0\t2\t4\n"
         "#### ID:HPARAM-GAUSS-COVAR0\n####\n0\t0\t1\t1\t2\n0\t0\t1\t2\t0\n0\t0\t2\t2\t2\n"
         "1\t0\t1\t1\t1\n1\t0\t1\t2\t0.5\n1\t0\t2\t2\t1\n"
         "#### ID:HPARAM-GAUSS-TAU\n####\n0\t0.5\n1\t0.25\n"
         "#### ID:HPARAM-GAUSS-ALPHA0\n####\n0\t0\t3\n1\t0\t4\n";
}

TEST_F(ReadParamTest, HyperparametersMapValueTextsToCaseIds) {
  set_case_dictionaries();
  settings.mode_read_hparam = 1;
  write(hparam_text("-1"), settings.fname_hparam);
  read_hparam();
  ASSERT_EQ(settings.num_class, 2);
  EXPECT_EQ(model.hparam_c[0], -1.0L);  // down to -1 is accepted
  EXPECT_EQ(model.hparam_w[0][0][0], 5.0L);  // red has id 0 though listed second
  EXPECT_EQ(model.hparam_w[1][0][0], 1.5L);
  EXPECT_EQ(model.hparam_tau[1], 0.25L);
  EXPECT_EQ(model.hparam_alpha_w[1][0], 4.0L);
  EXPECT_EQ(model.hparam_u[1][0][1], 4.0L);
  EXPECT_EQ(model.hparam_s[1][0][1][0], 0.5L);
  EXPECT_NEAR(static_cast<double>(model.hparam_sdet[0][0]), 4.0, 1e-15);
  EXPECT_NEAR(static_cast<double>(model.hparam_p[1][0][0][1]), -0.5 / 0.75, 1e-15);
  // Written back in dictionary order, class before group in the Gaussian rows.
  FILE *fp = tmpfile();
  print_hparam(fp);
  std::string text = stream_text(fp);
  fclose(fp);
  EXPECT_NE(text.find("#### ID:HPARAM-CAT0\n#### Attr. ID, Class k, Attr. value x0, Attr. pseudo count "
                      "delta(x0|k)\n####\n0\t0\tred\t5\n0\t0\tblue\t2\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("#### ID:HPARAM-GAUSS-COVAR0\n#### Class k, Gauss ID, Attr. ID, Attr. ID, (Co)Variance\n"
                      "####\n0\t0\t1\t1\t2\n"),
            std::string::npos);
  EXPECT_NE(text.find("#### ID:HPARAM-GAUSS-TAU\n#### Class k, Tau\n####\n0\t0.5\n1\t0.25\n"
                      "#### ID:HPARAM-GAUSS-ALPHA0\n#### Class k, Gauss ID, Alpha\n####\n0\t0\t3\n1\t0\t4\n"),
            std::string::npos);
}

TEST_F(ReadParamTest, HyperparameterFileWithoutGaussians) {
  set_case_dictionaries();
  settings.mode_gauss = 0;
  settings.gauss_size = 0;
  settings.attr_info[1] = settings.attr_info[2] = AttrInfo{0, 0, 0};
  settings.attr_ignore = static_cast<int *>(calloc(4, sizeof(int)));
  settings.attr_ignore[1] = settings.attr_ignore[2] = 1;
  std::string text = hparam_text("2");
  write(text.substr(0, text.find("#### ID:HPARAM-GAUSS-MEAN0")), settings.fname_hparam);
  read_hparam();
  EXPECT_EQ(settings.num_class, 2);
  EXPECT_EQ(model.hparam_w[1][1][1], 2.0L);
}

TEST_F(ReadParamTest, RejectsMalformedHyperparameterFiles) {
  set_case_dictionaries();
  std::string good = hparam_text("2");
  const std::vector<BadFile> bad = {
      {"ClassBelowMinusOne", hparam_text("-1.5"), "Illegal class hyperparameter: -1.500000 \\(class=0\\)\n$"},
      {"AttrBelowMinusOne", replace(good, "3\t1\tsmall\t2", "3\t1\tsmall\t-2"),
       "Illegal attribute hyperparameter: -2.000000 \\(class=1, attribute=3\\)\n$"},
      {"UnknownValue", replace(good, "0\t0\tblue", "0\t0\tgreen"), "\\[ID:616\\].*Unknown attribute value"},
      {"ClassFields", replace(good, "1\t3\n", "1\n"), "\\[ID:601\\].*Unexpected # of fields for class probs"},
      {"TauFields", replace(good, "0\t0.5\n", "0\t0.5\t1\n"),
       "Unexpected # of fields for tau's in Normal Wishart distrib."},
      {"AlphaFields", replace(good, "0\t0\t3\n", "0\t3\n"),
       "Unexpected # of fields for alpha's in Normal Wishart distrib."},
      {"NoAlpha", good.substr(0, good.find("#### ID:HPARAM-GAUSS-ALPHA0")),
       "Insufficiennt hyperparameter specifications in .* \\(#data-matrices = 6\\)\n$"},
      {"TooMany", good + "####\n0\t0\t1\n", "Too many attribute hyperparameter fields in .*\n$"},
      {"MeanFields", replace(good, "0\t0\t1\t1\n", "0\t0\t1\n"),
       "Unexpected # of fields for means of continuous attributes"},
      {"CovarFields", replace(good, "0\t0\t1\t1\t2\n", "0\t0\t1\t1\n"),
       "Unexpected # of fields for covariances of continuous attributes"},
  };
  for (const BadFile &b : bad) {
    SCOPED_TRACE(b.name);
    write(b.text, settings.fname_hparam);
    EXPECT_EXIT(read_hparam(), ::testing::ExitedWithCode(1), b.message);
  }
}

}  // namespace
