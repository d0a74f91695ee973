// Sections about the case table (value lists, answer classes, the cases
// themselves) and the sample statistics.
#include <cstdlib>

#include "input/stat.h"
#include "base/hash.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "output/print.h"
#include "output/print_common.h"

namespace {

void print_attr_freq(FILE *fp, int a) {
  int col = discrete_column(a);
  add_desc_id("FREQ-CAT%d", col);
  add_desc_col("Attr. ID");
  add_desc_col("ID of attr. value x%d", col);
  add_desc_col("Attr. value x%d", col);
  add_desc_col("Num. of occurrences N(x%d)", col);
  flush_desc(fp);
  for (int k = 0; k < cases.num_word[a]; k++) {
    int v = cases.print_order[a][k];
    print_data(fp, "%d,%d,%s,%d", col, v, cases.word_list[a][v], cases.word_freq_list[a][v]);
  }
}

void print_attr_vals(FILE *fp, int a) {
  int col = discrete_column(a);
  add_desc_id("ATTVAL%d", col);
  add_desc_col("ID for the attribute value");
  add_desc_col("Attr. value x%d", col);
  flush_desc(fp);
  for (int k = 0; k < cases.num_word[a]; k++) {
    int v = cases.print_order[a][k];
    print_data(fp, "%d,%s", v, cases.word_list[a][v]);
  }
}

void print_stat_basic_cat(FILE *fp) {
  add_desc_id("STAT-BASIC-CAT");
  add_desc_col("Attr. ID");
  add_desc_col("Num. of distinct values");
  add_desc_col("Mode value");
  add_desc_col("Mode count");
  add_desc_comm("Only for discrete attributes");
  flush_desc(fp);
  for (int a = 0; a < settings.tuple_size_d; a++) {
    int col = discrete_column(a);
    const AttrStat &st = stats.attr_stat[col];
    const char *mode = st.mode_value != nullptr ? st.mode_value : "N/A";
    print_data(fp, "%d,%d,%s,%d", col, st.num_values, mode, st.mode_count);
  }
}

void print_stat_basic_gauss(FILE *fp) {
  add_desc_id("STAT-BASIC-GAUSS");
  const char *cols[] = {"Gauss ID", "Attr. ID", "Min.", "Mean", "Median", "Max.", "Var.", "Std."};
  for (const char *c : cols) add_desc_col("%s", c);
  add_desc_comm("Only for continuous attributes");
  flush_desc(fp);
  for (int g = 0; g < settings.gauss_size; g++) {
    for (int k = 0; k < settings.gauss_attr_size[g]; k++) {
      int col = settings.gauss_attr[g][k];
      const AttrStat &st = stats.attr_stat[col];
      print_data(fp, "%d,%d,%.Ng,%.Ng,%.Ng,%.Ng,%.Ng,%.Ng", g, col, st.min, st.mean, st.median, st.max,
                 st.var, st.std);
    }
  }
}

void print_stat_percentile(FILE *fp) {
  static const int pct[7] = {5, 10, 25, 50, 75, 90, 95};
  add_desc_id("STAT-PERCENTILE");
  add_desc_col("Attr. ID");
  add_desc_col("Percent");
  add_desc_col("Percentile");
  flush_desc(fp);
  for (int g = 0; g < settings.gauss_size; g++) {
    for (int k = 0; k < settings.gauss_attr_size[g]; k++) {
      int col = settings.gauss_attr[g][k];
      const AttrStat &st = stats.attr_stat[col];
      print_data(fp, "%d,0,%.Ng", col, st.min);
      for (int p = 0; p < 7; p++) print_data(fp, "%d,%d,%.Ng", col, pct[p], st.pct[p]);
      print_data(fp, "%d,100,%.Ng", col, st.max);
    }
  }
}

void print_covar(FILE *fp, const Matrix *s) {
  for (int g = 0; g < settings.gauss_size; g++) {
    int d = settings.gauss_attr_size[g];
    for (int i = 0; i < d; i++)
      for (int j = 0; j < d; j++)
        print_data(fp, "%d,%d,%d,%.Ng", g, settings.gauss_attr[g][i], settings.gauss_attr[g][j], s[g][i][j]);
  }
}

void covar_header(const char *id) {
  add_desc_id("%s", id);
  add_desc_col("Gauss ID");
  add_desc_col("Attr. ID");
  add_desc_col("Attr. ID");
  add_desc_col("(Co)Variance");
}

}  // namespace

