#include "driver/init.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/misc.h"
#include "driver/vesk.h"
#include "driver/xgetopt.h"

namespace {

enum ListKind { LIST_GAUSS, LIST_IGNORE };

struct IndexRange {
  int lo, hi;
};

[[noreturn]] void die_conflict(int first, int second) {
  die("Confliction between %s and %s options\n", option_name(first), option_name(second));
}

// A new copy of the first len characters of text.
char *dup_part(const char *text, size_t len) {
  char *s = alloc_str0(len + 1, "init.cpp", 1);
  memcpy(s, text, len);
  s[len] = '\0';
  return s;
}

// The integer in text[0, len), or dflt when that part is empty.
int parse_bound(const char *text, size_t len, int dflt) {
  if (len == 0) return dflt;
  char *part = dup_part(text, len);
  int v = parse_int(part);
  free(part);
  return v;
}

int count_char(const char *text, char c) {
  int n = 0;
  for (; *text != '\0'; text++) n += *text == c;
  return n;
}

// One index item: "i", "a-b", "a-", "-b" or "-".
IndexRange parse_index_item(const char *item, ListKind kind) {
  const char *dash = strchr(item, '-');
  IndexRange r;
  if (dash == nullptr) {
    r.lo = r.hi = parse_int(item);
    return r;
  }
  if (strchr(dash + 1, '-') != nullptr) {
    if (kind == LIST_GAUSS) die("Illegal specification for continuous attribute(s) -- %s\n", item);
    die("Illegal specification for ignored attribute(s) -- %s\n", item);
  }
  r.lo = parse_bound(item, dash - item, 0);
  r.hi = parse_bound(dash + 1, strlen(dash + 1), settings.tuple_size - 1);
  if (r.lo > r.hi) {
    if (kind == LIST_GAUSS) die("Illegal specification of continuous attributes -- %s\n", item);
    die("Illegal specification of ignored attributes -- %s\n", item);
  }
  return r;
}

void check_gauss_index(int i, const char *item) {
  if (i < 0 || i >= settings.tuple_size)
    die("Out-of-range specification of a continuous attribute -- %s\n", item);
  if (settings.mode_id && i == settings.attr_id) die_conflict(OPT_GAUSS, OPT_ID);
  if (settings.mode_eval && i == settings.attr_eval) die_conflict(OPT_GAUSS, OPT_EVAL);
  if (settings.attr_ignore != nullptr && settings.attr_ignore[i]) die_conflict(OPT_GAUSS, OPT_IGNORE);
}

void check_ignore_index(int i, const char *item) {
  if (i < 0 || i >= settings.tuple_size)
    die("Out-of-range specification of an ignored attribute -- %s\n", item);
  if (settings.mode_id && i == settings.attr_id) die_conflict(OPT_ID, OPT_IGNORE);
  if (settings.mode_eval && i == settings.attr_eval) die_conflict(OPT_EVAL, OPT_IGNORE);
}

// Calls fn on each sep-separated part of text (empty parts included).
template <typename Fn>
void for_each_part(const char *text, char sep, Fn fn) {
  for (;;) {
    const char *end = strchr(text, sep);
    size_t len = end != nullptr ? static_cast<size_t>(end - text) : strlen(text);
    char *part = dup_part(text, len);
    fn(part);
    free(part);
    if (end == nullptr) return;
    text = end + 1;
  }
}

void append_gauss_spec(const char *text) {
  GaussSpec *node = static_cast<GaussSpec *>(calloc_str0(sizeof(GaussSpec), "init.cpp", 2));
  node->text = dup_str0(text, "init.cpp", 3);
  GaussSpec **tail = &settings.gauss_list;
  while (*tail != nullptr) tail = &(*tail)->next;
  *tail = node;
}

// "a~b", "a~", "~b", "~": one single-attribute group per index.
void add_gauss_singles(const char *spec) {
  const char *tilde = strchr(spec, '~');
  int lo = parse_bound(spec, tilde - spec, 0);
  int hi = parse_bound(tilde + 1, strlen(tilde + 1), settings.tuple_size - 1);
  if (lo > hi) die("Illegal specification of continuous attributes -- %s\n", spec);
  for (int i = lo; i <= hi; i++) {
    check_gauss_index(i, spec);
    append_gauss_spec(int2str(i));
  }
}

void add_gauss_spec(const char *spec) {
  int tildes = count_char(spec, '~');
  if (tildes > 1) die("Illegal specification for continuous attribute(s) -- %s\n", spec);
  if (tildes == 1)
    add_gauss_singles(spec);
  else
    append_gauss_spec(spec);
}

// Marks the indices of one group and stores them in increasing order.
void parse_gauss_group(GaussSpec *node) {
  int n = settings.tuple_size;
  int *mark = static_cast<int *>(calloc_str0(sizeof(int) * n, "init.cpp", 4));
  for_each_part(node->text, ',', [mark](const char *item) {
    IndexRange r = parse_index_item(item, LIST_GAUSS);
    for (int i = r.lo; i <= r.hi; i++) {
      check_gauss_index(i, item);
      mark[i] = 1;
    }
  });
  int size = 0;
  for (int i = 0; i < n; i++) size += mark[i];
  node->attrs = static_cast<int *>(xmalloc0(sizeof(int) * size, "init.cpp", 5));
  node->size = 0;
  for (int i = 0; i < n; i++)
    if (mark[i]) node->attrs[node->size++] = i;
  free(mark);
}

void check_gauss_overlap() {
  int n = settings.tuple_size;
  int *uses = static_cast<int *>(calloc_str0(sizeof(int) * n, "init.cpp", 6));
  for (GaussSpec *g = settings.gauss_list; g != nullptr; g = g->next)
    for (int j = 0; j < g->size; j++) uses[g->attrs[j]]++;
  int overlap = -1;
  for (int i = 0; i < n && overlap < 0; i++)
    if (uses[i] > 1) overlap = i;
  free(uses);
  if (overlap >= 0) die("Overlapping continuous attrubute: %d\n", overlap);
}

void free_gauss_list() {
  GaussSpec *g = settings.gauss_list;
  while (g != nullptr) {
    GaussSpec *next = g->next;
    free(g->text);
    free(g->attrs);
    free(g);
    g = next;
  }
  settings.gauss_list = nullptr;
}

// Moves the parsed groups into gauss_attr_size / gauss_attr.
void store_gauss_groups() {
  int groups = 0;
  for (GaussSpec *g = settings.gauss_list; g != nullptr; g = g->next) groups++;
  settings.gauss_size = groups;
  settings.tuple_size_c = 0;
  settings.gauss_attr_size = nullptr;
  settings.gauss_attr = nullptr;
  if (groups == 0) return;
  settings.gauss_attr_size = static_cast<int *>(xmalloc0(sizeof(int) * groups, "init.cpp", 7));
  settings.gauss_attr = static_cast<int **>(xmalloc0(sizeof(int *) * groups, "init.cpp", 8));
  int k = 0;
  for (GaussSpec *g = settings.gauss_list; g != nullptr; g = g->next, k++) {
    settings.gauss_attr_size[k] = g->size;
    settings.gauss_attr[k] = g->attrs;
    g->attrs = nullptr;
    settings.tuple_size_c += g->size;
  }
}

void fill_attr_info() {
  int n = settings.tuple_size;
  settings.attr_info = static_cast<AttrInfo *>(calloc_str0(sizeof(AttrInfo) * n, "init.cpp", 9));
  for (int g = 0; g < settings.gauss_size; g++)
    for (int j = 0; j < settings.gauss_attr_size[g]; j++) {
      AttrInfo &info = settings.attr_info[settings.gauss_attr[g][j]];
      info.cont = 1;
      info.group = g;
      info.index = j;
    }
  int d = 0;
  for (int a = 0; a < n; a++)
    if (!settings.attr_info[a].cont && is_model_attr(a)) settings.attr_info[a].index = d++;
}

// Replaces the attribute smoothing arrays by new ones of n entries.
void realloc_smooth_w(int n) {
  free(settings.smooth_w);
  free(settings.mode_smooth_auto_w);
  settings.smooth_w =
      static_cast<long double *>(calloc_str0(sizeof(long double) * n, "init.cpp", 10));
  settings.mode_smooth_auto_w = static_cast<int *>(calloc_str0(sizeof(int) * n, "init.cpp", 11));
}

// One element of --smooth-a into entry k of the arrays.
void parse_smooth_w_element(const char *elem, int k) {
  size_t len = strlen(elem);
  if (len == 0) die("Null string specified for a floating-point number\n");
  if (len >= 60) die("Too long input for a floating-point number: %s\n", elem);
  if (strcmp(elem, "auto") == 0) {
    settings.mode_smooth_auto = 1;
    settings.mode_smooth_auto_w[k] = 2;
    settings.smooth_w[k] = -1;
    return;
  }
  long double v = parse_float(elem);
  if (v < 0) die("Unexpected value -- %s\n", elem);
  settings.mode_smooth_auto_w[k] = 1;
  settings.smooth_w[k] = v;
}

// The three fields of "Kmin:Kmax:Kstep" (also "," or "-"), each cut at 9 characters.
void parse_class_range(const char *text) {
  char field[3][10] = {{0}};
  int nsep = 0, len = 0;
  for (const char *p = text; *p != '\0'; p++) {
    if (*p == ',' || *p == ':' || *p == '-') {
      if (++nsep == 3) break;
      len = 0;
    } else if (len < 9) {
      field[nsep][len++] = *p;
    }
  }
  if (nsep != 2) die("Illegal value for %s option\n", option_name(OPT_N_CLASS));
  settings.kmin = parse_int(field[0]);
  settings.kmax = parse_int(field[1]);
  settings.kstep = parse_int(field[2]);
  settings.mode_search_num_class = 1;
}

// True when the whole text is an integer (standard conversion rules);
// values beyond the int range saturate.
int whole_int(const char *text, long *out) {
  char *end = nullptr;
  long v = strtol(text, &end, 10);
  *out = v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : v;
  return end != text && *end == '\0';
}

int whole_real(const char *text, long double *out) {
  char *end = nullptr;
  *out = strtold(text, &end);
  return end != text && *end == '\0';
}

}  // namespace

