// Log sections of the fit: sizes, AutoClass constants, scores, seeds, the
// objective trace, the decrease report and the verbose E-step dumps.
#include <cmath>
#include <cstdio>

#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/ic.h"
#include "output/print.h"
#include "output/print_common.h"

namespace {

// Rows per K exist only when EM searches a range; a parameter or
// hyperparameter file fixes K.
bool searched_range() {
  return settings.mode_em && settings.mode_search_num_class && !settings.mode_read_hparam;
}

int k_value(int kidx) { return searched_range() ? settings.kmin + kidx * settings.kstep : model.num_class; }

bool cases_merged() {
  return !settings.mode_uncompress && !settings.mode_id && !settings.mode_gauss;
}

void print_data_size(FILE *fp) {
  add_desc_id("DATASIZE");
  add_desc_col("Total num. of cases");
  add_desc_col("Num. of entries [original]");
  if (cases_merged()) add_desc_col("Num. of entries [multiple occurences compressed]");
  flush_desc(fp);
  if (cases_merged()) print_data(fp, "%d,%d,%d", cases.total_freq, cases.num_entry_pre, cases.num_entry);
  else print_data(fp, "%d,%d", cases.total_freq, cases.num_entry_pre);
}

void print_param_size(FILE *fp) {
  add_desc_id("PARAMSIZE");
  add_desc_col("Num. of classes");
  add_desc_col("Num. of class params");
  add_desc_col("Num. of params for discrete attrs");
  add_desc_col("Num. of params for continuous attrs");
  add_desc_col("Total num. of params");
  flush_desc(fp);
  for (int kidx = 0; kidx < model.num_kvalue; kidx++) {
    int k = k_value(kidx);
    long long pc = count_class_params(k), pd = count_discrete_params(k), pg = count_gauss_params(k);
    print_data(fp, "%d,%lld,%lld,%lld,%lld", k, pc, pd, pg, pc + pd + pg);
  }
}

void begin_missing_section(FILE *fp, const char *id) {
  add_desc_id("%s", id);
  add_desc_col("Attr. ID");
  add_desc_col("Num. of missing values");
  add_desc_col("Ratio of missing values");
  flush_desc(fp);
}

void print_missing(FILE *fp) {
  long double n = cases.total_freq;
  if (settings.mode_nominal) {
    begin_missing_section(fp, "NUM-MISSING-CAT");
    for (int a = 0; a < settings.tuple_size_d; a++)
      print_data(fp, "%d,%d,%.Ng", discrete_column(a), cases.num_miss_w[a], cases.num_miss_w[a] / n);
  }
  if (settings.mode_gauss) {
    begin_missing_section(fp, "NUM-MISSING-GAUSS");
    for (int g = 0; g < settings.gauss_size; g++)
      for (int i = 0; i < settings.gauss_attr_size[g]; i++)
        print_data(fp, "%d,%d,%.Ng", settings.gauss_attr[g][i], cases.num_miss_g[g][i],
                   cases.num_miss_g[g][i] / n);
  }
}

}  // namespace

void print_size(FILE *fp) {
  print_data_size(fp);
  print_param_size(fp);
  print_missing(fp);
}

void print_smooth(FILE *fp) {
  int k = model.num_class;
  if (settings.mode_smooth_auto_c == 2) {
    add_desc_id("AUTO-SMOOTH-CLASS-K%d", k);
    add_desc_col("Num. of classes");
    add_desc_col("Class smoothing constant [based on AutoClass]");
    flush_desc(fp);
    print_data(fp, "%d,%.Ng", k, model.smooth.c);
  }
  bool any = false;
  for (int a = 0; a < settings.tuple_size_d; a++) any = any || settings.mode_smooth_auto_w[a] == 2;
  if (!any) return;
  add_desc_id("AUTO-SMOOTH-CAT-K%d", k);
  add_desc_col("Num. of classes");
  add_desc_col("Attr. ID");
  add_desc_col("Attr. smoothing constant [based on AutoClass]");
  flush_desc(fp);
  for (int a = 0; a < settings.tuple_size_d; a++)
    if (settings.mode_smooth_auto_w[a] == 2)
      print_data(fp, "%d,%d,%.Ng", k, discrete_column(a), model.smooth.w[a]);
}

