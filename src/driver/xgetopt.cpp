#include "driver/xgetopt.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/misc.h"

// The search order of the parser is the order of the rows.
const XOption vesk_opts[] = {
    {OPT_N_CAND, "n-cand", 'a', 1},
    {OPT_AUTOCLASS, "autoclass", 'A', 0},
    {OPT_DAEM, "daem", 'b', 0},
    {OPT_ITEMP, "itemp", 'B', 1},
    {OPT_SMOOTH_C, "smooth-c", 'c', 1},
    {OPT_MEM_PROB, "mem-prob", 'D', 0},
    {OPT_EPSILON, "epsilon", 'e', 1},
    {OPT_EVAL, "eval", 'E', 1},
    {OPT_TARGET, "target", 'f', 1},
    {OPT_SCORE, "score", 'g', 1},
    {OPT_N_JSPLIT, "n-jsplit", 'G', 1},
    {OPT_HELP, "help", 'h', 0},
    {OPT_READ_HPARAM, "read-hparam", 'H', 0},
    {OPT_ID, "id", 'I', 1},
    {OPT_OUTPUT, "output", 'j', 1},
    {OPT_LOG_SCALE, "log-scale", 'J', 0},
    {OPT_N_CLASS, "n-class", 'k', 1},
    {OPT_SMOOTH_MEAN, "smooth-mean", 'K', 1},
    {OPT_MAX_ITER_RESTART, "max-iter-restart", 'l', 1},
    {OPT_SMOOTH_VAR, "smooth-var", 'L', 1},
    {OPT_MAX_ITER, "max-iter", 'm', 1},
    {OPT_RESTART, "restart", 'n', 1},
    {OPT_N_SM, "n-sm", 'o', 1},
    {OPT_ALPHA, "alpha", 'O', 1},
    {OPT_SEED, "seed", 'r', 1},
    {OPT_READ_PARAM, "read-param", 'R', 0},
    {OPT_SUFFIX, "suffix", 's', 1},
    {OPT_SAVE_MSG, "save-msg", 'S', 0},
    {OPT_TAU, "tau", 'T', 1},
    {OPT_GAUSS, "gauss", 'u', 1},
    {OPT_VERSION, "version", 'v', 0},
    {OPT_HIDE_ATTR, "hide-attr", 'V', 0},
    {OPT_SMOOTH_A, "smooth-a", 'w', 1},
    {OPT_N_ATTR, "n-attr", 'x', 1},
    {OPT_HELPALL, "helpall", 'X', 0},
    {OPT_IGNORE, "ignore", 'y', 1},
    {OPT_RANK, "rank", 'z', 1},
    {OPT_MIN_C_PARAM, "min-c-param", 0, 1},
    {OPT_MIN_SM_IMP, "min-sm-imp", 0, 1},
    {OPT_MIN_NEW_C_PARAM, "min-new-c-param", 0, 1},
    {OPT_INIT_C, "init-c", 0, 1},
    {OPT_INIT_A, "init-a", 0, 1},
    {OPT_NORM_JMERGE, "norm-jmerge", 0, 0},
    {OPT_OCC_ORDER, "occ-order", 0, 0},
    {OPT_HIDE_RANK, "hide-rank", 0, 0},
    {OPT_PREC_OUT, "prec-out", 0, 1},
    {OPT_PREC_MSG, "prec-msg", 0, 1},
    {OPT_DISSIM, "dissim", 0, 0},
    {OPT_INPUT, "input", 0, 1},
    {OPT_WEIGHT_PURITY, "weight-purity", 0, 1},
    {OPT_WEIGHT_WALLANCE, "weight-wallance", 0, 1},
    {OPT_SHOW_ATTR_MEMP, "show-attr-memp", 0, 0},
    {OPT_SHOW_ATTR_CLUSTER, "show-attr-cluster", 0, 0},
    {OPT_VERBOSE, "verbose", 0, 0},
    {OPT_NOISE, "noise", 0, 1},
    {OPT_NOISE_GAUSS, "noise-gauss", 0, 1},
    {OPT_REGULAR_STAT, "regular-stat", 0, 0},
    {OPT_EXTREME, "extreme", 0, 1},
    {OPT_UNCOMPRESS, "uncompress", 0, 0},
    {-1, nullptr, 0, 0},
};

XGetoptState xopt = {1, {0}, {0}, {0}};