void add_gauss(const char *text) {
  settings.mode_gauss = 1;
  for_each_part(text, '#', [](const char *spec) { add_gauss_spec(spec); });
}

void add_attr_ignore(const char *text) {
  int n = settings.tuple_size;
  if (settings.attr_ignore == nullptr)
    settings.attr_ignore = static_cast<int *>(calloc_str0(sizeof(int) * n, "init.cpp", 12));
  settings.mode_ignore = 1;
  for_each_part(text, ',', [](const char *item) {
    IndexRange r = parse_index_item(item, LIST_IGNORE);
    for (int i = r.lo; i <= r.hi; i++) {
      check_ignore_index(i, item);
      settings.attr_ignore[i] = 1;
    }
  });
  settings.num_attr_ignore = 0;
  for (int i = 0; i < n; i++) settings.num_attr_ignore += settings.attr_ignore[i];
}

void parse_num_class(const char *text) {
  if (text[0] == '\0') die("Unexpected number of classes -- %s\n", text);
  long k = 0;
  if (whole_int(text, &k)) {
    settings.num_class = static_cast<int>(k);
    settings.mode_search_num_class = 0;
    return;
  }
  parse_class_range(text);
}

void parse_rank(const char *text) {
  if (text[0] == '\0') die("Null string specified for a floating-point number\n");
  long n = 0;
  long double th = 0;
  settings.mode_rank = 1;
  if (whole_int(text, &n) && n >= 0) {
    settings.num_rank = static_cast<int>(n);
    settings.mode_rank_th = 0;
    settings.rank_th = -1.0L;
  } else if (whole_real(text, &th) && th > 0 && th < 1) {
    settings.mode_rank_th = 1;
    settings.rank_th = th;
    settings.num_rank = -1;
  } else {
    die("Illegal specification for ranking -- %s\n", text);
  }
}

