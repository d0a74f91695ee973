// The command-line option parser: every option is its own word, long options
// are written in full, and a value is always the next word. The driver walks
// the command line several times, rewinding with init_xgetopt before each pass.
#ifndef VESK_DRIVER_XGETOPT_H
#define VESK_DRIVER_XGETOPT_H

enum { OPTSTR_SIZE = 256, XOPTARG_SIZE = 65536 };

// Codes returned by xgetopt besides the option ids.
enum { XGETOPT_END = -1, XGETOPT_ILLEGAL = -2, XGETOPT_NONOPT = 0 };

// Option ids (the codes xgetopt returns for the rows of vesk_opts).
enum OptionId {
  OPT_N_CAND = 1, OPT_AUTOCLASS = 2, OPT_DAEM = 3, OPT_ITEMP = 4, OPT_SMOOTH_C = 5,
  OPT_MIN_NEW_C_PARAM = 6, OPT_DISSIM = 7, OPT_MEM_PROB = 8, OPT_EPSILON = 9, OPT_EVAL = 10,
  OPT_TARGET = 11, OPT_NORM_JMERGE = 12, OPT_SCORE = 13, OPT_N_JSPLIT = 14, OPT_HELP = 15,
  OPT_READ_HPARAM = 16, OPT_INPUT = 17, OPT_INIT_C = 18, OPT_OUTPUT = 19, OPT_INIT_A = 20,
  OPT_N_CLASS = 21, OPT_SMOOTH_MEAN = 22, OPT_MAX_ITER_RESTART = 23, OPT_SMOOTH_VAR = 24,
  OPT_MAX_ITER = 25, OPT_RESTART = 27, OPT_MIN_SM_IMP = 28, OPT_N_SM = 29, OPT_ALPHA = 30,
  OPT_SEED = 33, OPT_READ_PARAM = 34, OPT_SUFFIX = 35, OPT_SAVE_MSG = 36, OPT_TAU = 37,
  OPT_GAUSS = 38, OPT_MIN_C_PARAM = 39, OPT_VERBOSE = 40, OPT_SMOOTH_A = 41, OPT_N_ATTR = 42,
  OPT_OCC_ORDER = 43, OPT_RANK = 44, OPT_LOG_SCALE = 45, OPT_ID = 46, OPT_IGNORE = 47,
  OPT_HELPALL = 48, OPT_HIDE_ATTR = 49, OPT_HIDE_RANK = 50, OPT_PREC_OUT = 51,
  OPT_PREC_MSG = 52, OPT_UNCOMPRESS = 53, OPT_WEIGHT_PURITY = 54, OPT_WEIGHT_WALLANCE = 55,
  OPT_SHOW_ATTR_MEMP = 56, OPT_SHOW_ATTR_CLUSTER = 57, OPT_VERSION = 58, OPT_REGULAR_STAT = 59,
  OPT_NOISE = 60, OPT_NOISE_GAUSS = 61, OPT_EXTREME = 62
};

// One row of an option table; a table ends with a row whose id is -1.
struct XOption {
  int id;
  const char *name;  // long name without "--"
  char letter;       // short letter, or 0
  int has_arg;
};
extern const XOption vesk_opts[];

// Parser state: the next word, and copies of the word just examined and of
// the option's value (xoptarg_c may be changed by the caller, e.g. its case).
struct XGetoptState {
  int xoptind;
  char optstr[OPTSTR_SIZE];
  char xoptarg[XOPTARG_SIZE];
  char xoptarg_c[XOPTARG_SIZE];
};
extern XGetoptState xopt;

void init_xgetopt();
// The next option's id, 0 for a non-option word, -2 for an unknown or
// malformed option, -1 after the last word.
int xgetopt(int argc, char **argv, const XOption *table);
// Copies at most `len` characters of the value; dst holds len + 1 bytes.
void copy_optarg(char *dst, int len);
// "--name (-c)" or "--name"; null when no row has the id. Never freed.
char *get_option_str(int id, const XOption *table, int long_only);
// The display form of an option of vesk_opts for a message ("--%s (-%c)" or
// "--%s"); valid until the second call after this one.
const char *option_name(int id);

int parse_int(const char *text);
unsigned int parse_uint(const char *text);
long double parse_float(const char *text);

#endif