void print_ic(FILE *fp) {
  add_desc_id("SCORE");
  add_desc_col("Num. of classes");
  add_desc_col("BIC");
  add_desc_col("AUTOCLASS");
  add_desc_comm("Selected criterion = %s", settings.ic_type_str);
  add_desc_comm("Optimal num. of classes = %d", model.num_class_opt);
  flush_desc(fp);
  for (int kidx = 0; kidx < model.num_kvalue; kidx++) {
    if (settings.ic_type == 2)
      print_data(fp, "%d,%.Ng,%.Ng", k_value(kidx), model.bic[kidx], model.autoclass[kidx]);
    else
      print_data(fp, "%d,%.Ng,N/A", k_value(kidx), model.bic[kidx]);
  }
}

void print_seed(FILE *fp) {
  bool per_k = searched_range();
  for (int kidx = 0; kidx < model.num_kvalue; kidx++) {
    int k = k_value(kidx);
    if (per_k) add_desc_id("SEED-K%d", k);
    else add_desc_id("SEED");
    add_desc_col("Num. of classes");
    add_desc_col("Restart");
    add_desc_col("Random seed");
    add_desc_col("Num. of updates");
    add_desc_col(model.smooth.any ? "Log a posteriori prob." : "Log likelihood");
    add_desc_comm("Best seed = %d", static_cast<int>(model.log_seed[kidx][model.log_r_best[kidx]]));
    flush_desc(fp);
    for (int r = 0; r < settings.num_init; r++) {
      if (settings.mode_set_seed)
        print_data(fp, "%d,%d,N/A,%d,%.Ng", k, r, model.log_num_iterate[kidx][r],
                   model.log_final_lambda[kidx][r]);
      else
        print_data(fp, "%d,%d,%u,%d,%.Ng", k, r, model.log_seed[kidx][r], model.log_num_iterate[kidx][r],
                   model.log_final_lambda[kidx][r]);
    }
  }
}

void add_loglike_cols(bool map, bool daem) {
  add_desc_col("Num. of updates");
  add_desc_col("Log likelihood");
  if (map) {
    add_desc_col("Log prior prob.");
    add_desc_col("Log a posteriori prob.");
  }
  if (daem) add_desc_col("Inverse temperature");
}

void print_loglike(FILE *fp, int last_iter) {
  int k = model.num_class;
  bool map = model.smooth.any, daem = settings.mode_daem;
  add_desc_id("LOGLIKE-K%d", k);
  add_desc_col("Num. of classes");
  add_loglike_cols(map, daem);
  flush_desc(fp);
  for (int t = 0; t <= last_iter; t++) {
    if (map && daem)
      print_data(fp, "%d,%d,%.Ng,%.Ng,%.Ng,%.Ng", k, t, model.loglike[t], model.log_prior[t], model.lambda_[t],
                 model.log_itemp[t]);
    else if (map)
      print_data(fp, "%d,%d,%.Ng,%.Ng,%.Ng", k, t, model.loglike[t], model.log_prior[t], model.lambda_[t]);
    else if (daem)
      print_data(fp, "%d,%d,%.Ng,%.Ng", k, t, model.loglike[t], model.log_itemp[t]);
    else
      print_data(fp, "%d,%d,%.Ng", k, t, model.loglike[t]);
  }
}

void print_decrease(FILE *fp, int restart, int iter) {
  print_decrease_rows(fp, "Restart", restart, iter, model.loglike, model.lambda_);
}

