// The case file reader: counts the lines, then reads every non-comment line
// into the case table, merging identical discrete cases when that is allowed.
#include "input/read_freq.h"

#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/misc.h"
#include "base/split.h"
#include "settings/settings.h"

CaseTable cases;

namespace {

const char *const MODULE = "read_freq.cpp";

// Kept lengths of a discrete value and of the ID and answer texts; the
// longest line accepted (every field then fits its split buffer).
enum { WORD_KEEP = 255, LABEL_KEEP = 256, LINE_MAX_LEN = SPLIT_SCAN_MAX, ID_LONG_LINE = 370 };

// Buffers of the second pass, allocated once and reused for every line.
struct LineState {
  FILE *fp;
  char *line;
  size_t cap;
  int line_no;       // physical line number, comment lines included
  int num_fields;
  char **fields;
  int *starts;
  char *vec_key;     // discrete values joined, the merging key
  int count;         // object count of the line
  int *miss_d;       // per discrete attribute: missing on this line
  long double *val_c;  // per continuous attribute (group-major): the value
  int *miss_c;         // per continuous attribute: missing on this line
  int *slot_c;         // per group: offset of its first member in val_c
  int records;       // records filled so far
  int lines_read;    // non-comment lines read
  // Missing-value counts while reading, wide enough for any sum of int
  // counts; each is at most the total, checked once the file is read.
  long long *miss_w_sum;  // per discrete attribute
  long long *miss_c_sum;  // per continuous attribute (group-major)
};

// The blocks the per-record arrays are carved from.
struct RecordBlocks {
  int *words, *miss_w, *miss_g_flags, *num_miss_gauss;
  Vector *gauss;
  int **miss_g;
  char *values;
};

// Reader state lives at module level so that release_freq can free what a
// failed read leaves behind.
LineState line_state;
RecordBlocks blocks;

[[noreturn]] void bad_line(LineState *st, int id, const char *reason, int column) {
  // The message shows the line with its own line end; add one if it has none.
  size_t len = strlen(st->line);
  if (len == 0 || st->line[len - 1] != '\n') {
    if (len + 2 > st->cap) {
      st->line = static_cast<char *>(xrealloc0(st->line, len + 2, MODULE, 1));
      st->cap = len + 2;
    }
    st->line[len] = '\n';
    st->line[len + 1] = '\0';
  }
  die_line(settings.fname_freq, st->line_no, id, st->line, reason, column);
}

bool is_missing_text(const char *s) { return strcmp(s, "?") == 0 || strcmp(s, "NA") == 0; }

// Non-comment lines, sizing the case table. Every line end counts except that
// of a comment line; a last line without a line end counts too.
int count_entries(FILE *fp) {
  static char chunk[65536];
  long long n = 0;
  bool at_start = true, comment = false, open_line = false;
  size_t got;
  while ((got = fread(chunk, 1, sizeof chunk, fp)) > 0) {
    check_stop();
    for (size_t i = 0; i < got; i++) {
      if (at_start) {
        comment = chunk[i] == '#';
        at_start = false;
        open_line = true;
      }
      if (chunk[i] == '\n') {
        if (!comment) n++;
        at_start = true;
        open_line = false;
      }
    }
  }
  if (open_line) n++;
  if (n >= INT_MAX) die("Too many lines in %s\n", settings.fname_freq);
  return static_cast<int>(n);
}

size_t record_values_bytes(size_t align) {
  size_t bytes = 0;
  for (int g = 0; g < settings.gauss_size; g++)
    bytes += (vector_block_bytes(settings.gauss_attr_size[g]) + align - 1) / align * align;
  return bytes;
}

// Carves the per-record arrays out of a few large blocks.
void alloc_records(int n) {
  int d = settings.tuple_size_d, gs = settings.gauss_size, c = settings.tuple_size_c;
  size_t nn = static_cast<size_t>(n);
  cases.freq_list = static_cast<CaseRecord *>(calloc_str0(sizeof(CaseRecord) * nn, MODULE, 2));
  blocks.words = static_cast<int *>(xmalloc0(sizeof(int) * nn * d, MODULE, 3));
  blocks.miss_w = static_cast<int *>(xmalloc0(sizeof(int) * nn * d, MODULE, 4));
  blocks.gauss = static_cast<Vector *>(xmalloc0(sizeof(Vector) * nn * gs, MODULE, 5));
  blocks.miss_g = static_cast<int **>(xmalloc0(sizeof(int *) * nn * gs, MODULE, 6));
  blocks.miss_g_flags = static_cast<int *>(xmalloc0(sizeof(int) * nn * c, MODULE, 7));
  blocks.num_miss_gauss = static_cast<int *>(xmalloc0(sizeof(int) * nn * gs, MODULE, 8));
  const size_t align = alignof(long double) > 16 ? alignof(long double) : 16;
  size_t bytes_per_record = record_values_bytes(align);
  blocks.values = static_cast<char *>(xmalloc0(bytes_per_record * nn, MODULE, 9));
  for (int e = 0; e < n; e++) {
    CaseRecord &r = cases.freq_list[e];
    r.word = blocks.words + static_cast<size_t>(e) * d;
    r.miss_w = blocks.miss_w + static_cast<size_t>(e) * d;
    r.gauss = blocks.gauss + static_cast<size_t>(e) * gs;
    r.miss_g = blocks.miss_g + static_cast<size_t>(e) * gs;
    r.num_miss_gauss = blocks.num_miss_gauss + static_cast<size_t>(e) * gs;
    char *mem = blocks.values + bytes_per_record * e;
    int *flags = blocks.miss_g_flags + static_cast<size_t>(e) * c;
    for (int g = 0; g < gs; g++) {
      int dg = settings.gauss_attr_size[g];
      r.gauss[g] = make_vector_view(mem, dg);
      mem += (vector_block_bytes(dg) + align - 1) / align * align;
      r.miss_g[g] = flags;
      flags += dg;
    }
  }
}

void release_records() {
  void *all[] = {blocks.words,          blocks.miss_w, blocks.gauss, blocks.miss_g,
                 blocks.miss_g_flags,   blocks.num_miss_gauss, blocks.values};
  for (void *p : all) free(p);
  blocks = RecordBlocks();
}

void init_record(CaseRecord *r) {
  for (int a = 0; a < settings.tuple_size_d; a++) {
    r->word[a] = WORD_UNSET;
    r->miss_w[a] = 0;
  }
  r->count = 0;
  r->case_id = -1;
  r->ans_class = -1;
  r->num_miss = 0;
}

void alloc_table(int n) {
  int d = settings.tuple_size_d, gs = settings.gauss_size;
  alloc_records(n);
  if (!settings.mode_em && cases.ht == nullptr && d > 0)
    die("Internal error: read_freq(): no value dictionaries\n");
  if (settings.mode_em) {
    cases.ht = static_cast<HashTable *>(xmalloc0(sizeof(HashTable) * (d > 0 ? d : 1), MODULE, 10));
    for (int a = 0; a < d; a++) init_hashtable(&cases.ht[a]);
  }
  cases.num_attr_d = d;
  cases.num_groups = gs;
  init_hashtable(&cases.ht_vec);
  init_hashtable(&cases.ht_case_id);
  init_hashtable(&cases.ht_class);
  cases.num_miss_w = static_cast<int *>(calloc_str0(sizeof(int) * (d > 0 ? d : 1), MODULE, 11));
  cases.num_miss_g = static_cast<int **>(xmalloc0(sizeof(int *) * (gs > 0 ? gs : 1), MODULE, 12));
  for (int g = 0; g < gs; g++)
    cases.num_miss_g[g] =
        static_cast<int *>(calloc_str0(sizeof(int) * settings.gauss_attr_size[g], MODULE, 13));
}

// The line buffer; what depends on the number of attributes comes later.
void open_line_state(LineState *st, FILE *fp) {
  *st = LineState();
  st->fp = fp;
  st->cap = 4096;
  st->line = static_cast<char *>(xmalloc0(st->cap, MODULE, 14));
}

void alloc_attr_buffers(LineState *st) {
  int d = settings.tuple_size_d, c = settings.tuple_size_c, gs = settings.gauss_size;
  st->fields = alloc_field(settings.tuple_size + 1);
  st->starts = static_cast<int *>(xmalloc0(sizeof(int) * (settings.tuple_size + 1), MODULE, 15));
  st->vec_key = static_cast<char *>(xmalloc0(static_cast<size_t>(d) * (WORD_KEEP + 1) + 1, MODULE, 16));
  st->miss_d = static_cast<int *>(xmalloc0(sizeof(int) * (d + 1), MODULE, 17));
  st->val_c = static_cast<long double *>(xmalloc0(sizeof(long double) * (c + 1), MODULE, 18));
  st->miss_c = static_cast<int *>(xmalloc0(sizeof(int) * (c + 1), MODULE, 19));
  st->slot_c = static_cast<int *>(xmalloc0(sizeof(int) * (gs + 1), MODULE, 20));
  st->miss_w_sum = static_cast<long long *>(calloc_str0(sizeof(long long) * (d + 1), MODULE, 28));
  st->miss_c_sum = static_cast<long long *>(calloc_str0(sizeof(long long) * (c + 1), MODULE, 29));
  for (int g = 0, off = 0; g < gs; g++) {
    st->slot_c[g] = off;
    off += settings.gauss_attr_size[g];
  }
}

// Closes the file and frees every buffer, whether or not the read finished.
void release_line_state(LineState *st) {
  if (st->fp != nullptr) fclose(st->fp);
  free(st->line);
  if (st->fields != nullptr) release_field(st->fields, settings.tuple_size + 1);
  void *rest[] = {st->starts, st->miss_d, st->val_c, st->miss_c, st->slot_c, st->miss_w_sum, st->miss_c_sum};
  free(st->vec_key);
  for (void *p : rest) free(p);
  *st = LineState();
}

void parse_count(LineState *st, int f) {
  const char *text = st->fields[f];
  char *end = nullptr;
  errno = 0;
  long v = strtol(text, &end, 10);
  if (*end != '\0' || errno == ERANGE || v > INT_MAX || v < INT_MIN)
    bad_line(st, 397, "illegal format for an integer", st->starts[f]);
  if (v <= 0) bad_line(st, 400, "the object counts should be positive", st->starts[f]);
  st->count = static_cast<int>(v);
}

void parse_continuous(LineState *st, int f) {
  const AttrInfo &info = settings.attr_info[f];
  int slot = st->slot_c[info.group] + info.index;
  const char *text = st->fields[f];
  st->miss_c[slot] = is_missing_text(text);
  st->val_c[slot] = 0.0L;
  if (st->miss_c[slot]) return;
  char *end = nullptr;
  long double v = strtold(text, &end);
  if (*end != '\0' || !std::isfinite(v))
    bad_line(st, 413, "illegal format for a floating-point number", st->starts[f]);
  st->val_c[slot] = v;
}

// Checks and converts the fields of one line, in column order.
void parse_fields(LineState *st) {
  st->count = 1;
  for (int f = 0; f < st->num_fields; f++) {
    if (f < settings.tuple_size && !is_model_attr(f)) continue;
    if (st->fields[f][0] == '\0') bad_line(st, 388, "empty value", st->starts[f]);
    if (f == settings.tuple_size) {
      parse_count(st, f);
    } else if (settings.attr_info[f].cont) {
      parse_continuous(st, f);
    } else {
      char *text = st->fields[f];
      if (strlen(text) > WORD_KEEP) text[WORD_KEEP] = '\0';
      st->miss_d[settings.attr_info[f].index] = is_missing_text(text);
    }
  }
}

// The discrete values joined by the input delimiter (missing ones as "?").
void build_vec_key(LineState *st) {
  char delim = settings.format_in == FORMAT_CSV ? ',' : '\t';
  char *p = st->vec_key;
  for (int f = 0; f < settings.tuple_size; f++) {
    if (!is_model_attr(f) || settings.attr_info[f].cont) continue;
    const char *text = st->miss_d[settings.attr_info[f].index] ? "?" : st->fields[f];
    if (p != st->vec_key) *p++ = delim;
    size_t len = strlen(text);
    memcpy(p, text, len);
    p += len;
  }
  *p = '\0';
}

CaseRecord *choose_record(LineState *st) {
  bool merge = !settings.mode_uncompress && !settings.mode_id && settings.gauss_size == 0;
  int rid;
  if (merge) {
    build_vec_key(st);
    rid = register_hashtable(&cases.ht_vec, st->vec_key);
  } else {
    rid = st->records;
  }
  if (rid > st->records || rid >= cases.num_entry_pre)
    die("Internal error: inconsistency in number of entries");
  if (rid == st->records) {
    init_record(&cases.freq_list[rid]);
    st->records++;
  }
  return &cases.freq_list[rid];
}

void store_discrete(LineState *st, CaseRecord *r) {
  int nmiss = 0;
  for (int f = 0; f < settings.tuple_size; f++) {
    if (!is_model_attr(f) || settings.attr_info[f].cont) continue;
    int a = settings.attr_info[f].index;
    if (st->miss_d[a]) {
      r->word[a] = WORD_MISSING;
      r->miss_w[a] = 1;
      st->miss_w_sum[a] += st->count;
      nmiss++;
      continue;
    }
    int id = settings.mode_em ? register_hashtable(&cases.ht[a], st->fields[f])
                              : lookup_hashtable(&cases.ht[a], st->fields[f]);
    if (id < 0) die("Unknown attribute value -- %s\n", st->fields[f]);
    r->word[a] = id;
    r->miss_w[a] = 0;
  }
  r->num_miss = nmiss;
}

void store_continuous(LineState *st, CaseRecord *r) {
  for (int g = 0; g < settings.gauss_size; g++) {
    int nmiss = 0;
    for (int k = 0; k < settings.gauss_attr_size[g]; k++) {
      int slot = st->slot_c[g] + k;
      r->gauss[g][k] = st->val_c[slot];
      r->miss_g[g][k] = st->miss_c[slot];
      if (st->miss_c[slot]) {
        st->miss_c_sum[slot] += st->count;
        nmiss++;
      }
    }
    r->num_miss_gauss[g] = nmiss;
  }
}

void store_labels(LineState *st, CaseRecord *r) {
  if (settings.mode_id) {
    char *text = st->fields[settings.attr_id];
    if (strlen(text) > LABEL_KEEP) text[LABEL_KEEP] = '\0';
    if (lookup_hashtable(&cases.ht_case_id, text) >= 0)
      bad_line(st, 203, "duplicating case ID", st->starts[settings.attr_id]);
    r->case_id = register_hashtable(&cases.ht_case_id, text);
  }
  if (settings.mode_eval) {
    char *text = st->fields[settings.attr_eval];
    if (strlen(text) > LABEL_KEEP) text[LABEL_KEEP] = '\0';
    int cls = register_hashtable(&cases.ht_class, text);
    if (r->num_miss == 0 && r->ans_class >= 0 && r->ans_class != cls)
      bad_line(st, 219, "different answer classes for the same object", st->starts[settings.attr_eval]);
    r->ans_class = cls;
  }
}

// A line longer than the splitter scans is refused, showing what would
// have been read.
void check_line_length(LineState *st) {
  size_t content = strlen(st->line);
  while (content > 0 && (st->line[content - 1] == '\n' || st->line[content - 1] == '\r')) content--;
  if (content <= LINE_MAX_LEN) return;
  st->line[LINE_MAX_LEN] = '\n';
  st->line[LINE_MAX_LEN + 1] = '\0';
  bad_line(st, ID_LONG_LINE, "Too long line", -1);
}

// The field-count checks of a split line (n is -1 for too many fields).
void check_field_count(LineState *st, int n) {
  if (n < 0 || n > settings.tuple_size + 1) bad_line(st, 372, "Too many fields (columns)", -1);
  if (n < settings.tuple_size) bad_line(st, 374, "Too few fields (columns)", -1);
}

void read_line(LineState *st) {
  check_line_length(st);
  int n = settings.format_in == FORMAT_CSV
              ? split_comma(settings.tuple_size + 1, st->line, st->fields, st->starts)
              : split_tab(settings.tuple_size + 1, st->line, st->fields, st->starts);
  check_field_count(st, n);
  st->num_fields = n;
  parse_fields(st);
  CaseRecord *r = choose_record(st);
  store_discrete(st, r);
  store_continuous(st, r);
  store_labels(st, r);
  if (r->count > INT_MAX - st->count) die("Too large object count in %s\n", settings.fname_freq);
  r->count += st->count;
}

// Reads up to the next non-comment line; false at the end of the file.
bool next_case_line(LineState *st) {
  while (getline(&st->line, &st->cap, st->fp) > 0) {
    st->line_no++;
    if (st->line[0] != '#') return true;
  }
  return false;
}

void read_freq_body(LineState *st) {
  while (next_case_line(st)) {
    check_stop();
    st->lines_read++;
    read_line(st);
  }
}

// Runs the length and field-count checks on the first case line before any
// per-attribute buffer is reserved, so that a wrong --n-attr fails at once.
void check_first_line(LineState *st) {
  if (next_case_line(st)) {
    check_line_length(st);
    const char *delims = settings.format_in == FORMAT_CSV ? "," : "\t";
    check_field_count(st, count_fields(st->line, delims));
  }
  rewind(st->fp);
  st->line_no = 0;
}

void finish_counts(const LineState *st) {
  bool merge = !settings.mode_uncompress && !settings.mode_id && settings.gauss_size == 0;
  cases.num_entry = merge ? get_cardinality(&cases.ht_vec) : st->records;
  // Without merging every counted line must have given a record; a last
  // comment line without a line end is counted but gives none.
  if (cases.num_entry != st->records || (!merge && st->records != cases.num_entry_pre))
    die("Internal error: inconsistency in number of entries");
  if (st->lines_read == 0) die("the file is empty\n");
  cases.num_entry_pre = st->lines_read;
  long long total = 0;
  for (int e = 0; e < cases.num_entry; e++) total += cases.freq_list[e].count;
  if (total > INT_MAX) die("Too large total of object counts in %s\n", settings.fname_freq);
  cases.total_freq = static_cast<int>(total);
  // No missing count exceeds the total, so each fits an int now.
  for (int a = 0; a < settings.tuple_size_d; a++) cases.num_miss_w[a] = static_cast<int>(st->miss_w_sum[a]);
  for (int g = 0; g < settings.gauss_size; g++)
    for (int k = 0; k < settings.gauss_attr_size[g]; k++)
      cases.num_miss_g[g][k] = static_cast<int>(st->miss_c_sum[st->slot_c[g] + k]);
  cases.total_num_miss_w = 0;
  for (int a = 0; a < settings.tuple_size_d; a++) cases.total_num_miss_w += st->miss_w_sum[a];
}

void build_word_lists() {
  int d = settings.tuple_size_d;
  if (cases.word_list != nullptr) return;  // already set up by the parameter reader
  cases.num_word = static_cast<int *>(xmalloc0(sizeof(int) * (d > 0 ? d : 1), MODULE, 21));
  cases.word_list = static_cast<const char ***>(xmalloc0(sizeof(char **) * (d > 0 ? d : 1), MODULE, 22));
  cases.print_order = static_cast<int **>(calloc_str0(sizeof(int *) * (d > 0 ? d : 1), MODULE, 23));
  for (int a = 0; a < d; a++) {
    cases.num_word[a] = get_cardinality(&cases.ht[a]);
    cases.word_list[a] = get_keys(&cases.ht[a]);
    build_print_order(a);
  }
}

void build_word_freq_list() {
  int d = settings.tuple_size_d;
  cases.word_freq_list = static_cast<int **>(xmalloc0(sizeof(int *) * (d > 0 ? d : 1), MODULE, 24));
  for (int a = 0; a < d; a++) {
    int n = get_cardinality(&cases.ht[a]);
    HashRecord *rec = get_entries(&cases.ht[a]);
    cases.word_freq_list[a] = static_cast<int *>(xmalloc0(sizeof(int) * (n > 0 ? n : 1), MODULE, 25));
    for (int v = 0; v < n; v++) cases.word_freq_list[a][v] = rec[v].count;
    free(rec);
  }
}

void build_label_lists() {
  cases.num_case_id = get_cardinality(&cases.ht_case_id);
  cases.case_id_list = get_keys(&cases.ht_case_id);
  cases.num_ans_class = get_cardinality(&cases.ht_class);
  cases.ans_class_list = get_keys(&cases.ht_class);
  int n = cases.num_ans_class;
  cases.cluster_case_freq_ans = static_cast<int *>(calloc_str0(sizeof(int) * (n > 0 ? n : 1), MODULE, 26));
  for (int e = 0; e < cases.num_entry; e++)
    if (cases.freq_list[e].ans_class >= 0) cases.cluster_case_freq_ans[cases.freq_list[e].ans_class]++;
}

}  // namespace

