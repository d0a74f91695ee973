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
    {1, "n-cand", 'a', 1},
    {2, "autoclass", 'A', 0},
    {3, "daem", 'b', 0},
    {4, "itemp", 'B', 1},
    {5, "smooth-c", 'c', 1},
    {8, "mem-prob", 'D', 0},
    {9, "epsilon", 'e', 1},
    {10, "eval", 'E', 1},
    {11, "target", 'f', 1},
    {13, "score", 'g', 1},
    {14, "n-jsplit", 'G', 1},
    {15, "help", 'h', 0},
    {16, "read-hparam", 'H', 0},
    {46, "id", 'I', 1},
    {19, "output", 'j', 1},
    {45, "log-scale", 'J', 0},
    {21, "n-class", 'k', 1},
    {22, "smooth-mean", 'K', 1},
    {23, "max-iter-restart", 'l', 1},
    {24, "smooth-var", 'L', 1},
    {25, "max-iter", 'm', 1},
    {27, "restart", 'n', 1},
    {29, "n-sm", 'o', 1},
    {30, "alpha", 'O', 1},
    {33, "seed", 'r', 1},
    {34, "read-param", 'R', 0},
    {35, "suffix", 's', 1},
    {36, "save-msg", 'S', 0},
    {37, "tau", 'T', 1},
    {38, "gauss", 'u', 1},
    {58, "version", 'v', 0},
    {49, "hide-attr", 'V', 0},
    {41, "smooth-a", 'w', 1},
    {42, "n-attr", 'x', 1},
    {48, "helpall", 'X', 0},
    {47, "ignore", 'y', 1},
    {44, "rank", 'z', 1},
    {39, "min-c-param", 0, 1},
    {28, "min-sm-imp", 0, 1},
    {6, "min-new-c-param", 0, 1},
    {18, "init-c", 0, 1},
    {20, "init-a", 0, 1},
    {12, "norm-jmerge", 0, 0},
    {43, "occ-order", 0, 0},
    {50, "hide-rank", 0, 0},
    {51, "prec-out", 0, 1},
    {52, "prec-msg", 0, 1},
    {7, "dissim", 0, 0},
    {17, "input", 0, 1},
    {54, "weight-purity", 0, 1},
    {55, "weight-wallance", 0, 1},
    {56, "show-attr-memp", 0, 0},
    {57, "show-attr-cluster", 0, 0},
    {40, "verbose", 0, 0},
    {60, "noise", 0, 1},
    {61, "noise-gauss", 0, 1},
    {59, "regular-stat", 0, 0},
    {62, "extreme", 0, 1},
    {53, "uncompress", 0, 0},
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
      exit(1);
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
