#include "driver/vesk.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/allocate_matrix.h"
#include "base/hash.h"
#include "base/misc.h"
#include "base/result_file.h"
#include "base/random.h"
#include "driver/init.h"
#include "driver/xgetopt.h"
#include "input/read_freq.h"
#include "model/cluster.h"
#include "driver/run.h"
#include "model/em.h"
#include "output/print.h"
#include "output/print_common.h"

namespace {

const char *const unknown_option_msg = "Unknown/illegal option specification: %s (Use -h for usage)\n";

// Before the log is open, failures go to stderr only.
[[noreturn]] void fail_unknown_option() {
  fprintf(stderr, unknown_option_msg, xopt.optstr);
  exit_run(1);
}

// Pass 1: help, full help, version, unknown options and the base name; the
// first of these on the command line wins.
void option_pass1(int argc, char **argv) {
  init_xgetopt();
  for (int c; (c = xgetopt(argc, argv, vesk_opts)) != XGETOPT_END;) {
    if (c == OPT_HELP) print_usage(stdout), exit(0);
    if (c == OPT_HELPALL) print_usage_full(stdout), exit(0);
    if (c == OPT_VERSION) print_version(stdout), exit(0);
    if (c == XGETOPT_ILLEGAL) fail_unknown_option();
    if (c == OPT_TARGET) copy_optarg(settings.fname_base, FNAME_BASE_MAX);
  }
  if (settings.fname_base[0] == '\0') {
    fprintf(stderr, "Missing or illegal %s option (Use -h for usage)\n", option_name(OPT_TARGET));
    exit_run(1);
  }
}

int parse_format() {
  tolower_str(xopt.xoptarg_c);
  if (strcmp(xopt.xoptarg_c, "csv") == 0) return FORMAT_CSV;
  if (strcmp(xopt.xoptarg_c, "txt") == 0) return FORMAT_TXT;
  fprintf(stderr, "Unexpected file format: %s (Use -h for usage)\n", xopt.xoptarg);
  exit_run(1);
}

// Pass 2: what the file names depend on.
void option_pass2(int argc, char **argv) {
  init_xgetopt();
  for (int c; (c = xgetopt(argc, argv, vesk_opts)) != XGETOPT_END;) {
    switch (c) {
      case XGETOPT_ILLEGAL: fail_unknown_option();
      case OPT_INPUT: settings.format_in = parse_format(); break;
      case OPT_OUTPUT: settings.format_out = parse_format(); break;
      case OPT_READ_PARAM: settings.mode_em = 0; break;
      case OPT_SUFFIX:
        settings.mode_suffix = 1;
        copy_optarg(settings.fname_suffix, FNAME_BASE_MAX);
        break;
      case OPT_SAVE_MSG: settings.mode_msg = 1; break;
      default: break;
    }
  }
}

// Runs one later pass; fn sees every option code (the log is open by now).
template <typename Fn>
void option_pass(int argc, char **argv, Fn fn) {
  init_xgetopt();
  for (int c; (c = xgetopt(argc, argv, vesk_opts)) != XGETOPT_END;) {
    if (c == XGETOPT_ILLEGAL) die(unknown_option_msg, xopt.optstr);
    fn(c);
  }
}

// Pass 3: --autoclass, before any explicit smoothing or score option.
void apply_autoclass(int c) {
  if (c != OPT_AUTOCLASS) return;
  settings.smooth_c = parse_smooth_c("auto");
  settings.num_smooth_w = parse_smooth_w("auto");
  settings.tau = parse_smooth_tau("auto");
  settings.ic_type = 2;
}

void apply_n_attr(int c) {
  if (c == OPT_N_ATTR) settings.tuple_size = parse_int(xopt.xoptarg);
}

void apply_id_eval(int c) {
  if (c == OPT_EVAL) {
    settings.mode_eval = 1;
    settings.attr_eval = parse_int(xopt.xoptarg);
  } else if (c == OPT_ID) {
    settings.mode_id = 1;
    settings.attr_id = parse_int(xopt.xoptarg);
  }
}

struct FlagOption {
  int id;
  int *field;
  int value;
};
const FlagOption flag_options[] = {
    {OPT_DAEM, &settings.mode_daem, 1},
    {OPT_MEM_PROB, &settings.mode_memp, 1},
    {OPT_READ_HPARAM, &settings.mode_read_hparam, 1},
    {OPT_LOG_SCALE, &settings.mode_log_scale, 1},
    {OPT_HIDE_ATTR, &settings.mode_hide_attr, 1},
    {OPT_NORM_JMERGE, &settings.mode_norm, 1},
    {OPT_OCC_ORDER, &settings.mode_lex_order, 0},
    {OPT_HIDE_RANK, &settings.mode_rank_hide, 1},
    {OPT_DISSIM, &settings.mode_dissim, 1},
    {OPT_SHOW_ATTR_MEMP, &settings.mode_show_attr_memp, 1},
    {OPT_SHOW_ATTR_CLUSTER, &settings.mode_show_attr_cluster, 1},
    {OPT_VERBOSE, &settings.mode_verbose, 1},
    {OPT_REGULAR_STAT, &settings.mode_regular_stat, 1},
    {OPT_UNCOMPRESS, &settings.mode_uncompress, 1},
};

struct IntOption {
  int id;
  int *field;
};
const IntOption int_options[] = {
    {OPT_N_CAND, &settings.max_candidate},       {OPT_N_JSPLIT, &settings.max_jsplit},
    {OPT_MAX_ITER_RESTART, &settings.max_init_iterate}, {OPT_MAX_ITER, &settings.max_iterate},
    {OPT_RESTART, &settings.num_init},           {OPT_N_SM, &settings.num_sm},
    {OPT_PREC_OUT, &settings.prec_out},          {OPT_PREC_MSG, &settings.prec_msg},
};

struct RealOption {
  int id;
  long double *field;
};
const RealOption real_options[] = {
    {OPT_EPSILON, &settings.epsilon},
    {OPT_ALPHA, &settings.alpha_w},
    {OPT_MIN_C_PARAM, &settings.min_param_c},
    {OPT_MIN_SM_IMP, &settings.min_smem_improve},
    {OPT_MIN_NEW_C_PARAM, &settings.min_new_param_c},
    {OPT_WEIGHT_PURITY, &settings.weight_purity},
    {OPT_WEIGHT_WALLANCE, &settings.weight_wallance},
    {OPT_NOISE, &settings.noise_ratio},
    {OPT_NOISE_GAUSS, &settings.noise_ratio_gauss},
};

// Sets a plain flag, integer or real option; false for any other code.
bool apply_scalar(int c) {
  for (const FlagOption &o : flag_options)
    if (o.id == c) return *o.field = o.value, true;
  for (const IntOption &o : int_options)
    if (o.id == c) return *o.field = parse_int(xopt.xoptarg), true;
  for (const RealOption &o : real_options)
    if (o.id == c) return *o.field = parse_float(xopt.xoptarg), true;
  return false;
}

// --score fails straight to stderr, like the options read before the log.
void apply_score() {
  toupper_str(xopt.xoptarg_c);
  if (strcmp(xopt.xoptarg_c, "BIC") == 0) {
    settings.ic_type = 1;
  } else if (strcmp(xopt.xoptarg_c, "AUTOCLASS") == 0 || strcmp(xopt.xoptarg_c, "CS") == 0) {
    settings.ic_type = 2;
  } else {
    fprintf(stderr, "Unexpected information criterion: %s (Use -h for usage)\n", xopt.xoptarg);
    exit_run(1);
  }
}

// --init-c (max_type 2) and --init-a (max_type 3).
int parse_init_type(int max_type) {
  static const char *const names[] = {"random", "noisy_u", "v_freq"};
  tolower_str(xopt.xoptarg_c);
  for (int t = 0; t < max_type; t++)
    if (strcmp(xopt.xoptarg_c, names[t]) == 0) return t + 1;
  die("Unknown initialization method -- %s (Use -h for usage)\n", xopt.xoptarg);
}

// Options with structured values, and those that need more than a conversion.
void apply_structured(int c) {
  const char *v = xopt.xoptarg;
  switch (c) {
    case OPT_ITEMP: parse_itemp(v); break;
    case OPT_SMOOTH_C: settings.smooth_c = parse_smooth_c(v); break;
    case OPT_SMOOTH_A: settings.num_smooth_w = parse_smooth_w(v); break;
    case OPT_TAU: settings.tau = parse_smooth_tau(v); break;
    case OPT_SMOOTH_VAR: parse_smooth_s(v); break;
    case OPT_SMOOTH_MEAN:
      settings.smooth_u = parse_float(v);
      settings.mode_smooth_u = 1;
      break;
    case OPT_SCORE: apply_score(); break;
    case OPT_N_CLASS: parse_num_class(v); break;
    case OPT_SEED:
      settings.rand_seed = parse_uint(v);
      settings.mode_set_seed = 1;
      break;
    case OPT_GAUSS: add_gauss(v); break;
    case OPT_IGNORE: add_attr_ignore(v); break;
    case OPT_RANK: parse_rank(v); break;
    case OPT_INIT_C: settings.init_type_class = parse_init_type(2); break;
    case OPT_INIT_A: settings.init_type_word = parse_init_type(3); break;
    case OPT_EXTREME: parse_extreme(v); break;
    default: break;
  }
}

// Pass 6: every option not taken by an earlier pass, in command-line order.
void apply_other(int c) {
  if (!apply_scalar(c)) apply_structured(c);
}

void teardown() {
  fclose(settings.fp_log);
  settings.fp_log = nullptr;
  if (settings.mode_nominal && cases.ht != nullptr)
    for (int a = 0; a < settings.tuple_size_d; a++) release_hashtable(&cases.ht[a]);
  release_matrix_pool();
  release_vector_pool();
  release_buffer();
  release_printer();
  release_smooth_nominal();
}


[[noreturn]] void die_illegal_value(int id) { die("Illegal value for %s option\n", option_name(id)); }

// Gaussian priors are in force with a positive or AutoClass tau.
void check_gauss_prior() {
  if (settings.gauss_size == 0) return;
  if (settings.tau > 0 || settings.mode_smooth_auto_tau == 2) {
    settings.mode_smooth_gauss = 1;
    for (int g = 0; g < settings.gauss_size; g++)
      if (!(settings.alpha_w == 0 || settings.alpha_w > settings.gauss_attr_size[g]))
        die("Missing or illegal value for %s option\n", option_name(OPT_ALPHA));
  } else if (settings.tau < 0) {
    die_illegal_value(OPT_TAU);
  }
}

void check_roles() {
  if (settings.mode_id && (settings.attr_id < 0 || settings.attr_id >= settings.tuple_size))
    die_illegal_value(OPT_ID);
  if (settings.mode_eval && (settings.attr_eval < 0 || settings.attr_eval >= settings.tuple_size))
    die_illegal_value(OPT_EVAL);
  if (settings.mode_id && settings.mode_eval && settings.attr_id == settings.attr_eval)
    die("Confliction between %s and %s options\n", option_name(OPT_ID), option_name(OPT_EVAL));
  if (!settings.mode_ignore || settings.attr_ignore == nullptr) return;
  settings.num_attr_ignore = 0;
  for (int a = 0; a < settings.tuple_size; a++) {
    if (!settings.attr_ignore[a]) continue;
    settings.num_attr_ignore++;
    if (settings.mode_id && a == settings.attr_id)
      die("Confliction between %s and %s options\n", option_name(OPT_ID), option_name(OPT_IGNORE));
    if (settings.mode_eval && a == settings.attr_eval)
      die("Confliction between %s and %s options\n", option_name(OPT_IGNORE), option_name(OPT_EVAL));
  }
}

void check_num_class() {
  if (!settings.mode_em) return;
  if (!settings.mode_search_num_class) {
    if (settings.num_class < 2 && !settings.mode_read_hparam)
      die("Missing or illegal %s option (Use -h for usage)\n", option_name(OPT_N_CLASS));
  } else if (settings.kmin < 2 || settings.kmax < 1 || settings.kstep < 1 ||
             settings.kmax < settings.kmin) {
    die("Illegal value for %s option (Use -h for usage)\n", option_name(OPT_N_CLASS));
  }
}

void check_limits() {
  if (settings.max_iterate < 0 || settings.max_init_iterate < 0)
    die("Illegal value for the number of iterations\n");
  if (settings.max_iterate > 10000) die("Maximum number of iterations cannot exceed %d\n", 10000);
  if (settings.num_init < 1) die("Illegal value for the number of initial parameter sets\n");
  if (settings.max_jsplit < 0)
    die("Illegal value for the number of split candidate to be examined\n");
  if (settings.min_param_c < 0)
    die("Illegal value for the lower limit of prob. of the class to be split/merge\n");
  if (settings.min_new_param_c <= 0)
    die("Illegal value for the lower limit of updated prob. of the splited/merged class\n");
  if (settings.prec_out < 1 || settings.prec_out > 36) die_illegal_value(OPT_PREC_OUT);
  if (settings.prec_msg < 1 || settings.prec_msg > 36) die_illegal_value(OPT_PREC_MSG);
}

// The annealing steps: the integer part of -ln(Binit) / ln(Brate), plus 1.
// The traces keep one entry per step besides the iterations, with an int
// index, so a rate too close to 1 for that is refused like one of 1.
void set_num_itemp() {
  const long double kMaxSteps = INT_MAX - 10000 - 3;  // room for the iteration limit
  long double steps = truncl(-logl(settings.itemp_init) / logl(settings.itemp_rate)) + 1;
  if (!(steps <= kMaxSteps))
    die(conv_msg("Illegal value for the increasing rate of inverse temperature -- %.Nf\n"),
        settings.itemp_rate);
  settings.num_itemp = static_cast<int>(steps);
}

void copy_label(char *dst, const char *text) {
  strncpy(dst, text, LABEL_SIZE - 1);
  dst[LABEL_SIZE - 1] = '\0';
}

// Labels of the score, clustering and initialisation methods for the output.
void set_labels() {
  static const char *const class_init[] = {"RANDOM", "NOISY_UNIFORM"};
  static const char *const word_init[] = {"RANDOM", "NOISY_UNIFORM", "WORD_FREQ"};
  if (settings.ic_type != 1 && settings.ic_type != 2)
    die("Internal error: Illegal Info. Criterion\n");
  copy_label(settings.ic_type_str, settings.ic_type == 1 ? "BIC" : "Cheeseman-Stutz score");
  if (settings.mode_cluster && settings.cl_type != 1)
    die("Internal error: Illegal Info. Criterion\n");
  copy_label(settings.cl_type_str, "MEMBERSHIP_DIST");
  if (settings.init_type_class != 1 && settings.init_type_class != 2)
    die("Internal error: Illegal Info. Criterion\n");
  copy_label(settings.init_type_str_class, class_init[settings.init_type_class - 1]);
  if (settings.init_type_word < 1 || settings.init_type_word > 3)
    die("Internal error: Illegal initialization type for class\n");
  copy_label(settings.init_type_str_word, word_init[settings.init_type_word - 1]);
  if (settings.rel_m != 1) die("Internal error: Illegal initialization type for attributes\n");
  copy_label(settings.rel_m_str, "MEMBERSHIP_DIST");
}

void check_eval_weights() {
  if (!settings.mode_eval) return;
  if (settings.weight_purity < 0) die_illegal_value(OPT_WEIGHT_PURITY);
  if (settings.weight_wallance < 0) die_illegal_value(OPT_WEIGHT_WALLANCE);
}

// Appends at most max characters of src.
void append_bounded(char *dst, const char *src, size_t max) {
  size_t n = strlen(dst), m = strnlen(src, max);
  memcpy(dst + n, src, m);
  dst[n + m] = '\0';
}

const char *extension(int format) { return format == FORMAT_CSV ? ".csv" : ".txt"; }

void append_ending(char *name, const char *ending, int format) {
  size_t n = strlen(name);
  snprintf(name + n, FNAME_MAX + 1 - n, "%s%s", ending, extension(format));
}

// Can the file be opened for reading?
bool readable(const char *name) {
  FILE *fp = fopen(name, "rb");
  if (fp == nullptr) return false;
  fclose(fp);
  return true;
}

}  // namespace

