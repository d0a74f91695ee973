// A case table read by the real reader, and class and membership
// probabilities set by hand, for the ranking, dissimilarity and evaluation
// tests. Result files go to a fresh temporary folder.
#ifndef VESK_TESTS_ANALYSIS_FIXTURE_H
#define VESK_TESTS_ANALYSIS_FIXTURE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "case_file_util.h"
#include "model/allocate.h"
#include "model/cluster.h"

using Dists = std::vector<std::vector<long double>>;  // one distribution over the classes per item

class AnalysisTest : public ::testing::Test {
 protected:
  std::string dir;

  void SetUp() override {
    setup_process_state();
    model = Model();
    member = Membership();
    clusters = Clusters();
    char tmpl[] = "/tmp/vesk_an_XXXXXX";
    dir = mkdtemp(tmpl);
  }
  void TearDown() override {
    unload();
    settings.fp_log = nullptr;
    std::string cmd = "rm -rf '" + dir + "'";
    if (system(cmd.c_str()) != 0) ADD_FAILURE() << cmd;
  }
  void unload() {
    release_prob_mem();
    release_param();
  }

  std::string path(const char *name) const { return dir + "/" + name; }

  // Reads comma-separated `rows` with the given roles, sets K classes with
  // the class probabilities `c` and allocates the membership arrays (zero).
  void load(const Roles &roles, const char *rows, const std::vector<long double> &c) {
    unload();
    read_text_as(roles, rows);
    std::string file = settings.fname_freq;  // read: the file and its folder go
    remove(file.c_str());
    rmdir(file.substr(0, file.rfind('/')).c_str());
    settings.format_out = FORMAT_CSV;
    model.num_class = static_cast<int>(c.size());
    alloc_param();
    for (size_t k = 0; k < c.size(); k++) model.param_c[k] = c[k];
    alloc_prob_mem();
  }

  void set_case_members(const Dists &m) {
    for (size_t n = 0; n < m.size(); n++)
      for (size_t k = 0; k < m[n].size(); k++) member.prob_mem_case[k][n] = m[n][k];
  }
  void set_value_members(int d, const Dists &m) {
    for (size_t v = 0; v < m.size(); v++)
      for (size_t k = 0; k < m[v].size(); k++) member.prob_mem_w[k][d][v] = m[v][k];
  }
  void set_group_members(int g, const Dists &m) {
    for (size_t n = 0; n < m.size(); n++)
      for (size_t k = 0; k < m[n].size(); k++) member.prob_mem_g[k][g][n] = m[n][k];
  }

  // What `writer` writes to a file.
  template <typename Writer>
  std::string written(Writer writer) {
    FILE *fp = fopen(path("out.txt").c_str(), "wb");
    writer(fp);
    fclose(fp);
    return read_text(path("out.txt").c_str());
  }
};

#endif
