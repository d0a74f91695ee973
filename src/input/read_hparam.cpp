// Reads the hyperparameter file. The class count comes from the file; value
// texts must be values of the case file. Rows are collected in per-class
// arrays that grow while the class section is read (shared with the
// parameter file reader), then checked and copied into the model's
// file-read hyperparameter arrays.
#include "input/read_hparam.h"

#include <cstdlib>
#include <cstring>

#include "base/hash.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "input/read_param.h"
#include "input/report.h"

namespace {

const char kModule[] = "read_hparam.cpp";

const RowKind kHparamRows = {600, "Unexpected # of fields for class probs",
                             "Unexpected # of fields for discrete attribute probs",
                             "Unexpected # of fields for means of continuous attributes",
                             "Unexpected # of fields for covariances of continuous attributes"};

// The reader's state lives at module level so that release_read_hparam can
// free what a failed read leaves behind.
SectionReader hparam_reader;
HparamBuf hparam_buf;

int num_d() { return settings.tuple_size_d; }
int num_g() { return settings.gauss_size; }

// Grows tau and alpha along with the shared per-class rows.
void expand_read_hparam_gauss(HparamBuf *b, int new_cap) {
  b->tau = static_cast<long double *>(xrealloc0(b->tau, sizeof(long double) * new_cap, kModule, 1));
  b->alpha = static_cast<long double **>(xrealloc0(b->alpha, sizeof(long double *) * new_cap, kModule, 2));
  for (int k = b->prior_cap; k < new_cap; k++) {
    b->tau[k] = 0.0L;
    b->alpha[k] = static_cast<long double *>(calloc_str0(sizeof(long double) * (num_g() + 1), kModule, 3));
  }
  b->prior_cap = new_cap;
}

void init_hparam_buf(HparamBuf *b) {
  memset(b, 0, sizeof *b);
  b->listed = static_cast<HashTable *>(calloc_str0(sizeof(HashTable) * (num_d() + 1), kModule, 4));
  for (int d = 0; d < num_d(); d++) init_hashtable(&b->listed[d]);
  // Value ids are the case file's, so every class row has room for all of them.
  init_class_rows(&b->rows, cases.num_word);
  if (settings.mode_gauss) expand_read_hparam_gauss(b, b->rows.cap);
}

void release_hparam_buf(HparamBuf *b) {
  for (int k = 0; k < b->prior_cap; k++) free(b->alpha[k]);
  for (int d = 0; d < num_d() && b->listed != nullptr; d++) release_hashtable(&b->listed[d]);
  free(b->listed);
  free(b->tau);
  free(b->alpha);
  release_class_rows(&b->rows);
  memset(b, 0, sizeof *b);
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
  if (v < 0) section_fault(r, kHparamRows.id_base + ROW_CAT_VALUE, "Unknown attribute value", 2);
  return v;
}

void read_hparam_cat_row(SectionReader *r, HparamBuf *b) {
  int d, k;
  char text[VALUE_TEXT_MAX + 1];
  read_cat_keys(r, &b->rows, &kHparamRows, &d, &k, text);
  int v = value_id(r, b, d, k, text);
  b->rows.w[k][d][v] = section_real(r, 3, kHparamRows.id_base + ROW_CAT_REAL);
}

void read_tau_row(SectionReader *r, HparamBuf *b) {
  if (r->num_fields != 2)
    section_fault(r, kHparamRows.id_base + ROW_TAU_FIELDS,
                  "Unexpected # of fields for tau's in Normal Wishart distrib.", -1);
  int k = read_class_key(r, &b->rows, &kHparamRows, 0);
  b->tau[k] = section_real(r, 1, kHparamRows.id_base + ROW_GAUSS_REAL);
}

void read_alpha_row(SectionReader *r, HparamBuf *b) {
  if (r->num_fields != 3)
    section_fault(r, kHparamRows.id_base + ROW_ALPHA_FIELDS,
                  "Unexpected # of fields for alpha's in Normal Wishart distrib.", -1);
  int k = read_class_key(r, &b->rows, &kHparamRows, 0);
  int g = read_group_key(r, &kHparamRows, 1);
  b->alpha[k][g] = section_real(r, 2, kHparamRows.id_base + ROW_GAUSS_REAL);
}

// Sections after the discrete ones: mean and covariance per group (class
// before group in each row), tau, then alpha per group.
void read_hparam_row(SectionReader *r, HparamBuf *b) {
  int sec = r->section;
  if (sec == 1) {
    read_class_row(r, &b->rows, &kHparamRows);
    if (settings.mode_gauss && b->rows.cap > b->prior_cap) expand_read_hparam_gauss(b, b->rows.cap);
    return;
  }
  if (sec <= 1 + num_d()) {
    read_hparam_cat_row(r, b);
    return;
  }
  if (!settings.mode_gauss)
    section_fault(r, kHparamRows.id_base + ROW_GAUSS_SECTION, "Unexpected hyperparameters for Gaussians", -1);
  int gs = sec - num_d() - 2;
  if (gs < 2 * num_g())
    read_gauss_row(r, &b->rows, &kHparamRows, 0, gs % 2 == 0 ? 1 : 2);
  else if (gs == 2 * num_g())
    read_tau_row(r, b);
  else
    read_alpha_row(r, b);
}

// Class, discrete attributes, and with Gaussian groups a mean and a
// covariance section per group, the tau section and an alpha section per group.
int num_sections() { return 1 + num_d() + (settings.mode_gauss ? 1 + 3 * num_g() : 0); }

}  // namespace

const HparamBuf *read_hparam_rows() {
  print_msg("Reading hyperparameters from %s...", settings.fname_hparam);
  SectionReader &r = hparam_reader;
  HparamBuf &b = hparam_buf;
  open_section_reader(&r, settings.fname_hparam);
  init_hparam_buf(&b);
  while (next_data_line(&r)) {
    if (r.section > num_sections()) die("Too many attribute hyperparameter fields in %s\n", r.fname);
    read_hparam_row(&r, &b);
  }
  if (r.section < num_sections())
    die("Insufficiennt hyperparameter specifications in %s (#data-matrices = %d)\n", r.fname, r.section);
  close_section_reader(&r);
  return &b;
}

void end_read_hparam() {
  release_hparam_buf(&hparam_buf);
  if (settings.mode_verbose) input_report.hparam(settings.fp_log);
  print_msg("done\n");
}

void release_read_hparam() {
  close_section_reader(&hparam_reader);
  release_hparam_buf(&hparam_buf);
}
