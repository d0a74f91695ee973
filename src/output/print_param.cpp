// Writers of the parameter and hyperparameter files, and of the value lists
// of the discrete attributes. The two files are read back by read_param and
// read_hparam, so their layout is their readers' input format.
#include <cstdio>

#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "output/print.h"
#include "output/print_common.h"

namespace {

bool is_discrete_attr(int a) { return is_model_attr(a) && !settings.attr_info[a].cont; }

void print_param_class(FILE *fp) {
  add_desc_id("PARAM-CLASS");
  add_desc_col("Class k");
  add_desc_col("Class parameter P(k)");
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++) print_data(fp, "%d,%.Ng", k, model.param_c[k]);
}

void print_param_cat(FILE *fp, int a) {
  int d = settings.attr_info[a].index;
  add_desc_id("PARAM-CAT%d", a);
  add_desc_col("Attr. ID");
  add_desc_col("Class k");
  add_desc_col("Attr. value x%d", a);
  add_desc_col("Attr. parameter P(x%d|k)", a);
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++)
    for (int v = 0; v < cases.num_word[d]; v++)
      print_data(fp, "%d,%d,%s,%.Ng", a, k, cases.word_list[d][v], model.param_w[k][d][v]);
}

void print_hparam_class(FILE *fp) {
  add_desc_id("HPARAM-CLASS");
  add_desc_col("Class k");
  add_desc_col("Class pseudo count delta(k)");
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++) print_data(fp, "%d,%.Ng", k, get_hparam_c(k));
}

void print_hparam_cat(FILE *fp, int a) {
  int d = settings.attr_info[a].index;
  add_desc_id("HPARAM-CAT%d", a);
  add_desc_col("Attr. ID");
  add_desc_col("Class k");
  add_desc_col("Attr. value x%d", a);
  add_desc_col("Attr. pseudo count delta(x%d|k)", a);
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++)
    for (int v = 0; v < cases.num_word[d]; v++)
      print_data(fp, "%d,%d,%s,%.Ng", a, k, cases.word_list[d][v], get_hparam_w(k, d, v));
}

void print_hparam_tau_alpha(FILE *fp) {
  add_desc_id("HPARAM-GAUSS-TAU");
  add_desc_col("Class k");
  add_desc_col("Tau");
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++) print_data(fp, "%d,%.Ng", k, get_tau(k));
  for (int g = 0; g < settings.gauss_size; g++) {
    add_desc_id("HPARAM-GAUSS-ALPHA%d", g);
    add_desc_col("Class k");
    add_desc_col("Gauss ID");
    add_desc_col("Alpha");
    flush_desc(fp);
    for (int k = 0; k < model.num_class; k++)
      print_data(fp, "%d,%d,%.Ng", k, g, get_alpha_w(k, g, settings.gauss_attr_size[g]));
  }
}

}  // namespace

// "<prefix>-GAUSS-MEAN%d" and "<prefix>-GAUSS-COVAR%d" of group g: means and
// the upper triangle of the covariances per class. The parameter file puts
// the group number before the class, the other files the class first.
void print_gauss_moments(FILE *fp, const char *prefix, int g, int group_first, Vector *const *u,
                         Matrix *const *s) {
  int dim = settings.gauss_attr_size[g];
  const int *attrs = settings.gauss_attr[g];
  const char *first = group_first ? "Gauss ID" : "Class k", *second = group_first ? "Class k" : "Gauss ID";
  add_desc_id("%s-GAUSS-MEAN%d", prefix, g);
  add_desc_col("%s", first);
  add_desc_col("%s", second);
  add_desc_col("Attr. ID");
  add_desc_col("Mean");
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++)
    for (int i = 0; i < dim; i++)
      print_data(fp, "%d,%d,%d,%.Ng", group_first ? g : k, group_first ? k : g, attrs[i], u[k][g][i]);
  add_desc_id("%s-GAUSS-COVAR%d", prefix, g);
  add_desc_col("%s", first);
  add_desc_col("%s", second);
  add_desc_col("Attr. ID");
  add_desc_col("Attr. ID");
  add_desc_col("(Co)Variance");
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++)
    for (int i = 0; i < dim; i++)
      for (int j = i; j < dim; j++)
        print_data(fp, "%d,%d,%d,%d,%.Ng", group_first ? g : k, group_first ? k : g, attrs[i], attrs[j],
                   s[k][g][i][j]);
}

void print_param(FILE *fp) {
  // Also used to dump the parameters before a numerical failure, possibly
  // before any parameter set exists.
  if (fp == nullptr || model.param_c == nullptr) return;
  print_param_class(fp);
  if (settings.mode_nominal && model.param_w != nullptr)
    for (int a = 0; a < settings.tuple_size; a++)
      if (is_discrete_attr(a)) print_param_cat(fp, a);
  if (settings.mode_gauss && model.param_u != nullptr && model.param_s != nullptr)
    for (int g = 0; g < settings.gauss_size; g++) print_gauss_moments(fp, "PARAM", g, 1, model.param_u, model.param_s);
  fflush(fp);
}

void print_hparam(FILE *fp) {
  if (fp == nullptr) return;
  print_hparam_class(fp);
  if (settings.mode_nominal)
    for (int a = 0; a < settings.tuple_size; a++)
      if (is_discrete_attr(a)) print_hparam_cat(fp, a);
  if (settings.mode_gauss && model.hparam_u != nullptr && model.hparam_s != nullptr) {
    for (int g = 0; g < settings.gauss_size; g++) print_gauss_moments(fp, "HPARAM", g, 0, model.hparam_u, model.hparam_s);
    print_hparam_tau_alpha(fp);
  }
  fflush(fp);
}

void print_attr_list(FILE *fp) {
  if (fp == nullptr || !settings.mode_nominal) return;
  for (int a = 0; a < settings.tuple_size; a++) {
    if (!is_discrete_attr(a)) continue;
    int d = settings.attr_info[a].index;
    add_desc_id("ATTVAL%d", a);
    add_desc_col("ID for the attribute value");
    add_desc_col("Attr. value x%d", a);
    flush_desc(fp);
    for (int i = 0; i < cases.num_word[d]; i++) {
      int v = cases.print_order[d][i];
      print_data(fp, "%d,%s", v, cases.word_list[d][v]);
    }
  }
}
