// Writers of the membership sections (the membership file), the cluster
// sections (the cluster file and the cluster sizes in the log) and the
// timing sections.
#include <cstdio>

#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "input/read_param.h"
#include "model/allocate.h"
#include "model/cluster.h"
#include "output/print.h"
#include "output/print_common.h"

namespace {

int num_k() { return model.num_class; }

// ---- membership sections --------------------------------------------------------

void print_member_cat(FILE *fp, int a) {
  int d = settings.attr_info[a].index;
  add_desc_id("MEMBER-CAT%d", a);
  add_desc_col("Attr. ID");
  add_desc_col("Attr. value x%d", a);
  add_desc_col("Class k");
  add_desc_col("Class prob. P(k)");
  add_desc_col("Component prob. P(x%d|k)", a);
  add_desc_col("Marginal prob. P(x%d)", a);
  add_desc_col("Membership prob. P(k|x%d)", a);
  flush_desc(fp);
  for (int i = 0; i < cases.num_word[d]; i++) {
    int v = cases.print_order[d][i];
    for (int k = 0; k < num_k(); k++)
      print_data(fp, "%d,%s,%d,%.Ng,%.Ng,%.Ng,%.Ng", a, cases.word_list[d][v], k, model.param_c[k],
                 member.prob_compo_w[k][d][v], member.prob_w[d][v], member.prob_mem_w[k][d][v]);
  }
}

void print_member_gauss(FILE *fp, int g) {
  add_desc_id("MEMBER-GAUSS%d", g);
  add_desc_col("Gauss ID");
  add_desc_col("Case ID");
  add_desc_group_attr(g, "Attr. x%d");
  add_desc_col("Class k");
  add_desc_col("Class prob. P(k)");
  add_desc_col("Component prob. P(Gauss%d|k)", g);
  add_desc_col("Marginal prob. P(Gauss%d)", g);
  add_desc_col("Membership prob. P(k|Gauss%d)", g);
  flush_desc(fp);
  for (int n = 0; n < cases.num_entry; n++)
    for (int k = 0; k < num_k(); k++) {
      add_data_int(g);
      add_data_str(get_case_id(n));
      add_data_group_values(g, n);
      add_data_int(k);
      add_data_float(model.param_c[k]);
      add_data_float(member.prob_compo_g[k][g][n]);
      add_data_float(member.prob_g[g][n]);
      add_data_float(member.prob_mem_g[k][g][n]);
      flush_data(fp);
    }
}

// ---- cluster sections -----------------------------------------------------------------

void print_cluster_case_by_case(FILE *fp) {
  add_desc_id("CLUSTER-CASE-BY-CASE");
  add_desc_col("Case ID");
  if (settings.mode_eval) add_desc_col("Answer class");
  add_desc_col("Cluster k");
  if (!settings.mode_hide_attr) add_desc_col("Attribute values x");
  add_desc_col("Membership prob. P(k|x)");
  flush_desc(fp);
  for (int n = 0; n < cases.num_entry; n++) {
    int k = clusters.cluster_case_pred[n];
    add_data_str(get_case_id(n));
    if (settings.mode_eval) add_data_str(get_ans_class(n));
    add_data_int(k);
    add_data_attr_values(n);
    add_data_float(member.prob_mem_case[k][n]);
    flush_data(fp);
  }
}

void print_cluster_case_by_cluster(FILE *fp) {
  add_desc_id("CLUSTER-CASE-BY-CLUSTER");
  add_desc_col("Cluster k");
  if (settings.mode_eval) add_desc_col("Answer class");
  add_desc_col("Case ID");
  if (!settings.mode_hide_attr) add_desc_col("Attribute values x");
  add_desc_col("Membership prob. P(k|x)");
  flush_desc(fp);
  for (int k = 0; k < num_k(); k++)
    for (int i = 0; i < clusters.cluster_case_freq[k]; i++) {
      int n = clusters.cluster_case[k][i];
      add_data_int(k);
      if (settings.mode_eval) add_data_str(get_ans_class(n));
      add_data_str(get_case_id(n));
      add_data_attr_values(n);
      add_data_float(member.prob_mem_case[k][n]);
      flush_data(fp);
    }
}

void print_cluster_cat(FILE *fp, int a) {
  int d = settings.attr_info[a].index;
  const char **words = cases.word_list[d];
  add_desc_id("CLUSTER-CAT%d-BY-ATT", a);
  add_desc_col("Attr. ID");
  add_desc_col("Attr. x%d", a);
  add_desc_col("Cluster k");
  add_desc_col("Membership prob. P(k|x%d)", a);
  flush_desc(fp);
  for (int i = 0; i < cases.num_word[d]; i++) {
    int v = cases.print_order[d][i];
    int k = clusters.cluster_w_pred[d][v];
    print_data(fp, "%d,%s,%d,%.Ng", a, words[v], k, member.prob_mem_w[k][d][v]);
  }
  add_desc_id("CLUSTER-CAT%d-BY-CLUSTER", a);
  add_desc_col("Attr. ID");
  add_desc_col("Cluster k");
  add_desc_col("Attr. x%d", a);
  add_desc_col("Membership prob. P(k|x%d)", a);
  flush_desc(fp);
  for (int k = 0; k < num_k(); k++)
    for (int i = 0; i < clusters.cluster_w_freq[d][k]; i++) {
      int v = clusters.cluster_w[d][k][i];
      print_data(fp, "%d,%d,%s,%.Ng", a, k, words[v], member.prob_mem_w[k][d][v]);
    }
}

void print_cluster_gauss_by_case(FILE *fp, int g) {
  add_desc_id("CLUSTER-GAUSS%d-BY-CASE", g);
  add_desc_col("Gauss ID");
  add_desc_col("Case ID");
  add_desc_group_attr(g, "Attr. x%d");
  add_desc_col("Cluster k");
  add_desc_col("Membership prob. P(k|Gauss%d)", g);
  flush_desc(fp);
  for (int n = 0; n < cases.num_entry; n++) {
    int k = clusters.cluster_g_pred[g][n];
    add_data_int(g);
    add_data_str(get_case_id(n));
    add_data_group_values(g, n);
    add_data_int(k);
    add_data_float(member.prob_mem_g[k][g][n]);
    flush_data(fp);
  }
}

void print_cluster_gauss_by_cluster(FILE *fp, int g) {
  add_desc_id("CLUSTER-GAUSS%d-BY-CLUSTER", g);
  add_desc_col("Gauss ID");
  add_desc_col("Cluster k");
  add_desc_col("Case ID");
  add_desc_group_attr(g, "Attr. x%d");
  add_desc_col("Membership prob. P(k|Gauss%d)", g);
  flush_desc(fp);
  for (int k = 0; k < num_k(); k++)
    for (int i = 0; i < clusters.cluster_g_freq[g][k]; i++) {
      int n = clusters.cluster_g[g][k][i];
      add_data_int(g);
      add_data_int(k);
      add_data_str(get_case_id(n));
      add_data_group_values(g, n);
      add_data_float(member.prob_mem_g[k][g][n]);
      flush_data(fp);
    }
}

void print_freq_cat(FILE *fp, int a) {
  int d = settings.attr_info[a].index;
  add_desc_id("CLUSTER-FREQ-CAT%d", a);
  add_desc_col("Attr. ID");
  add_desc_col("Cluster for attr. %d", a);
  add_desc_col("Cluster size");
  flush_desc(fp);
  for (int k = 0; k < num_k(); k++) print_data(fp, "%d,%d,%d", a, k, clusters.cluster_w_freq[d][k]);
}

void print_freq_gauss(FILE *fp, int g) {
  add_desc_id("CLUSTER-FREQ-GAUSS%d", g);
  add_desc_col("Gauss ID");
  add_desc_col("Cluster for Gauss%d", g);
  add_desc_col("Cluster size");
  flush_desc(fp);
  for (int k = 0; k < num_k(); k++) print_data(fp, "%d,%d,%d", g, k, clusters.cluster_g_freq[g][k]);
}

// ---- timing -------------------------------------------------------------------------------

struct PhaseTime {
  const char *label;  // a print_data row format
  int enabled;
  long double start, end;
};

void print_phase_times(FILE *fp, const PhaseTime *phases, int n) {
  for (int i = 0; i < n; i++)
    if (phases[i].enabled) print_data(fp, phases[i].label, phases[i].end - phases[i].start);
}

}  // namespace

