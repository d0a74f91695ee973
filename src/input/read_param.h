// Reader of the parameter file (a model written by print_param), and the
// sectioned-file line reader it shares with the hyperparameter file reader.
#ifndef VESK_INPUT_READ_PARAM_H
#define VESK_INPUT_READ_PARAM_H

#include <cstddef>
#include <cstdio>

enum { SECTION_MAX_FIELDS = 6 };

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
int discrete_index(int attr);
int discrete_column(int d);
int gauss_position(int attr, int g);
// Precision matrix and determinant of a covariance read from a file; a
// matrix that is not positive definite ends the run naming `where`.
long double invert_covariance(long double *const *s, long double **p, const char *where);

void read_param();

#endif
