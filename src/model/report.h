// Writers the computations call on the way: the dumps of --verbose and the
// parameter dump written to the log before a numerical failure. The model does
// not know the writers; the program fills these in at start-up. Until then
// each entry writes nothing.
#ifndef VESK_MODEL_REPORT_H
#define VESK_MODEL_REPORT_H

#include <cstdio>

struct ModelReport {
  void (*param)(FILE *fp);                   // the working parameter set
  void (*decrease)(FILE *fp, int r, int i);  // the objective fell in restart r at iteration i
  void (*complete_prob)(FILE *fp);
  void (*incomplete_prob)(FILE *fp);
  void (*conditional_prob)(FILE *fp);
  void (*expectation)(FILE *fp);
};
extern ModelReport model_report;

#endif
