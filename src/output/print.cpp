// The settings sections written to the log at the start of a run.
#include "output/print.h"

#include "settings/settings.h"
#include "settings/usage_text.h"
#include "output/print_common.h"

namespace {

const char *format_name(int format) { return format == FORMAT_CSV ? "csv" : "txt"; }

void begin_section(FILE *fp, const char *id) {
  add_desc_id("%s", id);
  add_desc_col("Control parameter");
  add_desc_col("Value");
  flush_desc(fp);
}

void print_setting_version(FILE *fp) {
  add_desc_id("SETTING-VERSION");
  add_desc_col("Version");
  flush_desc(fp);
  print_data(fp, "%s", version_text);
}

void print_setting_file(FILE *fp) {
  const RunSettings &s = settings;
  add_desc_id("SETTING-FILE");
  add_desc_col("Input/Output");
  add_desc_col("Contents");
  add_desc_col("Filename");
  flush_desc(fp);
  print_data(fp, "Input,Cases,%s", s.fname_freq);
  if (!s.mode_em) print_data(fp, "Input,Parameters,%s", s.fname_param);
  if (s.mode_em) print_data(fp, "Output,Parameters,%s", s.fname_param);
  if (s.mode_read_hparam) print_data(fp, "Input,Hyperparameters,%s", s.fname_hparam);
  if (s.mode_memp) print_data(fp, "Output,Member distributions,%s", s.fname_memp);
  if (s.mode_dissim) print_data(fp, "Output,Dissimilarities,%s", s.fname_dissim);
  if (s.mode_cluster) print_data(fp, "Output,Clusters,%s", s.fname_cluster);
  if (s.mode_rank) print_data(fp, "Output,Rankings,%s", s.fname_rank);
  if (s.mode_eval) print_data(fp, "Output,Evaluation results,%s", s.fname_eval);
  print_data(fp, "Output,Logs,%s", s.fname_log);
  if (s.mode_msg) print_data(fp, "Output,Message logs,%s", s.fname_msg);
}

void print_setting_function(FILE *fp) {
  const RunSettings &s = settings;
  add_desc_id("SETTING-FUNCTION");
  add_desc_col("Major function");
  add_desc_col("Enabled/Disabled");
  flush_desc(fp);
  print_data(fp, "Reading parameters,%s", mode_str(!s.mode_em));
  print_data(fp, "Reading hyperparameters,%s", mode_str(s.mode_read_hparam));
  print_data(fp, "Member distributions,%s", mode_str(s.mode_memp));
  print_data(fp, "Clustering,%s", mode_str(s.mode_cluster));
  print_data(fp, "Relevance analysis,%s", mode_str(s.mode_rank));
  print_data(fp, "Dissimilarities,%s", mode_str(s.mode_dissim));
  print_data(fp, "Model selection,%s", mode_str(s.mode_search_num_class));
  print_data(fp, "Deterministic annealing EM,%s", mode_str(s.mode_daem));
  print_data(fp, "Split-merge EM,%s", mode_str(s.num_sm > 0));
  print_data(fp, "Evaluation,%s", mode_str(s.mode_eval));
}

void print_setting_rank(FILE *fp) {
  const RunSettings &s = settings;
  if (!s.mode_rank) return;
  begin_section(fp, "SETTING-RANK");
  print_data(fp, "Hiding less relevant cases/attvals,%s", mode_str(s.mode_rank_hide));
  if (s.mode_rank_th)
    print_data(fp, "Threshold for relevant cases/attvals,%.Ng", s.rank_th);
  else
    print_data(fp, "Num of relevant cases/attvals,%d", s.num_rank);
}

void print_setting_daem(FILE *fp) {
  if (!settings.mode_daem) return;
  begin_section(fp, "SETTING-DAEM");
  print_data(fp, "Initial value of inverse temperature,%.Ng", settings.itemp_init);
  print_data(fp, "Update rate of inverse temperature,%.Ng", settings.itemp_rate);
}

void print_setting_smem(FILE *fp) {
  const RunSettings &s = settings;
  if (s.num_sm <= 0) return;
  begin_section(fp, "SETTING-SMEM");
  print_data(fp, "Num of split-merge operations,%d", s.num_sm);
  print_data(fp, "Max num of split-merge candidates,%d", s.max_candidate);
  print_data(fp, "Max num of split candidates,%d", s.max_jsplit);
  print_data(fp, "Normalization of J-merge,%s", mode_str(s.mode_norm));
  print_data(fp, "Min class prob. before split-merge operation [0: No limit],%.Ng", s.min_param_c);
  print_data(fp, "Min class prob. after split-merge operation [0: No limit],%.Ng",
             s.min_new_param_c);
  print_data(fp, "Min improvement,%.Ng", s.min_smem_improve);
}

void print_setting_eval(FILE *fp) {
  if (!settings.mode_eval) return;
  begin_section(fp, "SETTING-EVAL");
  print_data(fp, "Weight in F-measure of Purity,%.Ng", settings.weight_purity);
  print_data(fp, "Weight in F-measure of Wallance's measures,%.Ng", settings.weight_wallance);
}

void print_setting_inout_flags(FILE *fp) {
  const RunSettings &s = settings;
  print_data(fp, "Log-scale computation,%s", mode_str(s.mode_log_scale));
  print_data(fp, "Ignoring extreme values when computing sample means/covars,%s",
             mode_str(s.mode_regular_stat));
  print_data(fp, "Writing attvals in lexicographical order,%s", mode_str(s.mode_lex_order));
  print_data(fp, "Uncompressing identical objects,%s", mode_str(s.mode_uncompress));
  print_data(fp, "Saving messages,%s", mode_str(s.mode_msg));
  print_data(fp, "Being verbose,%s", mode_str(s.mode_verbose));
  print_data(fp, "Showing attvals,%s", mode_str(!s.mode_hide_attr));
  print_data(fp, "Showing membership probs. for attributes,%s", mode_str(s.mode_show_attr_memp));
  print_data(fp, "Showing clusters of attvals,%s", mode_str(s.mode_show_attr_cluster));
}

void print_setting_inout(FILE *fp) {
  const RunSettings &s = settings;
  begin_section(fp, "SETTING-INOUT");
  print_data(fp, "Target,%s", s.fname_base);
  if (s.mode_suffix)
    print_data(fp, "Suffix,%s", s.fname_suffix);
  else
    print_data(fp, "Suffix,(none)");
  print_data(fp, "Input file extension,%s", format_name(s.format_in));
  print_data(fp, "Output file extension,%s", format_name(s.format_out));
  print_setting_inout_flags(fp);
  print_data(fp, "Precision of float-point numbers [file output],%d", s.prec_out);
  print_data(fp, "Precision of float-point numbers [terminal message],%d", s.prec_msg);
  print_data(fp, "Byte size [double],%d", static_cast<int>(sizeof(double)));
  print_data(fp, "Byte size [long-double],%d", static_cast<int>(sizeof(long double)));
}

// EM control; the seed prints through "%d" as the log always has.
void print_setting_em(FILE *fp) {
  const RunSettings &s = settings;
  if (!s.mode_em) return;
  begin_section(fp, "SETTING-EM");
  print_data(fp, "Random seed,%d", static_cast<int>(s.rand_seed));
  print_data(fp, "Threshold for convergence,%.Ng", s.epsilon);
  print_data(fp, "Max num Of EM iterations,%d", s.max_iterate);
  print_data(fp, "Random restarts,%s", mode_str(s.num_init > 1));
  if (s.num_init > 1) {
    print_data(fp, "Num. of restarts,%d", s.num_init);
    print_data(fp, "Max num of EM iterations in restarts,%d", s.max_init_iterate);
  }
  print_data(fp, "Initialization method for class,%s", s.init_type_str_class);
  if (s.mode_nominal) {
    print_data(fp, "Initialization method for discrete attributes,%s", s.init_type_str_word);
    print_data(fp, "Noises in initialization of categorical parameters,%.Ng", s.noise_ratio);
  }
  if (s.mode_gauss) {
    print_data(fp, "Noises in initialization of means of Gaussians,%.Ng", s.noise_ratio_gauss);
    print_data(fp, "Threshold for extreme values (Min.),%.Ng", s.q_regular_min);
    print_data(fp, "Threshold for extreme values (Max.),%.Ng", s.q_regular_max);
  }
}

// One row: a label followed by the attributes for which keep(a) holds.
template <typename Keep>
void print_attr_list_row(FILE *fp, const char *label, Keep keep) {
  add_data_str(label);
  int n = 0;
  for (int a = 0; a < settings.tuple_size; a++)
    if (keep(a)) add_data_int(a), n++;
  if (n == 0) add_data_str("(none)");
  flush_data(fp);
}

void print_model_classes(FILE *fp) {
  const RunSettings &s = settings;
  if (s.mode_search_num_class) {
    print_data(fp, "Num of classes [min],%d", s.kmin);
    print_data(fp, "Num of classes [max],%d", s.kmax);
    print_data(fp, "Num of classes [step],%d", s.kstep);
  } else {
    print_data(fp, "Num of classes,%d", s.num_class);
  }
}

void print_model_roles(FILE *fp) {
  const RunSettings &s = settings;
  if (s.mode_id)
    print_data(fp, "ID attribute,%d", s.attr_id);
  else
    print_data(fp, "ID attribute,(none)");
  if (s.mode_eval)
    print_data(fp, "Answer class attribute,%d", s.attr_eval);
  else
    print_data(fp, "Answer class attribute,(none)");
  print_attr_list_row(fp, "Ignored attributes", [](int a) {
    return settings.attr_ignore != nullptr && settings.attr_ignore[a] != 0;
  });
  print_attr_list_row(fp, "Discrete attributes",
                      [](int a) { return !settings.attr_info[a].cont && is_model_attr(a); });
  print_attr_list_row(fp, "Continuous attributes",
                      [](int a) { return settings.attr_info[a].cont != 0; });
}

void print_model_groups(FILE *fp) {
  for (int g = 0; g < settings.gauss_size; g++) {
    add_data("Attributes in Gauss%d", g);
    for (int j = 0; j < settings.gauss_attr_size[g]; j++) add_data_int(settings.gauss_attr[g][j]);
    flush_data(fp);
    print_data(fp, "Dimension of Gauss%d,%d", g, settings.gauss_attr_size[g]);
  }
}

void print_model_base(FILE *fp) {
  const RunSettings &s = settings;
  add_desc_id("SETTING-MODEL-BASE");
  add_desc_col("Model specification");
  flush_desc(fp);
  print_model_classes(fp);
  print_data(fp, "Num of attributes,%d", s.tuple_size);
  print_data(fp, "Num of discrete attributes,%d", s.tuple_size_d);
  print_data(fp, "Num of continuous attributes,%d", s.tuple_size_c);
  print_model_roles(fp);
  print_model_groups(fp);
}

// Pseudo counts of the class and of each discrete attribute (by column index).
void print_hparam_counts(FILE *fp) {
  const RunSettings &s = settings;
  if (s.mode_smooth_auto_c == 2)
    print_data(fp, "Pseudo count [class],AutoClass");
  else
    print_data(fp, "Pseudo count [class],%.Ng", s.smooth_c);
  if (!s.mode_nominal || s.smooth_w == nullptr) return;
  for (int a = 0; a < s.tuple_size; a++) {
    if (s.attr_info[a].cont || !is_model_attr(a)) continue;
    int d = s.attr_info[a].index;
    if (s.mode_smooth_auto_w[d] == 2)
      print_data(fp, "Pseudo count [attr %d],AutoClass", a);
    else
      print_data(fp, "Pseudo count [attr %d],%.Ng", a, s.smooth_w[d]);
  }
}

void print_hparam_gauss(FILE *fp) {
  const RunSettings &s = settings;
  if (s.mode_smooth_auto_tau == 2)
    print_data(fp, "Prior Tau,AutoClass");
  else
    print_data(fp, "Prior Tau,%.Ng", s.tau);
  if (s.alpha_w > 0)
    print_data(fp, "Prior Alpha,%.Ng", s.alpha_w);
  else
    print_data(fp, "Prior Alpha,Dimension + %.Ng", 1e-6L);
  if (s.mode_smooth_u)
    print_data(fp, "Prior Mean,%.Ng", s.smooth_u);
  else
    print_data(fp, "Prior Mean,Sample mean");
  if (s.mode_smooth_s == 2)
    print_data(fp, "Prior Sigma,Diagonal with all elements (variances) being %.Ng", s.smooth_s);
  else
    print_data(fp, "Prior Sigma,Sample covariances multiplied by %.Ng", s.smooth_s);
}

// Hyperparameters set from the options; a hyperparameter file prints its own.
void print_model_hparam(FILE *fp) {
  if (!settings.mode_em || settings.mode_read_hparam) return;
  add_desc_id("SETTING-MODEL-HPARAM");
  add_desc_col("Hyperparameter");
  add_desc_col("Value");
  flush_desc(fp);
  print_hparam_counts(fp);
  if (settings.mode_smooth_gauss) print_hparam_gauss(fp);
}

}  // namespace

void print_settings(FILE *fp) {
  print_setting_version(fp);
  print_setting_file(fp);
  print_setting_function(fp);
  if (settings.mode_em) {
    begin_section(fp, "SETTING-SELECT");
    print_data(fp, "Model score,%s", settings.ic_type_str);
  }
  print_setting_rank(fp);
  print_setting_daem(fp);
  print_setting_smem(fp);
  print_setting_eval(fp);
  print_setting_inout(fp);
  print_setting_em(fp);
  print_model(fp);
}

void print_model(FILE *fp) {
  print_model_base(fp);
  print_model_hparam(fp);
}