void parse_itemp(const char *text) {
  if (text[0] == '\0' || count_char(text, ':') + count_char(text, ',') != 1)
    die("Illegal specification of the inverse temperature -- %s\n", text);
  size_t pos = strcspn(text, ":,");
  if (pos > 0) {
    char *left = dup_part(text, pos);
    settings.itemp_init = parse_float(left);
    free(left);
  }
  if (text[pos + 1] != '\0') settings.itemp_rate = parse_float(text + pos + 1);
  if (!(settings.itemp_init > 0 && settings.itemp_init <= 1))
    die(conv_msg("Illegal value for the initial value of inverse temperature -- %.Nf\n"),
        settings.itemp_init);
  if (!(settings.itemp_rate > 1))
    die(conv_msg("Illegal value for the increasing rate of inverse temperature -- %.Nf\n"),
        settings.itemp_rate);
}

void parse_extreme(const char *text) {
  long double q = parse_float(text);
  if (!(q >= 0 && q <= 1)) die("Illegal value for %s option\n", option_name(OPT_EXTREME));
  settings.q_regular_min = q;
  settings.q_regular_max = 1 - q;
}

namespace {

// A non-negative smoothing value, or "auto" (returned as -1) for the AutoClass
// rule; *mode_auto records which (1 given, 2 auto). A negative value is
// refused with "Unexpected value", or naming the option `opt` when not 0.
long double parse_smooth_value(const char *text, int *mode_auto, int opt) {
  if (strcmp(text, "auto") == 0) {
    settings.mode_smooth_auto = 1;
    *mode_auto = 2;
    return -1;
  }
  long double v = parse_float(text);
  if (v < 0 && opt == 0) die("Unexpected value -- %s\n", text);
  if (v < 0) die("Illegal value for %s option\n", option_name(opt));
  *mode_auto = 1;
  return v;
}

}  // namespace