void initialize_rand() { init_genrand(settings.rand_seed); }

int vesk_main(int argc, char **argv) {
  install_stop_signals();
  set_default_settings();
  install_report_hooks();
  initialize_buffer();
  initialize_printer();
  initialize_matrix_pool();
  initialize_vector_pool();
  option_pass1(argc, argv);
  option_pass2(argc, argv);
  build_filename();
  open_log();
  option_pass(argc, argv, apply_autoclass);
  option_pass(argc, argv, apply_n_attr);
  if (settings.tuple_size < 1)
    die("Missing or illegal %s option (Use -h for usage)\n", option_name(OPT_N_ATTR));
  option_pass(argc, argv, apply_id_eval);
  option_pass(argc, argv, apply_other);
  postproc_args();
  initialize_rand();
  print_version(settings.fp_msg);
  print_settings(settings.fp_log);
  if (settings.mode_em)
    em_main();
  else
    no_em_main();
  teardown();
  return 0;
}

void postproc_args() {
  check_tuple_size();
  build_attr_info();
  if (settings.tuple_size_d > 0) build_smooth_nominal(settings.num_smooth_w);
  check_gauss_prior();
  check_roles();
  check_num_class();
  settings.mode_as_is = settings.mode_em ? 1 : 0;
  check_limits();
  settings.mode_conv_in = 0;
  settings.mode_conv_out = 0;
  set_labels();
  if (settings.min_smem_improve < 0) settings.min_smem_improve = 10 * settings.epsilon;
  if (settings.mode_daem) set_num_itemp();
  check_eval_weights();
}

