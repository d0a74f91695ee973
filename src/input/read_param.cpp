// Reads a parameter file back into the model: the class count, the value
// dictionaries of the discrete attributes and the parameter set. Rows are
// collected in per-class arrays that grow while the class section is read;
// those arrays and the row checks serve the hyperparameter file reader too.
#include "input/read_param.h"

#include <sys/types.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/hash.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "base/split.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "input/report.h"

namespace {

const char kModule[] = "read_param.cpp";
enum { INIT_CLASS_CAP = 4, INIT_VALUE_CAP = 8 };

// The reader's state lives at module level so that release_read_param can
// free what a failed read leaves behind.
SectionReader param_reader;
ClassRows param_rows;

const RowKind kParamRows = {500, "Unexpected number of fields for class probs",
                            "Unexpected number of fields for discrete attribute probs",
                            "Unexpected number of fields for means of continuous attributes",
                            "Unexpected number of fields for covariances of continuous attributes"};

int num_d() { return settings.tuple_size_d; }
int num_g() { return settings.gauss_size; }

long double *new_reals(int n) {
  return static_cast<long double *>(calloc_str0(sizeof(long double) * (n > 0 ? n : 1), kModule, 1));
}

long double *grow_reals(long double *p, int old_n, int new_n) {
  p = static_cast<long double *>(xrealloc0(p, sizeof(long double) * new_n, kModule, 2));
  for (int i = old_n; i < new_n; i++) p[i] = 0.0L;
  return p;
}

void expand_read_param_c(ClassRows *b, int new_cap) { b->c = grow_reals(b->c, b->cap, new_cap); }

void expand_read_param_w(ClassRows *b, int new_cap) {
  b->w = static_cast<long double ***>(xrealloc0(b->w, sizeof(long double **) * new_cap, kModule, 3));
  for (int k = b->cap; k < new_cap; k++) {
    b->w[k] = static_cast<long double **>(calloc_str0(sizeof(long double *) * (num_d() + 1), kModule, 4));
    for (int d = 0; d < num_d(); d++) b->w[k][d] = new_reals(b->value_cap[d]);
  }
}

void expand_read_param_u(ClassRows *b, int new_cap) {
  b->u = static_cast<Vector **>(xrealloc0(b->u, sizeof(Vector *) * new_cap, kModule, 5));
  for (int k = b->cap; k < new_cap; k++) {
    b->u[k] = static_cast<Vector *>(calloc_str0(sizeof(Vector) * (num_g() + 1), kModule, 6));
    for (int g = 0; g < num_g(); g++) b->u[k][g] = alloc_clear_vector(settings.gauss_attr_size[g]);
  }
}

void expand_read_param_s(ClassRows *b, int new_cap) {
  b->s = static_cast<Matrix **>(xrealloc0(b->s, sizeof(Matrix *) * new_cap, kModule, 7));
  for (int k = b->cap; k < new_cap; k++) {
    b->s[k] = static_cast<Matrix *>(calloc_str0(sizeof(Matrix) * (num_g() + 1), kModule, 8));
    int *dims = settings.gauss_attr_size;
    for (int g = 0; g < num_g(); g++) b->s[k][g] = alloc_clear_matrix(dims[g], dims[g]);
  }
}

// Makes room for value id `v` of discrete attribute `d` in every class.
void reserve_value(ClassRows *b, int d, int v) {
  if (v < b->value_cap[d]) return;
  int n = b->value_cap[d];
  while (n <= v) n *= 2;
  for (int k = 0; k < b->cap; k++) b->w[k][d] = grow_reals(b->w[k][d], b->value_cap[d], n);
  b->value_cap[d] = n;
}

// Value id of a discrete value text: new ones are registered while class 0
// is read; later classes may only name values class 0 listed.
int value_id(const SectionReader *r, int d, int k, const char *text) {
  if (k == 0) {
    int n = get_cardinality(&cases.ht[d]);
    if (register_hashtable(&cases.ht[d], text) != n) die_inconsistent(r);
    return n;
  }
  int v = lookup_hashtable(&cases.ht[d], text);
  if (v < 0) die_inconsistent(r);
  return v;
}

void read_param_cat_row(SectionReader *r, ClassRows *b) {
  int d, k;
  char text[VALUE_TEXT_MAX + 1];
  read_cat_keys(r, b, &kParamRows, &d, &k, text);
  int v = value_id(r, d, k, text);
  reserve_value(b, d, v);
  b->w[k][d][v] = section_real(r, 3, kParamRows.id_base + ROW_CAT_REAL);
}

void read_param_row(SectionReader *r, ClassRows *b) {
  int sec = r->section;
  if (sec == 1) {
    read_class_row(r, b, &kParamRows);
  } else if (sec <= 1 + num_d()) {
    read_param_cat_row(r, b);
  } else {
    if (!settings.mode_gauss)
      section_fault(r, kParamRows.id_base + ROW_GAUSS_SECTION, "Unexpected Gaussian parameters", -1);
    read_gauss_row(r, b, &kParamRows, 1, (sec - num_d() - 2) % 2 == 0 ? 1 : 2);
  }
}

void create_dictionaries() {
  cases.ht = static_cast<HashTable *>(calloc_str0(sizeof(HashTable) * (num_d() + 1), kModule, 10));
  cases.num_attr_d = num_d();
  for (int d = 0; d < num_d(); d++) init_hashtable(&cases.ht[d]);
}

// Value counts, texts and print order of the dictionaries just read.
void set_up_value_lists() {
  int n = num_d() + 1;
  cases.num_word = static_cast<int *>(calloc_str0(sizeof(int) * n, kModule, 11));
  cases.word_list = static_cast<const char ***>(calloc_str0(sizeof(const char **) * n, kModule, 12));
  cases.print_order = static_cast<int **>(calloc_str0(sizeof(int *) * n, kModule, 13));
  for (int d = 0; d < num_d(); d++) {
    cases.num_word[d] = get_cardinality(&cases.ht[d]);
    cases.word_list[d] = get_keys(&cases.ht[d]);
  }
  for (int d = 0; d < num_d(); d++) build_print_order(d);
}

}  // namespace

