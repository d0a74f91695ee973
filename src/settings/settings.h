// Run settings: every option value, its default and the values derived from
// them, plus the attribute roles. One instance, `settings`, written only by the
// option passes and postproc_args, read everywhere else.
#ifndef VESK_SETTINGS_SETTINGS_H
#define VESK_SETTINGS_SETTINGS_H

#include <cstdio>

#include "base/misc.h"

enum { FNAME_BASE_MAX = 512, FNAME_MAX = 1063, LABEL_SIZE = 64 };

// Role of one attribute (column) in the model.
struct AttrInfo {
  int cont;   // 1 for a member of a Gaussian group
  int group;  // Gaussian group number (continuous attributes)
  int index;  // position inside the group, or running number among discrete attributes
};

// One `--gauss` group as typed, kept until build_attr_info.
struct GaussSpec {
  char *text;
  int size;
  int *attrs;
  GaussSpec *next;
};

struct RunSettings {
  // files
  char fname_base[FNAME_BASE_MAX + 1];
  char fname_suffix[FNAME_BASE_MAX + 1];
  char fname_freq[FNAME_MAX + 1], fname_param[FNAME_MAX + 1], fname_hparam[FNAME_MAX + 1];
  char fname_dissim[FNAME_MAX + 1], fname_memp[FNAME_MAX + 1], fname_log[FNAME_MAX + 1];
  char fname_msg[FNAME_MAX + 1], fname_cluster[FNAME_MAX + 1], fname_rank[FNAME_MAX + 1];
  char fname_eval[FNAME_MAX + 1];
  int mode_suffix;
  int format_in, format_out;  // FORMAT_CSV, FORMAT_TXT, or -1
  FILE *fp_log, *fp_msg;

  // model size
  int num_class, tuple_size;  // num_class: the K given (the fit reads model.num_class)
  int kmin, kmax, kstep, mode_search_num_class;

  // EM control
  long double epsilon;
  int max_iterate, max_init_iterate, num_init;
  unsigned int rand_seed;
  int mode_set_seed;
  int init_type_class, init_type_word;
  long double noise_ratio, noise_ratio_gauss;
  int mode_daem, num_itemp;
  long double itemp_init, itemp_rate;
  int mode_log_scale;

  // smoothing as the options give it (model.smooth holds the values used for the K being fitted)
  long double smooth_default, smooth_c, tau, alpha_w, smooth_u, smooth_s;
  long double *smooth_w;    // per discrete attribute (after build_smooth_nominal)
  int *mode_smooth_auto_w;  // 1 = given as a number, 2 = AutoClass rule
  int num_smooth_w;
  int mode_smooth_auto_c, mode_smooth_auto_tau, mode_smooth_auto;
  int mode_smooth_gauss;
  int mode_smooth_u, mode_smooth_s;

  // scores and analyses
  int ic_type, rel_m, cl_type;
  int mode_em, mode_memp, mode_cluster, mode_dissim, mode_as_is;
  int mode_eval, attr_eval, mode_read_hparam;
  int mode_rank, mode_rank_hide, mode_rank_th, num_rank;
  long double rank_th;
  long double weight_purity, weight_wallance;

  // split and merge
  int num_sm, max_candidate, max_jsplit, mode_norm;
  long double min_param_c, min_smem_improve, min_new_param_c;

  // output and input handling
  int mode_verbose, mode_msg, mode_lex_order, mode_hide_attr, mode_uncompress;
  int mode_show_attr_memp, mode_show_attr_cluster;
  int prec_out, prec_msg;
  int mode_conv_in, mode_conv_out;
  long double q_regular_min, q_regular_max;
  int mode_regular_stat;

  // labels for the result files
  char ic_type_str[LABEL_SIZE], cl_type_str[LABEL_SIZE], rel_m_str[LABEL_SIZE];
  char init_type_str_class[LABEL_SIZE], init_type_str_word[LABEL_SIZE];

  // attribute roles
  int mode_id, attr_id;
  int mode_ignore, num_attr_ignore;
  int *attr_ignore;         // per attribute flag, allocated at the first --ignore
  int mode_gauss;
  GaussSpec *gauss_list;    // pending --gauss groups
  int gauss_size;           // number of Gaussian groups
  int *gauss_attr_size;     // per group: number of attributes
  int **gauss_attr;         // per group: attribute indices, increasing
  int tuple_size_c, tuple_size_d, tuple_size_all;
  int mode_nominal;
  AttrInfo *attr_info;      // per attribute
};

extern RunSettings settings;

// True when an attribute is a model attribute (not ID, answer or ignored).
int is_model_attr(int attr);
// Running number of a discrete model attribute (column), or -1; and back.
int discrete_index(int attr);
int discrete_column(int d);

// Every setting not named here starts at zero (flags off, no arrays, no files).
void set_default_settings();

#endif
