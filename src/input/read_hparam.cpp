// Reads the hyperparameter file. The class count comes from the file; value
// texts must be values of the case file. Rows are collected in per-class
// arrays that grow while the class section is read, then checked and copied
// into the model's file-read hyperparameter arrays.
#include "input/read_hparam.h"

#include <cstdlib>
#include <cstring>

#include "base/hash.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "driver/vesk.h"
#include "input/read_freq.h"
#include "input/read_param.h"
#include "model/allocate.h"
#include "output/print.h"

namespace {

const char kModule[] = "read_hparam.cpp";
enum { INIT_CLASS_CAP = 4, VALUE_TEXT_MAX = 255 };

// Row-level check numbers of the hyperparameter file.
enum {
  ID_CLASS_FIELDS = 601, ID_CLASS_INT = 602, ID_CLASS_ORDER = 603, ID_CLASS_REAL = 604,
  ID_CAT_FIELDS = 611, ID_CAT_INT = 612, ID_CAT_ATTR = 613, ID_CAT_EMPTY = 614, ID_CAT_REAL = 615,
  ID_CAT_VALUE = 616, ID_GAUSS_SECTION = 621, ID_MEAN_FIELDS = 622, ID_COVAR_FIELDS = 623,
  ID_GAUSS_INT = 624, ID_GAUSS_REAL = 625, ID_GAUSS_GROUP = 626, ID_GAUSS_CLASS = 627,
  ID_GAUSS_ATTR = 628, ID_TAU_FIELDS = 631, ID_ALPHA_FIELDS = 632
};

// Hyperparameters read so far; `cap` classes are allocated, `num_class` seen.
struct HparamBuf {
  int cap, num_class;
  long double *c, *tau;
  long double ***w;     // [cap][D][V_d] with the case file's value ids
  Vector **u;           // [cap][G]
  Matrix **s;           // [cap][G]
  long double **alpha;  // [cap][G]
  HashTable *listed;    // [D]: values listed for class 0, in file order
};

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

template <typename T>
T *grow_rows(T *p, int new_n, int site) {
  return static_cast<T *>(xrealloc0(p, sizeof(T) * new_n, kModule, site));
}

void expand_read_hparam_c(HparamBuf *b, int new_cap) {
  b->c = grow_reals(b->c, b->cap, new_cap);
  if (!settings.mode_gauss) return;
  b->tau = grow_reals(b->tau, b->cap, new_cap);
  b->alpha = grow_rows(b->alpha, new_cap, 3);
  for (int k = b->cap; k < new_cap; k++) b->alpha[k] = new_reals(num_g());
}

void expand_read_hparam_w(HparamBuf *b, int new_cap) {
  b->w = grow_rows(b->w, new_cap, 4);
  for (int k = b->cap; k < new_cap; k++) {
    b->w[k] = static_cast<long double **>(calloc_str0(sizeof(long double *) * (num_d() + 1), kModule, 5));
    for (int d = 0; d < num_d(); d++) b->w[k][d] = new_reals(cases.num_word[d]);
  }
}

void expand_read_hparam_u(HparamBuf *b, int new_cap) {
  b->u = grow_rows(b->u, new_cap, 6);
  for (int k = b->cap; k < new_cap; k++) {
    b->u[k] = static_cast<Vector *>(calloc_str0(sizeof(Vector) * (num_g() + 1), kModule, 7));
    for (int g = 0; g < num_g(); g++) b->u[k][g] = alloc_clear_vector(settings.gauss_attr_size[g]);
  }
}

void expand_read_hparam_s(HparamBuf *b, int new_cap) {
  b->s = grow_rows(b->s, new_cap, 8);
  for (int k = b->cap; k < new_cap; k++) {
    b->s[k] = static_cast<Matrix *>(calloc_str0(sizeof(Matrix) * (num_g() + 1), kModule, 9));
    int *dims = settings.gauss_attr_size;
    for (int g = 0; g < num_g(); g++) b->s[k][g] = alloc_clear_matrix(dims[g], dims[g]);
  }
}

void expand_read_hparam(HparamBuf *b, int new_cap) {
  expand_read_hparam_c(b, new_cap);
  if (settings.mode_nominal) expand_read_hparam_w(b, new_cap);
  if (settings.mode_gauss) {
    expand_read_hparam_u(b, new_cap);
    expand_read_hparam_s(b, new_cap);
  }
  b->cap = new_cap;
}

void init_hparam_buf(HparamBuf *b) {
  memset(b, 0, sizeof *b);
  b->listed = static_cast<HashTable *>(calloc_str0(sizeof(HashTable) * (num_d() + 1), kModule, 10));
  for (int d = 0; d < num_d(); d++) init_hashtable(&b->listed[d]);
  expand_read_hparam(b, INIT_CLASS_CAP);
}

void release_hparam_buf(HparamBuf *b) {
  for (int k = 0; k < b->cap; k++) {
    if (b->w != nullptr) {
      for (int d = 0; d < num_d(); d++) free(b->w[k][d]);
      free(b->w[k]);
    }
    for (int g = 0; g < num_g() && b->u != nullptr; g++) release_vector0(b->u[k][g]);
    for (int g = 0; g < num_g() && b->s != nullptr; g++) release_matrix0(b->s[k][g]);
    if (b->u != nullptr) free(b->u[k]);
    if (b->s != nullptr) free(b->s[k]);
    if (b->alpha != nullptr) free(b->alpha[k]);
  }
  for (int d = 0; d < num_d(); d++) release_hashtable(&b->listed[d]);
  free(b->listed);
  free(b->c);
  free(b->tau);
  free(b->w);
  free(b->u);
  free(b->s);
  free(b->alpha);
}

void read_class_row(SectionReader *r, HparamBuf *b) {
  if (r->num_fields != 2) section_fault(r, ID_CLASS_FIELDS, "Unexpected # of fields for class probs", -1);
  int k = section_int(r, 0, ID_CLASS_INT);
  if (k != b->num_class) section_fault(r, ID_CLASS_ORDER, "Unexpected order of class numbers", 0);
  if (k >= b->cap) expand_read_hparam(b, b->cap * 2);
  b->c[k] = section_real(r, 1, ID_CLASS_REAL);
  b->num_class = k + 1;
}

[[noreturn]] void die_inconsistent(const SectionReader *r) {
  die("[%s, line %d] Found an inconsistent entry (%s)", r->fname, r->line_no, r->line);
}

// Case-file value id of a value text. Class 0 lists every value once; later
// classes may only name values class 0 listed.
int value_id(const SectionReader *r, HparamBuf *b, int d, int k, const char *text) {
  if (k == 0) {
    int n = get_cardinality(&b->listed[d]);
    if (register_hashtable(&b->listed[d], text) != n) die_inconsistent(r);
  } else if (lookup_hashtable(&b->listed[d], text) < 0) {
    die_inconsistent(r);
  }
  int v = lookup_hashtable(&cases.ht[d], text);
  if (v < 0) section_fault(r, ID_CAT_VALUE, "Unknown attribute value", 2);
  return v;
}

void read_cat_row(SectionReader *r, HparamBuf *b) {
  if (r->num_fields != 4)
    section_fault(r, ID_CAT_FIELDS, "Unexpected # of fields for discrete attribute probs", -1);
  int a = section_int(r, 0, ID_CAT_INT);
  int d = discrete_index(a);
  if (d < 0) section_fault(r, ID_CAT_ATTR, "Unexpected attribute ID", 0);
  int k = section_int(r, 1, ID_CAT_INT);
  if (k < 0 || k >= b->num_class) die("Different number of classes exist in entries for P(c) and P(x1|c)\n");
  if (r->fields[2][0] == '\0') section_fault(r, ID_CAT_EMPTY, "Empty value", -1);
  long double x = section_real(r, 3, ID_CAT_REAL);
  char text[VALUE_TEXT_MAX + 1];
  snprintf(text, sizeof text, "%s", r->fields[2]);
  b->w[k][d][value_id(r, b, d, k, text)] = x;
}

// Class and group of a Gaussian row (class in field 0, group in field 1).
void read_gauss_keys(const SectionReader *r, const HparamBuf *b, int *k, int *g) {
  *k = section_int(r, 0, ID_GAUSS_INT);
  *g = section_int(r, 1, ID_GAUSS_INT);
  if (*k < 0 || *k >= b->num_class) section_fault(r, ID_GAUSS_CLASS, "Unexpected class number", 0);
  if (*g < 0 || *g >= num_g()) section_fault(r, ID_GAUSS_GROUP, "Unexpected Gauss ID", 1);
}

int read_position(const SectionReader *r, int field, int g) {
  int i = gauss_position(section_int(r, field, ID_GAUSS_INT), g);
  if (i < 0) section_fault(r, ID_GAUSS_ATTR, "Unexpected attribute ID", field);
  return i;
}

void read_mean_row(SectionReader *r, HparamBuf *b) {
  if (r->num_fields != 4)
    section_fault(r, ID_MEAN_FIELDS, "Unexpected # of fields for means of continuous attributes", -1);
  int k, g;
  read_gauss_keys(r, b, &k, &g);
  int i = read_position(r, 2, g);
  b->u[k][g][i] = section_real(r, 3, ID_GAUSS_REAL);
}

void read_covar_row(SectionReader *r, HparamBuf *b) {
  if (r->num_fields != 5)
    section_fault(r, ID_COVAR_FIELDS, "Unexpected # of fields for covariances of continuous attributes", -1);
  int k, g;
  read_gauss_keys(r, b, &k, &g);
  int i = read_position(r, 2, g), j = read_position(r, 3, g);
  long double x = section_real(r, 4, ID_GAUSS_REAL);
  // Only the upper triangle is kept; it is mirrored once the file is read.
  if (i <= j)
    b->s[k][g][i][j] = x;
  else
    b->s[k][g][j][i] = x;
}

void read_tau_row(SectionReader *r, HparamBuf *b) {
  if (r->num_fields != 2)
    section_fault(r, ID_TAU_FIELDS, "Unexpected # of fields for tau's in Normal Wishart distrib.", -1);
  int k = section_int(r, 0, ID_GAUSS_INT);
  if (k < 0 || k >= b->num_class) section_fault(r, ID_GAUSS_CLASS, "Unexpected class number", 0);
  b->tau[k] = section_real(r, 1, ID_GAUSS_REAL);
}

void read_alpha_row(SectionReader *r, HparamBuf *b) {
  if (r->num_fields != 3)
    section_fault(r, ID_ALPHA_FIELDS, "Unexpected # of fields for alpha's in Normal Wishart distrib.", -1);
  int k, g;
  read_gauss_keys(r, b, &k, &g);
  b->alpha[k][g] = section_real(r, 2, ID_GAUSS_REAL);
}

void read_hparam_row(SectionReader *r, HparamBuf *b) {
  int sec = r->section;
  if (sec == 1) {
    read_class_row(r, b);
    return;
  }
  if (sec <= 1 + num_d()) {
    read_cat_row(r, b);
    return;
  }
  if (!settings.mode_gauss) section_fault(r, ID_GAUSS_SECTION, "Unexpected hyperparameters for Gaussians", -1);
  int gs = sec - num_d() - 2;
  if (gs < 2 * num_g() && gs % 2 == 0)
    read_mean_row(r, b);
  else if (gs < 2 * num_g())
    read_covar_row(r, b);
  else if (gs == 2 * num_g())
    read_tau_row(r, b);
  else
    read_alpha_row(r, b);
}

// Class, discrete attributes, and with Gaussian groups a mean and a
// covariance section per group, the tau section and an alpha section per group.
int num_sections() { return 1 + num_d() + (settings.mode_gauss ? 1 + 3 * num_g() : 0); }

void store_pseudo_counts(const HparamBuf *b) {
  for (int k = 0; k < b->num_class; k++) {
    long double x = b->c[k];
    if (x < -1.0L) die(conv_msg("Illegal class hyperparameter: %.Nf (class=%d)\n"), x, k);
    model.hparam_c[k] = x;
  }
  for (int k = 0; k < b->num_class && settings.mode_nominal; k++)
    for (int d = 0; d < num_d(); d++)
      for (int v = 0; v < cases.num_word[d]; v++) {
        long double x = b->w[k][d][v];
        if (x < -1.0L)
          die(conv_msg("Illegal attribute hyperparameter: %.Nf (class=%d, attribute=%d)\n"), x, k,
              discrete_column(d));
        model.hparam_w[k][d][v] = x;
      }
}

void store_gauss_priors(const HparamBuf *b) {
  for (int k = 0; k < b->num_class; k++) {
    model.hparam_tau[k] = b->tau[k];
    for (int g = 0; g < num_g(); g++) {
      model.hparam_alpha_w[k][g] = b->alpha[k][g];
      copy_vector(model.hparam_u[k][g], b->u[k][g]);
      copy_matrix(model.hparam_s[k][g], b->s[k][g]);
      copy_upper_to_lower(model.hparam_s[k][g]);
      model.hparam_sdet[k][g] =
          invert_covariance(model.hparam_s[k][g], model.hparam_p[k][g], "read_hparam");
    }
  }
}

}  // namespace

void read_hparam() {
  print_msg("Reading hyperparameters from %s...", settings.fname_hparam);
  SectionReader r;
  open_section_reader(&r, settings.fname_hparam);
  HparamBuf b;
  init_hparam_buf(&b);
  while (next_data_line(&r)) {
    if (r.section > num_sections()) die("Too many attribute hyperparameter fields in %s\n", r.fname);
    read_hparam_row(&r, &b);
  }
  if (r.section < num_sections())
    die("Insufficiennt hyperparameter specifications in %s (#data-matrices = %d)\n", r.fname, r.section);
  close_section_reader(&r);
  settings.num_class = b.num_class;
  alloc_hparam_read();
  store_pseudo_counts(&b);
  if (settings.mode_gauss) store_gauss_priors(&b);
  release_hparam_buf(&b);
  if (settings.mode_verbose) print_hparam(settings.fp_log);
  print_msg("done\n");
}