int compare_word(const char *x, const char *y) { return strncmp(x, y, LABEL_KEEP); }

void build_print_order(int a) {
  int n = cases.num_word[a];
  int *order = static_cast<int *>(xmalloc0(sizeof(int) * (n > 0 ? n : 1), MODULE, 27));
  for (int v = 0; v < n; v++) order[v] = v;
  if (settings.mode_lex_order) {
    const char **words = cases.word_list[a];
    std::stable_sort(order, order + n,
                     [words](int x, int y) { return compare_word(words[x], words[y]) < 0; });
  }
  free(cases.print_order[a]);
  cases.print_order[a] = order;
}

void read_freq() {
  print_msg("Reading cases from %s...", settings.fname_freq);
  FILE *fp = fopen(settings.fname_freq, "rb");
  if (fp == nullptr) die("Couldn't open %s\n", settings.fname_freq);
  LineState *st = &line_state;
  open_line_state(st, fp);
  int n = count_entries(fp);
  if (n == 0) die("the file is empty\n");
  rewind(fp);
  check_first_line(st);
  cases.num_entry_pre = n;
  alloc_table(n);
  alloc_attr_buffers(st);
  read_freq_body(st);
  finish_counts(st);
  release_line_state(st);
  build_word_lists();
  build_word_freq_list();
  build_label_lists();
  print_msg("done\n");
}

void release_freq() {
  release_line_state(&line_state);
  int d = cases.num_attr_d;
  for (int a = 0; a < d && cases.ht != nullptr; a++) release_hashtable(&cases.ht[a]);
  for (int a = 0; a < d && cases.word_list != nullptr; a++) free(cases.word_list[a]);
  for (int a = 0; a < d && cases.print_order != nullptr; a++) free(cases.print_order[a]);
  for (int a = 0; a < d && cases.word_freq_list != nullptr; a++) free(cases.word_freq_list[a]);
  for (int g = 0; g < cases.num_groups && cases.num_miss_g != nullptr; g++) free(cases.num_miss_g[g]);
  HashTable *tables[] = {&cases.ht_vec, &cases.ht_case_id, &cases.ht_class};
  for (HashTable *t : tables) release_hashtable(t);
  void *arrays[] = {cases.ht, cases.word_list, cases.print_order, cases.word_freq_list, cases.num_word,
                    cases.case_id_list, cases.ans_class_list, cases.cluster_case_freq_ans,
                    cases.num_miss_w, cases.num_miss_g, cases.freq_list};
  for (void *p : arrays) free(p);
  release_records();
  cases = CaseTable();
}
