// Reader of the parameter file (a model written by print_param), and what it
// shares with the hyperparameter file reader: the sectioned-file line reader
// and the per-class rows both files hold.
#ifndef VESK_INPUT_READ_PARAM_H
#define VESK_INPUT_READ_PARAM_H

#include <cstddef>
#include <cstdio>

#include "base/allocate_matrix.h"

enum { SECTION_MAX_FIELDS = 6, VALUE_TEXT_MAX = 255 };

// Walks a sectioned result file: header lines ("#...") separate sections,
// and the first data line after a header starts the next one.
struct SectionReader {
  FILE *fp;
  const char *fname;
  char *line;
  size_t line_cap;
  int line_no;
  int section;     // number of the current section, from 1
  int in_header;   // no data line since the last header line
  char **fields;
  int starts[SECTION_MAX_FIELDS];
  int num_fields;  // -1 for more than SECTION_MAX_FIELDS fields
};

void open_section_reader(SectionReader *r, const char *fname);
// Reads up to the next data line and splits it; 0 at the end of the file.
int next_data_line(SectionReader *r);
void close_section_reader(SectionReader *r);
// Reports the current line as faulty; `field` places the marker, -1 for none.
[[noreturn]] void section_fault(const SectionReader *r, int id, const char *reason, int field);
// Field `i` of the current line as an int or a finite real, or a fault `id`.
int section_int(const SectionReader *r, int i, int id);
long double section_real(const SectionReader *r, int i, int id);
// Running number of a discrete model attribute (column `attr`), or -1;
// the column of discrete attribute `d`; the position of column `attr` in
// Gaussian group `g`, or -1.
int gauss_position(int attr, int g);
// Precision matrix and determinant of a covariance read from a file; a
// matrix that is not positive definite ends the run naming `where`.
long double invert_covariance(long double *const *s, long double **p, const char *where);

// Rows of a parameter or hyperparameter file, kept per class while the file
// is read; `cap` classes are allocated, `num_class` were seen.
struct ClassRows {
  int cap, num_class;
  long double *c;
  long double ***w;  // [cap][D][value_cap[d]]
  int *value_cap;    // [D]
  Vector **u;        // [cap][G]
  Matrix **s;        // [cap][G], upper triangle
};

// What tells the two files apart in the rows they share: the check numbers
// (offsets from `id_base`, below) and the field-count messages.
struct RowKind {
  int id_base;
  const char *class_fields, *cat_fields, *mean_fields, *covar_fields;
};
enum {
  ROW_CLASS_FIELDS = 1, ROW_CLASS_INT, ROW_CLASS_ORDER, ROW_CLASS_REAL,
  ROW_CAT_FIELDS = 11, ROW_CAT_INT, ROW_CAT_ATTR, ROW_CAT_EMPTY, ROW_CAT_REAL, ROW_CAT_VALUE,
  ROW_GAUSS_SECTION = 21, ROW_MEAN_FIELDS, ROW_COVAR_FIELDS, ROW_GAUSS_INT, ROW_GAUSS_REAL,
  ROW_GAUSS_GROUP, ROW_GAUSS_CLASS, ROW_GAUSS_ATTR,
  ROW_TAU_FIELDS = 31, ROW_ALPHA_FIELDS
};

// `value_cap` gives the first capacity of each discrete attribute's rows
// (nullptr: a small one that grows as values are read).
void init_class_rows(ClassRows *b, const int *value_cap);
void release_class_rows(ClassRows *b);
void expand_class_rows(ClassRows *b, int new_cap);
// Class section row: class numbers 0, 1, 2, ... in order; grows the rows.
void read_class_row(SectionReader *r, ClassRows *b, const RowKind *kind);
// Discrete-attribute row up to its value text, which goes to `text`
// (VALUE_TEXT_MAX + 1 bytes); sets the attribute's running number and class.
void read_cat_keys(const SectionReader *r, const ClassRows *b, const RowKind *kind, int *d, int *k,
                   char *text);
[[noreturn]] void die_inconsistent(const SectionReader *r);
// Class in field `field`, below the class count; group in `field`.
int read_class_key(const SectionReader *r, const ClassRows *b, const RowKind *kind, int field);
int read_group_key(const SectionReader *r, const RowKind *kind, int field);
// Mean row (`n_attr` 1) or covariance row (`n_attr` 2); the class is field
// `class_field` and the group the other of the first two fields.
void read_gauss_row(const SectionReader *r, ClassRows *b, const RowKind *kind, int class_field, int n_attr);
// Copies the means and covariances read into `u` and `s` (lower triangle
// mirrored) and computes precisions `p` and determinants `det`.
void store_gauss_rows(const ClassRows *b, Vector **u, Matrix **s, Matrix **p, long double **det,
                      const char *where);

// The parameter file's rows, read and checked for shape, with the value
// dictionaries they name set up; the model takes its parameter set from them,
// then end_read_param frees them and ends the reader's message.
const ClassRows *read_param_rows();
void end_read_param();
// Closes the file and frees the rows of a read that did not finish (the
// dictionaries and the parameter set belong to the case table and the model).
void release_read_param();

#endif