// ---- per-class rows shared with the hyperparameter file -----------------------

void init_class_rows(ClassRows *b, const int *value_cap) {
  memset(b, 0, sizeof *b);
  b->value_cap = static_cast<int *>(calloc_str0(sizeof(int) * (num_d() + 1), kModule, 9));
  for (int d = 0; d < num_d(); d++) b->value_cap[d] = value_cap != nullptr ? value_cap[d] : INIT_VALUE_CAP;
  expand_class_rows(b, INIT_CLASS_CAP);
}

void expand_class_rows(ClassRows *b, int new_cap) {
  expand_read_param_c(b, new_cap);
  if (settings.mode_nominal) expand_read_param_w(b, new_cap);
  if (settings.mode_gauss) {
    expand_read_param_u(b, new_cap);
    expand_read_param_s(b, new_cap);
  }
  b->cap = new_cap;
}

void release_class_rows(ClassRows *b) {
  for (int k = 0; k < b->cap; k++) {
    if (b->w != nullptr) {
      for (int d = 0; d < num_d(); d++) free(b->w[k][d]);
      free(b->w[k]);
    }
    for (int g = 0; g < num_g() && b->u != nullptr; g++) release_vector0(b->u[k][g]);
    for (int g = 0; g < num_g() && b->s != nullptr; g++) release_matrix0(b->s[k][g]);
    if (b->u != nullptr) free(b->u[k]);
    if (b->s != nullptr) free(b->s[k]);
  }
  free(b->c);
  free(b->w);
  free(b->u);
  free(b->s);
  free(b->value_cap);
  memset(b, 0, sizeof *b);
}

void read_class_row(SectionReader *r, ClassRows *b, const RowKind *kind) {
  if (r->num_fields != 2) section_fault(r, kind->id_base + ROW_CLASS_FIELDS, kind->class_fields, -1);
  int k = section_int(r, 0, kind->id_base + ROW_CLASS_INT);
  if (k != b->num_class) section_fault(r, kind->id_base + ROW_CLASS_ORDER, "Unexpected order of class numbers", 0);
  if (k >= b->cap) expand_class_rows(b, b->cap * 2);
  b->c[k] = section_real(r, 1, kind->id_base + ROW_CLASS_REAL);
  b->num_class = k + 1;
}

