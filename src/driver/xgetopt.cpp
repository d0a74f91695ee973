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

const char *const version_text = "VESK version 0.6 (ML+MAP, built on Apr 22 2011)";

const char *const usage_text =
    "[Usage] vesk -f basename -k #classes -x #attributes [option...]\n"
    "Flags with an argument:\n"
    " --target   (-f) Prefix of input/output files                      [Required]\n"
    " --suffix   (-s) Suffix of output files                           [No suffix]\n"
    " --n-class  (-k) Number of classes or Kmin:Kmax:Kstep\n"
    "                                                [Required unless -R/-H given]\n"
    " --n-attr   (-x) Number of attributes                              [Required]\n"
    " --gauss    (-u) Indices of continuous attributes        [No continous attrs]\n"
    " --id       (-I) Index of the ID attribute\n"
    " --ignore   (-y) Indices of the attributes to be ignored\n"
    " --eval     (-E) Index of the answer class attribute (Evaluation enabled)\n"
    " --output   (-j) File extension of the output files\n"
    "                 (csv:comma-separated, txt:tab-separated)    [Same as inputs]\n"
    " --smooth-c (-c) Smoothing constant for class parameters\n"
    "                 (auto:AutoClass, other positive float: as-is) [No smoothing]\n"
    " --smooth-a (-w) Smoothing constants for attribute parameters\n"
    "                 (auto:AutoClass, other positive float: as-is) [No smoothing]\n"
    " --tau      (-T) Tau in the Normal-Wishart priors\n"
    "                 (auto:AutoClass, other positive float: as-is) [No smoothing]\n"
    " --epsilon  (-e) Threshold in judging convergence                    [1.0e-6]\n"
    " --max-iter (-m) Max number of EM iterations      [Iterate until convergence]\n"
    " --score    (-g) Model score (bic:BIC, cs:Cheeseman-Stutz)              [BIC]\n"
    "                 [NOTE] AUTOCLASS is available only when smoothing is enabled\n"
    " --restart  (-n) Number of restarts                              [No restart]\n"
    " --rank     (-z) Number of attvals highly relevant to a class, or threshold\n"
    "                 for the relevance (Ranking enabled)    [Ranking is disabled]\n"
    "Flags with no argument:\n"
    " --read-param  (-R) Disable EM and read paramters from a file\n"
    " --read-hparam (-H) Read hyperparameters from a file\n"
    " --autoclass   (-A) Set hyperparameters similarly to AutoClass\n"
    " --mem-prob    (-D) Compute and output the membership distributions\n"
    " --log-scale   (-J) Enable log-scale computation in ML/MAP estimation\n"
    " --save-msg    (-S) Output the messages to the files [To stderr]\n"
    " --version     (-v) Print the version number\n"
    " --help        (-h) Print brief descriptions on major flags\n"
    " --helpall     (-X) Print brief descriptions on all flags\n";

