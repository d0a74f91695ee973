// Writer of the evaluation file: the purity, pair-counting and information
// measures, and the contingency table of clusters and answer classes seen
// from either side.
#include <cstdio>

#include "analysis/eval.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "output/print.h"
#include "output/print_common.h"

namespace {

void measure_header(const char *id) {
  add_desc_id("%s", id);
  add_desc_col("Evaluation measure");
  add_desc_col("Value");
}

void print_eval_purity(FILE *fp) {
  measure_header("EVAL-PURITY");
  add_desc_comm("Weight in F-measure of Purity = %s", float2str(settings.weight_purity));
  flush_desc(fp);
  print_data(fp, "Purity,%.Ng", eval.purity);
  print_data(fp, "Inverse Purity,%.Ng", eval.purity_inv);
  print_data(fp, "F-Purity,%.Ng", eval.purity_f);
}

void print_eval_rand(FILE *fp) {
  measure_header("EVAL-RAND");
  add_desc_comm("Weight in F-measure of Wallance's measures = %s", float2str(settings.weight_wallance));
  flush_desc(fp);
  print_data(fp, "Rand index,%.Ng", eval.rand_index);
  print_data(fp, "Wallance's measure I,%.Ng", eval.wallance1);
  print_data(fp, "Wallance's measure II,%.Ng", eval.wallance2);
  print_data(fp, "F-measure of Wallance's measures,%.Ng", eval.wallance_f);
  print_data(fp, "Fowlkes and Mallows index,%.Ng", eval.fowlkes_mallows);
  print_data(fp, "Adjusted Rand index,%.Ng", eval.adj_rand_index);
  print_data(fp, "Jaccard index,%.Ng", eval.jaccard);
  print_data(fp, "Mirkin metric,%.Ng", eval.mirkin);
}

void print_eval_nmi(FILE *fp) {
  measure_header("EVAL-NMI");
  flush_desc(fp);
  print_data(fp, "Normalized mutual information,%.Ng", eval.nmi_score);
  print_data(fp, "Variation of information,%.Ng", eval.vi_score);
  print_data(fp, "Normalized variation of information,%.Ng", eval.nvi_score);
}

void print_cluster_match(FILE *fp) {
  int num_k = model.num_class, num_a = cases.num_ans_class;
  add_desc_id("CLUSTER-MATCH-BY-PREDICTED");
  add_desc_col("Cluster k [predicted]");
  add_desc_col("Answer class");
  add_desc_col("Num. of matched cases");
  flush_desc(fp);
  for (int k = 0; k < num_k; k++)
    for (int a = 0; a < num_a; a++)
      print_data(fp, "%d,%s,%d", k, cases.ans_class_list[a], eval.cluster_case_freq_joint[k][a]);
  add_desc_id("CLUSTER-MATCH-BY-ANSWER");
  add_desc_col("Answer class");
  add_desc_col("Cluster k [predicted]");
  add_desc_col("Num. of matched cases");
  flush_desc(fp);
  for (int a = 0; a < num_a; a++)
    for (int k = 0; k < num_k; k++)
      print_data(fp, "%s,%d,%d", cases.ans_class_list[a], k, eval.cluster_case_freq_joint[k][a]);
}

}  // namespace

void print_eval(FILE *fp) {
  print_eval_purity(fp);
  print_eval_rand(fp);
  print_eval_nmi(fp);
  print_cluster_match(fp);
}