void read_cat_keys(const SectionReader *r, const ClassRows *b, const RowKind *kind, int *d, int *k,
                   char *text) {
  if (r->num_fields != 4) section_fault(r, kind->id_base + ROW_CAT_FIELDS, kind->cat_fields, -1);
  *d = discrete_index(section_int(r, 0, kind->id_base + ROW_CAT_INT));
  if (*d < 0) section_fault(r, kind->id_base + ROW_CAT_ATTR, "Unexpected attribute ID", 0);
  *k = section_int(r, 1, kind->id_base + ROW_CAT_INT);
  if (*k < 0 || *k >= b->num_class) die("Different number of classes exist in entries for P(c) and P(x1|c)\n");
  if (r->fields[2][0] == '\0') section_fault(r, kind->id_base + ROW_CAT_EMPTY, "Empty value", -1);
  snprintf(text, VALUE_TEXT_MAX + 1, "%s", r->fields[2]);
}

void die_inconsistent(const SectionReader *r) {
  die("[%s, line %d] Found an inconsistent entry (%s)", r->fname, r->line_no, r->line);
}

int read_class_key(const SectionReader *r, const ClassRows *b, const RowKind *kind, int field) {
  int k = section_int(r, field, kind->id_base + ROW_GAUSS_INT);
  if (k < 0 || k >= b->num_class)
    section_fault(r, kind->id_base + ROW_GAUSS_CLASS, "Unexpected class number", field);
  return k;
}

int read_group_key(const SectionReader *r, const RowKind *kind, int field) {
  int g = section_int(r, field, kind->id_base + ROW_GAUSS_INT);
  if (g < 0 || g >= num_g()) section_fault(r, kind->id_base + ROW_GAUSS_GROUP, "Unexpected Gauss ID", field);
  return g;
}

void read_gauss_row(const SectionReader *r, ClassRows *b, const RowKind *kind, int class_field, int n_attr) {
  if (r->num_fields != 3 + n_attr)
    section_fault(r, kind->id_base + (n_attr == 1 ? ROW_MEAN_FIELDS : ROW_COVAR_FIELDS),
                  n_attr == 1 ? kind->mean_fields : kind->covar_fields, -1);
  // Every field's format is checked before the keys' ranges.
  for (int f = 0; f < 2; f++) section_int(r, f, kind->id_base + ROW_GAUSS_INT);
  int attr[2] = {0, 0};
  for (int i = 0; i < n_attr; i++) attr[i] = section_int(r, 2 + i, kind->id_base + ROW_GAUSS_INT);
  long double x = section_real(r, 2 + n_attr, kind->id_base + ROW_GAUSS_REAL);
  int g = read_group_key(r, kind, 1 - class_field);
  int k = read_class_key(r, b, kind, class_field);
  int pos[2] = {0, 0};
  for (int i = 0; i < n_attr; i++) {
    pos[i] = gauss_position(attr[i], g);
    if (pos[i] < 0) section_fault(r, kind->id_base + ROW_GAUSS_ATTR, "Unexpected attribute ID", 2 + i);
  }
  if (n_attr == 1) {
    b->u[k][g][pos[0]] = x;
    return;
  }
  // Only the upper triangle is kept; it is mirrored once the file is read.
  int i = pos[0] < pos[1] ? pos[0] : pos[1], j = pos[0] < pos[1] ? pos[1] : pos[0];
  b->s[k][g][i][j] = x;
}

void store_gauss_rows(const ClassRows *b, Vector **u, Matrix **s, Matrix **p, long double **det,
                      const char *where) {
  for (int k = 0; k < b->num_class; k++)
    for (int g = 0; g < num_g(); g++) {
      copy_vector(u[k][g], b->u[k][g]);
      copy_matrix(s[k][g], b->s[k][g]);
      copy_upper_to_lower(s[k][g]);
      det[k][g] = invert_covariance(s[k][g], p[k][g], where);
    }
}

// ---- sectioned file reader --------------------------------------------------

void open_section_reader(SectionReader *r, const char *fname) {
  memset(r, 0, sizeof *r);
  r->fname = fname;
  r->fp = fopen(fname, "rb");
  if (r->fp == nullptr) die("Couldn't open %s\n", fname);
  r->in_header = 1;
  r->fields = alloc_field(SECTION_MAX_FIELDS);
}

