// Writers of the rank file: per class, in decreasing order of the class
// probability, the most relevant cases, values of each discrete attribute and
// cases seen through each Gaussian group.
#include <cstdio>

#include "analysis/rank.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/cluster.h"
#include "output/print.h"
#include "output/print_common.h"

namespace {

const char kRankComment[] = "in the decending order of the class probs. and the membership probs.";

int num_k() { return model.num_class; }

// Number of cases listed per class: the count, unless a threshold is used or
// the count is below 1 or not below the number of entries.
int case_limit() {
  int n = cases.num_entry;
  if (settings.mode_rank_th || settings.num_rank < 1 || settings.num_rank >= n) return n;
  return settings.num_rank;
}

int value_limit(int num_values) {
  if (!settings.mode_rank_th && settings.num_rank > 0 && settings.num_rank < num_values) return settings.num_rank;
  return num_values;
}

// A list ends at its first entry below the threshold or, with --hide-rank,
// below 1/K.
bool ends_list(long double p) {
  if (settings.mode_rank_th && p < settings.rank_th) return true;
  return settings.mode_rank_hide && p < 1.0L / num_k();
}

void print_rank_case(FILE *fp) {
  add_desc_id("RANK-CASE");
  add_desc_col("Class k");
  if (settings.mode_eval) add_desc_col("Answer class");
  add_desc_col("Case ID");
  if (!settings.mode_hide_attr) add_desc_col("Attributes values x");
  add_desc_col("Class prob. P(k)");
  add_desc_col("Membership prob. P(k|x)");
  add_desc_comm("%s", kRankComment);
  flush_desc(fp);
  for (int r = 0; r < num_k(); r++) {
    int k = ranking.rank_class[r];
    for (int i = 0; i < case_limit(); i++) {
      int n = ranking.rank_mem_case[k][i];
      if (ends_list(member.prob_mem_case[k][n])) break;
      add_data_int(k);
      if (settings.mode_eval) add_data_str(get_ans_class(n));
      add_data_str(get_case_id(n));
      add_data_attr_values(n);
      add_data_float(model.param_c[k]);
      add_data_float(member.prob_mem_case[k][n]);
      flush_data(fp);
    }
  }
}

void print_rank_cat(FILE *fp, int a) {
  int d = discrete_index(a);
  add_desc_id("RANK-CAT%d", a);
  add_desc_col("Attr. ID");
  add_desc_col("Class k");
  add_desc_col("Attr. value x%d", a);
  add_desc_col("Class prob. P(k)");
  add_desc_col("Membership prob. P(k|x%d)", a);
  add_desc_comm("%s", kRankComment);
  flush_desc(fp);
  for (int r = 0; r < num_k(); r++) {
    int k = ranking.rank_class[r];
    for (int i = 0; i < value_limit(cases.num_word[d]); i++) {
      int v = ranking.rank_mem_w[k][d][i];
      long double p = member.prob_mem_w[k][d][v];
      if (ends_list(p)) break;
      print_data(fp, "%d,%d,%s,%.Ng,%.Ng", a, k, cases.word_list[d][v], model.param_c[k], p);
    }
  }
}

void print_rank_gauss(FILE *fp, int g) {
  add_desc_id("RANK-GAUSS%d", g);
  add_desc_col("Gauss ID");
  add_desc_col("Class k");
  add_desc_col("Case ID");
  add_desc_group_attr(g, "Attr. x%d");
  add_desc_col("Class prob. P(k)");
  add_desc_col("Membership prob. P(k|Gauss%d)", g);
  add_desc_comm("%s", kRankComment);
  flush_desc(fp);
  for (int r = 0; r < num_k(); r++) {
    int k = ranking.rank_class[r];
    for (int i = 0; i < case_limit(); i++) {
      int n = ranking.rank_mem_g[k][g][i];
      if (ends_list(member.prob_mem_g[k][g][n])) break;
      add_data_int(g);
      add_data_int(k);
      add_data_str(get_case_id(n));
      add_data_group_values(g, n);
      add_data_float(model.param_c[k]);
      add_data_float(member.prob_mem_g[k][g][n]);
      flush_data(fp);
    }
  }
}

}  // namespace

void print_rank(FILE *fp) {
  if (settings.rel_m != 1) die("Internal error: Unexpected relevance measure between class and attribute values\n");
  print_rank_ml(fp);
}

void print_rank_ml(FILE *fp) {
  print_rank_case(fp);
  if (settings.mode_nominal)
    for (int a = 0; a < settings.tuple_size; a++)
      if (discrete_index(a) >= 0) print_rank_cat(fp, a);
  if (settings.mode_gauss)
    for (int g = 0; g < settings.gauss_size; g++) print_rank_gauss(fp, g);
}