namespace {

int is_letter(char c) { return isalpha(static_cast<unsigned char>(c)) != 0; }

// Copies at most size - 1 bytes of src and terminates the copy.
void bounded_copy(char *dst, const char *src, size_t size) {
  size_t n = strnlen(src, size - 1);
  memcpy(dst, src, n);
  dst[n] = '\0';
}

void set_value(const char *word) {
  bounded_copy(xopt.xoptarg, word, XOPTARG_SIZE);
  bounded_copy(xopt.xoptarg_c, word, XOPTARG_SIZE);
}

// A word that looks like an option and so cannot be taken as a value.
int looks_like_option(const char *w) {
  size_t n = strlen(w);
  if (n >= 2 && w[0] == '-' && is_letter(w[1])) return 1;
  return n >= 3 && w[0] == '-' && w[1] == '-' && is_letter(w[2]);
}

const XOption *find_long(const char *name, const XOption *table) {
  for (const XOption *o = table; o->id != -1; o++)
    if (strcmp(o->name, name) == 0) return o;
  return nullptr;
}

const XOption *find_short(char letter, const XOption *table) {
  for (const XOption *o = table; o->id != -1; o++)
    if (o->letter != 0 && o->letter == letter) return o;
  return nullptr;
}

// Finds the option row a word names; sets *nonopt when the word is no option.
const XOption *classify(const char *w, const XOption *table, int *nonopt) {
  size_t n = strlen(w);
  *nonopt = 0;
  if (n > 2 && w[0] != '-') {
    *nonopt = 1;
  } else if (n > 2 && w[1] != '-') {
    if (!is_letter(w[1])) *nonopt = 1;
  } else if (n > 2) {
    if (!is_letter(w[2])) *nonopt = 1;
    else return find_long(w + 2, table);
  } else if (n == 2 && w[0] == '-' && is_letter(w[1])) {
    return find_short(w[1], table);
  } else {
    *nonopt = 1;
  }
  return nullptr;
}

}  // namespace

void init_xgetopt() { xopt.xoptind = 1; }

int xgetopt(int argc, char **argv, const XOption *table) {
  xopt.optstr[0] = '\0';
  xopt.xoptarg[0] = '\0';
  xopt.xoptarg_c[0] = '\0';
  if (xopt.xoptind >= argc) return XGETOPT_END;
  const char *w = argv[xopt.xoptind++];
  bounded_copy(xopt.optstr, w, OPTSTR_SIZE);
  int nonopt = 0;
  const XOption *o = classify(w, table, &nonopt);
  if (nonopt) {
    set_value(w);
    return XGETOPT_NONOPT;
  }
  if (o == nullptr) return XGETOPT_ILLEGAL;
  if (!o->has_arg) return o->id;
  if (xopt.xoptind >= argc) return XGETOPT_ILLEGAL;
  const char *v = argv[xopt.xoptind];
  if (looks_like_option(v)) return XGETOPT_ILLEGAL;
  set_value(v);
  xopt.xoptind++;
  return o->id;
}

void copy_optarg(char *dst, int len) {
  strncpy(dst, xopt.xoptarg, len);
  dst[len] = '\0';
}

char *get_option_str(int id, const XOption *table, int long_only) {
  for (const XOption *o = table; o->id != -1; o++) {
    if (o->id != id) continue;
    size_t size = strlen(o->name) + 16;
    char *s = static_cast<char *>(malloc(size));
    if (s == nullptr) {
      fputs("Couldn't allocate memory (get_option_str)\n", stderr);
      exit_run(1);
    }
    if (o->letter != 0 && !long_only)
      snprintf(s, size, "--%s (-%c)", o->name, o->letter);
    else
      snprintf(s, size, "--%s", o->name);
    return s;
  }
  return nullptr;
}

const char *option_name(int id) {
  // One message names at most two options; older forms are freed, the two
  // newest stay reachable until the message that uses them is written.
  static char *recent[2];
  static int next;
  free(recent[next]);
  recent[next] = get_option_str(id, vesk_opts, 0);
  const char *s = recent[next];
  next = 1 - next;
  return s;
}

// Out-of-range values saturate, as the 32-bit conversions do, instead of
// wrapping into a small and plausible-looking value.
int parse_int(const char *text) {
  if (text[0] == '\0') die("Null string specified for an integer\n");
  char *end = nullptr;
  long v = strtol(text, &end, 10);
  if (end == text || *end != '\0') die("Couldn't parse as an integer -- %s\n", text);
  if (v > INT_MAX) return INT_MAX;
  if (v < INT_MIN) return INT_MIN;
  return static_cast<int>(v);
}

// A leading minus wraps ("-1" is the largest value); a magnitude beyond the
// range saturates at the largest value.
unsigned int parse_uint(const char *text) {
  if (text[0] == '\0') die("Null string specified for an unsigned integer\n");
  char *end = nullptr;
  errno = 0;
  unsigned long v = strtoul(text, &end, 10);
  if (end == text || *end != '\0') die("Couldn't parse as an unsigned integer -- %s\n", text);
  const char *p = text;
  while (isspace(static_cast<unsigned char>(*p))) p++;
  unsigned long magnitude = *p == '-' ? 0UL - v : v;
  if (errno == ERANGE || magnitude > UINT_MAX) return UINT_MAX;
  return static_cast<unsigned int>(v);
}

long double parse_float(const char *text) {
  if (text[0] == '\0') die("Null string specified for a floating-point number\n");
  char *end = nullptr;
  long double v = strtold(text, &end);
  if (end == text || *end != '\0') die("Couldn't parse as floating-point number -- %s\n", text);
  return v;
}