long double parse_smooth_c(const char *text) {
  return parse_smooth_value(text, &settings.mode_smooth_auto_c, 0);
}

long double parse_smooth_tau(const char *text) {
  return parse_smooth_value(text, &settings.mode_smooth_auto_tau, OPT_TAU);
}

int parse_smooth_w(const char *text) {
  int n = count_char(text, ',') + 1;
  realloc_smooth_w(n);
  int k = 0;
  for_each_part(text, ',', [&k](const char *elem) { parse_smooth_w_element(elem, k++); });
  return n;
}

void parse_smooth_s(const char *text) {
  int mode = 1;
  const char *value = text;
  const char *colon = strchr(text, ':');
  if (strcmp(text, "sample") == 0 || strcmp(text, "const") == 0) {
    settings.smooth_s = 1.0L;
    settings.mode_smooth_s = text[0] == 's' ? 1 : 2;
    return;
  }
  if (colon != nullptr) {
    size_t len = colon - text;
    if (len == 6 && strncmp(text, "sample", 6) == 0) mode = 1;
    else if (len == 5 && strncmp(text, "const", 5) == 0) mode = 2;
    else die("Illegal value for %s option\n", option_name(OPT_SMOOTH_VAR));
    value = colon + 1;
  }
  long double v = parse_float(value);
  if (v < 0) die("Illegal value for %s option\n", option_name(OPT_SMOOTH_VAR));
  settings.smooth_s = v;
  settings.mode_smooth_s = mode;
}

void check_tuple_size() {
  int n = settings.tuple_size - (settings.mode_id ? 1 : 0) - (settings.mode_eval ? 1 : 0) -
          settings.num_attr_ignore;
  if (n < 1) die("No descriptive attributes\n");
}

void parse_gauss() {
  for (GaussSpec *g = settings.gauss_list; g != nullptr; g = g->next) parse_gauss_group(g);
  check_gauss_overlap();
}

void build_attr_info() {
  // One role record, smoothing constant and a few flags per attribute: an
  // attribute count whose tables cannot fit in memory ends here, at once.
  long double per_attr = sizeof(AttrInfo) + sizeof(long double) + 4 * sizeof(int);
  if (settings.tuple_size * per_attr > physical_memory_bytes()) die_alloc("init.cpp", 13);
  parse_gauss();
  store_gauss_groups();
  settings.mode_gauss = settings.gauss_size > 0;
  settings.tuple_size_d = settings.tuple_size - settings.tuple_size_c -
                          (settings.mode_eval ? 1 : 0) - (settings.mode_id ? 1 : 0) -
                          settings.num_attr_ignore;
  settings.tuple_size_all = settings.tuple_size_d + settings.tuple_size_c;
  settings.mode_nominal = settings.tuple_size_d > 0;
  fill_attr_info();
  free_gauss_list();
}

void build_smooth_nominal(int n) {
  int a_count = settings.tuple_size_d;
  if (n == a_count) return;
  if (n == 0) {
    realloc_smooth_w(a_count);
    for (int a = 0; a < a_count; a++) {
      settings.smooth_w[a] = settings.smooth_default;
      settings.mode_smooth_auto_w[a] = 1;
    }
  } else if (n == 1) {
    long double value = settings.smooth_w[0];
    int flag = settings.mode_smooth_auto_w[0];
    realloc_smooth_w(a_count);
    for (int a = 0; a < a_count; a++) {
      settings.smooth_w[a] = value;
      settings.mode_smooth_auto_w[a] = flag;
    }
  } else {
    die("Too many or too few smoothing constants for %s\n", option_name(OPT_SMOOTH_A));
  }
  settings.num_smooth_w = a_count;
}

void release_smooth_nominal() {
  free(settings.smooth_w);
  free(settings.mode_smooth_auto_w);
  settings.smooth_w = nullptr;
  settings.mode_smooth_auto_w = nullptr;
}

void release_attr_info() {
  free_gauss_list();
  for (int g = 0; g < settings.gauss_size && settings.gauss_attr != nullptr; g++)
    free(settings.gauss_attr[g]);
  free(settings.gauss_attr);
  free(settings.gauss_attr_size);
  free(settings.attr_info);
  free(settings.attr_ignore);
  settings.gauss_attr = nullptr;
  settings.gauss_attr_size = nullptr;
  settings.attr_info = nullptr;
  settings.attr_ignore = nullptr;
  settings.gauss_size = 0;
}