void print_decrease_rows(FILE *fp, const char *stage, int stage_no, int iter, const long double *loglike,
                         const long double *lambda) {
  bool map = model.smooth.any;
  add_desc_id("ERR-MSG-DECREASE");
  add_desc_comm(map ? "Log posterior prob. decreased!" : "Log-likelihood decreased!");
  flush_desc(fp);
  print_data(fp, "NumberOfClasses,%d", model.num_class);
  print_data(fp, "%s,%d", stage, stage_no);
  print_data(fp, "NumberOfUpdates,%d", iter);
  print_data(fp, "LogLikelihoodBeforeUpdate,%.Ng", loglike[iter - 1]);
  print_data(fp, "LogLikelihoodAfterUpdate,%.Ng", loglike[iter]);
  if (!map) return;
  print_data(fp, "LogPostProbBeforeUpdate,%.Ng", lambda[iter - 1]);
  print_data(fp, "LogPostProbAfterUpdate,%.Ng", lambda[iter]);
}

namespace {

// Stored probabilities are logarithms in the log scale; the dumps show P.
long double as_prob(long double p) { return use_log_scale() ? expl(p) : p; }

}  // namespace

void print_complete_prob(FILE *fp) {
  add_desc_id("COMP");
  add_desc_col("Class k");
  add_desc_col("Case ID");
  if (!settings.mode_hide_attr) add_desc_col("Attribute values x");
  add_desc_col("Complete data prob. P(k,x)");
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++)
    for (int e = 0; e < cases.num_entry; e++) {
      add_data_int(k);
      add_data_str(get_case_id(e));
      add_data_attr_values(e);
      add_data_float(as_prob(model.prob_comp[k][e]));
      flush_data(fp);
    }
}

void print_incomplete_prob(FILE *fp) {
  add_desc_id("INCOMP");
  add_desc_col("Case ID");
  if (!settings.mode_hide_attr) add_desc_col("Attribute values x");
  add_desc_col("Incomplete data prob. P(x)");
  flush_desc(fp);
  for (int e = 0; e < cases.num_entry; e++) {
    add_data_str(get_case_id(e));
    add_data_attr_values(e);
    add_data_float(as_prob(model.prob_incomp[e]));
    flush_data(fp);
  }
}

void print_conditional_prob(FILE *fp) {
  add_desc_id("COND");
  add_desc_col("Case ID");
  if (!settings.mode_hide_attr) add_desc_col("Attribute values x");
  add_desc_col("Class k, Conditional prob. P(k|x)");
  flush_desc(fp);
  for (int e = 0; e < cases.num_entry; e++) {
    add_data_str(get_case_id(e));
    add_data_attr_values(e);
    for (int k = 0; k < model.num_class; k++) {
      add_data_int(k);
      add_data_float(model.prob_cond[k][e]);
    }
    flush_data(fp);
  }
}

namespace {

void print_expect_class(FILE *fp) {
  add_desc_id("EXPECT-CLASS");
  add_desc_col("Class k");
  add_desc_col("Expected occurrences E[k]");
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++) print_data(fp, "%d,%.Ng", k, model.expect_c[k]);
}

void print_expect_cat(FILE *fp, int a) {
  int c = discrete_column(a);
  add_desc_id("EXPECT-CAT%d", c);
  add_desc_col("Attr ID.");
  add_desc_col("Class k");
  add_desc_col("Attr. value x%d", c);
  add_desc_col("Expected occurrences E[x%d|k]", c);
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++)
    for (int i = 0; i < cases.num_word[a]; i++) {
      int v = cases.print_order[a][i];
      print_data(fp, "%d,%d,%s,%.Ng", c, k, cases.word_list[a][v], model.expect_w[k][a][v]);
    }
}

}  // namespace

void print_expectation(FILE *fp) {
  print_expect_class(fp);
  for (int a = 0; a < settings.tuple_size_d; a++) print_expect_cat(fp, a);
  for (int g = 0; g < settings.gauss_size; g++) print_gauss_moments(fp, "EXPECT", g, 0, model.expect_u, model.expect_s);
}