void build_filename() {
  RunSettings &s = settings;
  char *names[] = {s.fname_freq, s.fname_param, s.fname_hparam, s.fname_dissim, s.fname_memp,
                   s.fname_log,  s.fname_msg,   s.fname_cluster, s.fname_rank, s.fname_eval};
  for (char *name : names) {
    name[0] = '\0';
    append_bounded(name, s.fname_base, FNAME_BASE_MAX);
    if (name == s.fname_freq || !s.mode_suffix) continue;
    append_bounded(name, "_", 1);
    append_bounded(name, s.fname_suffix, FNAME_BASE_MAX);
  }
  char txt[FNAME_MAX + 1], csv[FNAME_MAX + 1];
  const char *stem = s.mode_em ? s.fname_freq : s.fname_param;
  strcpy(txt, stem);
  strcat(txt, s.mode_em ? "_freq.txt" : "_param.txt");
  strcpy(csv, stem);
  strcat(csv, s.mode_em ? "_freq.csv" : "_param.csv");
  determine_format(txt, csv);
  append_ending(s.fname_freq, "_freq", s.format_in);
  append_ending(s.fname_param, "_param", s.mode_em ? s.format_out : s.format_in);
  append_ending(s.fname_hparam, "_hparam", s.format_in);
  append_ending(s.fname_dissim, "_dissim", s.format_out);
  append_ending(s.fname_memp, "_memp", s.format_out);
  append_ending(s.fname_log, "_log", s.format_out);
  append_ending(s.fname_msg, "_msg", FORMAT_TXT);
  append_ending(s.fname_cluster, "_cluster", s.format_out);
  append_ending(s.fname_rank, "_rank", s.format_out);
  append_ending(s.fname_eval, "_eval", s.format_out);
}

// An existing candidate decides the input format (csv before txt).
void determine_format(const char *txt_candidate, const char *csv_candidate) {
  if (readable(txt_candidate)) settings.format_in = FORMAT_TXT;
  if (readable(csv_candidate)) settings.format_in = FORMAT_CSV;
  if (settings.format_out != FORMAT_CSV && settings.format_out != FORMAT_TXT)
    settings.format_out = settings.format_in;
  if (settings.format_in != FORMAT_CSV && settings.format_in != FORMAT_TXT) {
    fprintf(stderr, "Couldn't find the input file (neither %s nor %s)\n", txt_candidate,
            csv_candidate);
    exit_run(1);
  }
}

void open_log() {
  settings.fp_log = open_stream_file(settings.fname_log);
  settings.fp_msg = settings.mode_msg ? open_stream_file(settings.fname_msg) : stderr;
}