void close_section_reader(SectionReader *r) {
  if (r->fp != nullptr) fclose(r->fp);
  free(r->line);
  release_field(r->fields, SECTION_MAX_FIELDS);
  memset(r, 0, sizeof *r);
}

static bool is_blank_line(const char *line) { return line[strspn(line, "\r\n")] == '\0'; }

int next_data_line(SectionReader *r) {
  for (;;) {
    ssize_t n = getline(&r->line, &r->line_cap, r->fp);
    if (n < 0) return 0;
    r->line_no++;
    if (r->line[0] == '#') {
      r->in_header = 1;
      continue;
    }
    if (is_blank_line(r->line)) continue;
    if (r->in_header) r->section++;
    r->in_header = 0;
    if (settings.format_in == FORMAT_CSV)
      r->num_fields = split_comma(SECTION_MAX_FIELDS, r->line, r->fields, r->starts);
    else
      r->num_fields = split_tab(SECTION_MAX_FIELDS, r->line, r->fields, r->starts);
    return 1;
  }
}

void section_fault(const SectionReader *r, int id, const char *reason, int field) {
  int column = field >= 0 && field < SECTION_MAX_FIELDS ? r->starts[field] : -1;
  // The message shows the line with its own line end; the last line may lack
  // one. The copy is kept, so that a failure leaves nothing unreachable.
  static char *text = nullptr;
  size_t len = strlen(r->line);
  text = static_cast<char *>(xrealloc0(text, len + 2, kModule, 14));
  memcpy(text, r->line, len);
  text[len] = '\0';
  if (len == 0 || text[len - 1] != '\n') strcpy(text + len, "\n");
  die_line(r->fname, r->line_no, id, text, reason, column);
}

int section_int(const SectionReader *r, int i, int id) {
  const char *text = r->fields[i];
  char *end = nullptr;
  errno = 0;
  long x = strtol(text, &end, 10);
  if (text[0] == '\0' || *end != '\0' || errno == ERANGE || x < INT_MIN || x > INT_MAX)
    section_fault(r, id, "illegal format for an integer", i);
  return static_cast<int>(x);
}

long double section_real(const SectionReader *r, int i, int id) {
  const char *text = r->fields[i];
  char *end = nullptr;
  long double x = strtold(text, &end);
  if (text[0] == '\0' || *end != '\0' || !std::isfinite(x))
    section_fault(r, id, "illegal format for an floating-point number", i);
  return x;
}

int gauss_position(int attr, int g) {
  if (attr < 0 || attr >= settings.tuple_size || !is_model_attr(attr)) return -1;
  const AttrInfo &info = settings.attr_info[attr];
  return info.cont && info.group == g ? info.index : -1;
}

long double invert_covariance(long double *const *s, long double **p, const char *where) {
  // The closed forms for small matrices leave the flag alone and report a
  // singular matrix only through the determinant.
  matrix_err.err_inv = 0;
  long double det = invert_c(s, p);
  if (matrix_err.err_inv != 0 || !(det > 0.0L) || !std::isfinite(det))
    die_numeric(where, "Failed to invert covariances\n");
  return det;
}

// ---- the parameter file -------------------------------------------------------

const ClassRows *read_param_rows() {
  print_msg("Reading parameters from %s...", settings.fname_param);
  SectionReader &r = param_reader;
  ClassRows &b = param_rows;
  open_section_reader(&r, settings.fname_param);
  create_dictionaries();
  init_class_rows(&b, nullptr);
  int max_section = 1 + num_d() + 2 * num_g();
  while (next_data_line(&r)) {
    if (r.section > max_section) die("Too many attribute parameter fields in %s\n", r.fname);
    read_param_row(&r, &b);
  }
  if (r.section <= 2 * num_g() + num_d())
    die("Insufficiennt parameter specifications in %s (#data-matrices = %d)\n", r.fname, r.section);
  close_section_reader(&r);
  set_up_value_lists();
  return &b;
}

void end_read_param() {
  release_class_rows(&param_rows);
  if (settings.mode_verbose) input_report.attr_list(settings.fp_log);
  print_msg("done\n");
}

void release_read_param() {
  close_section_reader(&param_reader);
  release_class_rows(&param_rows);
}