const char *const usage_text_full =
    "[Usage] vesk -f basename -k #classes -x #attributes [option...]\n"
    "Flags with an argument:\n"
    " --target   (-f) Prefix of input/output files                      [Required]\n"
    " --suffix   (-s) Suffix of output files                           [No suffix]\n"
    " --n-class  (-k) Number of classes or Kmin:Kmax:Kstep\n"
    "                                                [Required unless -R/-H given]\n"
    " --n-attr   (-x) Number of attributes                              [Required]\n"
    " --gauss    (-u) Indices of continuous attributes        [No continous attrs]\n"
    " --id       (-I) Index of the ID attribute\n"
    " --ignore   (-y) Indices of the attributes to be ignored\n"
    " --eval     (-E) Index of the answer class attribute (Evaluation enabled)\n"
    " --input    (-i) File extension of the input files\n"
    "                 (csv:comma-separated, txt:tab-separated)       [Auto-detect]\n"
    " --output   (-j) File extension of the output files\n"
    "                 (csv:comma-separated, txt:tab-separated)    [Same as inputs]\n"
    " --smooth-c (-c) Smoothing constant for class parameters\n"
    "                 (auto:AutoClass, other positive float: as-is) [No smoothing]\n"
    " --smooth-a (-w) Smoothing constants for attribute parameters\n"
    "                 (auto:AutoClass, other positive float: as-is) [No smoothing]\n"
    " --tau      (-T) Tau in the Normal-Wishart priors\n"
    "                 (auto:AutoClass, other positive float: as-is) [No smoothing]\n"
    " --alpha    (-O) Alpha in the Normal-Wishart priors\n"
    " --smooth-mean (-K) Smoothing constant for means\n"
    " --smooth-var  (-L) Smoothing constant for variances\n"
    "                    (sample:<val>, const:<val>, or other short-forms)\n"
    "                                                                 [sample:1.0]\n"
    " --init-c        Initialization method for class\n"
    "                 (random:Random, noisy_u:Noisy-uniform)    [Noisy-uniform]\n"
    " --init-a        Initialization method for attributes\n"
    "                 (random:Random, noisy_u:Noisy-uniform,\n"
    "                  v_freq:Value-frequency)                     [Noisy-uniform]\n"
    " --epsilon  (-e) Threshold in judging convergence                    [1.0e-6]\n"
    " --max-iter (-m) Max number of EM iterations   [Iterate EM until convergence]\n"
    " --score    (-g) Model score (bic:BIC, cs:Cheeseman-Stutz)              [BIC]\n"
    "                 [NOTE] AUTOCLASS is available only with smoothing enabled\n"
    " --seed     (-r) Random seed                       [Returned value of time()]\n"
    " --restart  (-n) Number of restarts                              [No restart]\n"
    " --max-iter-restart (-l)\n"
    "                 Max number of preliminary EM iterations in random restart\n"
    "                                               [Iterate EM until convergence]\n"
    " --noise         Noises in initialization of categorical parameters\n"
    " --noise-gauss   Noises in initialization of means of Gaussians\n"
    " --extreme       Threshold for judging extreme values                  [0.05]\n"
    " --rank  (-z)    Number of attribute values highly relevant to a class,\n"
    "                 or threshold for the relevance (Ranking is enabled)\n"
    "                                                           [Ranking disabled]\n"
    " --itemp (-B) Binit:Brate\n"
    "                 where Binit is the initial value of the inverse temperature,\n"
    "                 and Brate is the update rate of the inverse temperature\n"
    "                                                                    [0.1:1.5]\n"
    " --n-sm     (-o) Max number of split-merge operations (SMEM enabled)\n"
    "                                                              [SMEM disabled]\n"
    " --n-cand   (-a) Max number of SM candidates to be examined        [No limit]\n"
    " --n-jsplit (-G) Max number of split candidates to be examined\n"
    "                 for each pair being merged                        [No limit]\n"
    " --min-c-param\n"
    "              Lower limit of prob. of the class to be split/merged [No limit]\n"
    " --min-new-c-param\n"
    "              Lower limit of prob. of the splited/merged class     [No limit]\n"
    " --min-sm-imp Lower limit of improvement by spilt-merge oparations\n"
    "                                     [Threshold of convergence (given by -e)]\n"
    " --prec-out  Number of significant digits of\n"
    "               a floating point number in the output files               [12]\n"
    " --prec-msg  Number of digits after the decimal point of\n"
    "               a floating point number in the terminal messages           [6]\n"
    "Flags with no argument:\n"
    " --read-param     (-R) Disable EM and read paramters from a file\n"
    " --read-hparam    (-H) Read hyperparameters from a file\n"
    " --autoclass      (-A) Set hyperparameters similarly to AutoClass\n"
    " --mem-prob       (-D) Compute and output the membership distributions\n"
    " --dissim              Compute and output the dissimilarities\n"
    " --log-scale      (-J) Enable log-scale computation in ML/MAP estimation\n"
    " --uncompress          Uncompress the cases having the same attribute values\n"
    " --verbose             Output the temporarily computed results to log file\n"
    " --daem           (-b) Enable DAEM\n"
    " --norm-jmerge         Normalize Jmerge\n"
    " --regular-stat        Ignore extreme values in getting sample means/covars\n"
    " --occ-order           Print attvals in the appearance order     [Lex. order]\n"
    " --hide-attr      (-V) Hide attribute values in the output files\n"
    " --hide-rank           Hide irrevant attribute values in ranking\n"
    " --show-attr-memp      Show the membership probabilities for attributes\n"
    " --show-attr-cluster   Show the clusters of attribute values\n"
    " --save-msg       (-S) Output the terminal messages to the files  [To stderr]\n"
    " --version        (-v) Print the version number\n"
    " --help           (-h) Print brief descriptions on major flags\n"
    " --helpall        (-X) Print brief descriptions on all flags\n";

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