void print_case_member_prob(FILE *fp) {
  add_desc_id("MEMBER-CASE");
  add_desc_col("Case ID");
  if (settings.mode_eval) add_desc_col("Answer class");
  if (!settings.mode_hide_attr) add_desc_col("Attribute values x");
  add_desc_col("Class k");
  add_desc_col("Class prob. P(k)");
  add_desc_col("Component prob. P(x|k)");
  add_desc_col("Marginal prob. P(x)");
  add_desc_col("Membership prob. P(k|x)");
  flush_desc(fp);
  for (int n = 0; n < cases.num_entry; n++)
    for (int k = 0; k < num_k(); k++) {
      add_data_str(get_case_id(n));
      if (settings.mode_eval) add_data_str(get_ans_class(n));
      add_data_attr_values(n);
      add_data_int(k);
      add_data_float(model.param_c[k]);
      add_data_float(member.prob_compo_case[k][n]);
      add_data_float(member.prob_case[n]);
      add_data_float(member.prob_mem_case[k][n]);
      flush_data(fp);
    }
}

void print_attr_member_prob(FILE *fp) {
  if (settings.mode_nominal)
    for (int a = 0; a < settings.tuple_size; a++)
      if (discrete_index(a) >= 0) print_member_cat(fp, a);
  if (settings.mode_gauss)
    for (int g = 0; g < settings.gauss_size; g++) print_member_gauss(fp, g);
}