void print_case_freq_list(FILE *fp) {
  add_desc_id("FREQ-CASE");
  add_desc_col("Case ID");
  if (settings.mode_eval) add_desc_col("Answer class");
  if (!settings.mode_hide_attr) add_desc_col("Attribute values x");
  add_desc_col("Num. of occurrences N(x)");
  flush_desc(fp);
  for (int e = 0; e < cases.num_entry; e++) {
    const CaseRecord &r = cases.freq_list[e];
    add_data_str(get_case_id(e));
    if (settings.mode_eval) add_data_str(cases.ans_class_list[r.ans_class]);
    add_data_attr_values(e);
    add_data_int(r.count);
    flush_data(fp);
  }
}

void print_attr_freq_list(FILE *fp) {
  for (int a = 0; a < settings.tuple_size_d; a++) print_attr_freq(fp, a);
  for (int a = 0; a < settings.tuple_size_d; a++) print_attr_vals(fp, a);
}

void print_ans_class_list(FILE *fp) {
  add_desc_id("ANS-CLASS");
  add_desc_col("Answer class");
  add_desc_col("Num of occurrences");
  flush_desc(fp);
  HashRecord *rec = get_entries(&cases.ht_class);
  for (int c = 0; c < cases.num_ans_class; c++) print_data(fp, "%s,%d", rec[c].key, rec[c].count);
  free(rec);
}

void print_reader_sections(FILE *fp) {
  if (fp == nullptr) return;
  if (settings.mode_eval) print_ans_class_list(fp);
  if (settings.mode_verbose) {
    print_case_freq_list(fp);
    print_attr_freq_list(fp);
  }
}

void print_basic_stats(FILE *fp) {
  print_stat_basic_cat(fp);
  print_stat_basic_gauss(fp);
  print_stat_percentile(fp);
}

void print_sample_stats(FILE *fp) {
  add_desc_id("STAT-GAUSS-MEAN");
  add_desc_col("Gauss ID");
  add_desc_col("Attr. ID");
  add_desc_col("Mean");
  flush_desc(fp);
  for (int g = 0; g < settings.gauss_size; g++)
    for (int i = 0; i < settings.gauss_attr_size[g]; i++)
      print_data(fp, "%d,%d,%.Ng", g, settings.gauss_attr[g][i], stats.sample_u_raw[g][i]);
  covar_header("STAT-GAUSS-COVAR");
  flush_desc(fp);
  print_covar(fp, stats.sample_s_raw);
}

void print_regular_stat(FILE *fp) {
  const char *note = "These are the statistics when ignoring extreme values";
  add_desc_id("STAT-REGULAR-Q");
  add_desc_col("Q-min.");
  add_desc_col("Q-max.");
  add_desc_comm("The values below Q-min. or above Q-max. are considered as extreme values");
  flush_desc(fp);
  print_data(fp, "%.Ng,%.Ng", settings.q_regular_min, settings.q_regular_max);
  add_desc_id("STAT-REGULAR-MEAN");
  const char *cols[] = {"Gauss ID", "Attr. ID", "Min.", "Mean", "Max."};
  for (const char *c : cols) add_desc_col("%s", c);
  add_desc_comm("%s", note);
  flush_desc(fp);
  for (int g = 0; g < settings.gauss_size; g++)
    for (int i = 0; i < settings.gauss_attr_size[g]; i++)
      print_data(fp, "%d,%d,%.Ng,%.Ng,%.Ng", g, settings.gauss_attr[g][i], stats.regular_min[g][i],
                 stats.regular_u[g][i], stats.regular_max[g][i]);
  covar_header("STAT-REGULAR-COVAR");
  add_desc_comm("%s", note);
  flush_desc(fp);
  print_covar(fp, stats.regular_s);
}

void print_stats(FILE *fp) {
  if (fp == nullptr) return;
  print_basic_stats(fp);
  if (settings.gauss_size > 0) {
    print_sample_stats(fp);
    print_regular_stat(fp);
  }
}