void print_cluster(FILE *fp) {
  if (settings.cl_type != 1) die("Internal error: Unsupported clustering method");
  print_cluster_case_by_case(fp);
  print_cluster_case_by_cluster(fp);
  if (!settings.mode_show_attr_cluster) return;
  if (settings.mode_nominal)
    for (int a = 0; a < settings.tuple_size; a++)
      if (discrete_index(a) >= 0) print_cluster_cat(fp, a);
  if (settings.mode_gauss)
    for (int g = 0; g < settings.gauss_size; g++) {
      print_cluster_gauss_by_case(fp, g);
      print_cluster_gauss_by_cluster(fp, g);
    }
}

void print_cluster_freq(FILE *fp) {
  if (fp == nullptr) return;
  add_desc_id("CLUSTER-FREQ-CASE");
  add_desc_col("Cluster for cases");
  add_desc_col("Cluster size");
  flush_desc(fp);
  for (int k = 0; k < num_k(); k++) print_data(fp, "%d,%d", k, clusters.cluster_case_freq[k]);
  if (!settings.mode_show_attr_cluster) return;
  if (settings.mode_nominal)
    for (int a = 0; a < settings.tuple_size; a++)
      if (discrete_index(a) >= 0) print_freq_cat(fp, a);
  if (settings.mode_gauss)
    for (int g = 0; g < settings.gauss_size; g++) print_freq_gauss(fp, g);
}

void print_time(FILE *fp, const PhaseTimes &t) {
  if (fp == nullptr) return;
  const RunSettings &s = settings;
  // Evaluation, ranking and dissimilarities are listed once their phase has
  // started its clock, not merely because their option was given.
  int ran_eval = s.mode_eval && t.stime_lap_eval > 0, ran_rank = s.mode_rank && t.stime_lap_rank > 0;
  int ran_dissim = s.mode_dissim && t.stime_lap_dissim > 0;
  const PhaseTime cpu[] = {
      {"Reading cases,%.Ng", 1, t.stime_read, t.etime_read},
      {"EM,%.Ng", s.mode_em, t.stime_em, t.etime_em},
      {"Computing membership probs,%.Ng", s.mode_memp, t.stime_memp, t.etime_memp},
      {"Computing clusters,%.Ng", s.mode_cluster, t.stime_cluster, t.etime_cluster},
      {"Evaluation,%.Ng", ran_eval, t.stime_eval, t.etime_eval},
      {"Relevance analysis,%.Ng", ran_rank, t.stime_rank, t.etime_rank},
      {"Computing dissimilarities,%.Ng", ran_dissim, t.stime_dissim, t.etime_dissim}};
  const PhaseTime lap[] = {
      {"Reading cases,%.Ng", 1, t.stime_lap_read, t.etime_lap_read},
      {"EM,%.Ng", s.mode_em, t.stime_lap_em, t.etime_lap_em},
      {"Computing membership probs,%.Ng", s.mode_memp, t.stime_lap_memp, t.etime_lap_memp},
      {"Computing clusters,%.Ng", s.mode_cluster, t.stime_lap_cluster, t.etime_lap_cluster},
      {"Evaluation,%.Ng", ran_eval, t.stime_lap_eval, t.etime_lap_eval},
      {"Relevance analysis,%.Ng", ran_rank, t.stime_lap_rank, t.etime_lap_rank},
      {"Computing dissimilarities,%.Ng", ran_dissim, t.stime_lap_dissim, t.etime_lap_dissim}};
  int n = static_cast<int>(sizeof cpu / sizeof cpu[0]);
  add_desc_id("CPUTIME");
  add_desc_col("CPU time [sec]");
  flush_desc(fp);
  print_phase_times(fp, cpu, n);
  add_desc_id("LAPTIME");
  add_desc_col("Elapsed time [sec]");
  flush_desc(fp);
  print_phase_times(fp, lap, n);
}
