// Writers split-and-merge EM calls on the way: the --verbose dumps of the
// merge and split criteria and the dump written to the log before a numerical
// failure. Filled in by the program at start-up; until then each entry writes
// nothing.
#ifndef VESK_SMEM_REPORT_H
#define VESK_SMEM_REPORT_H

#include <cstdio>

struct SmemReport {
  void (*decrease)(FILE *fp, int o, int t);  // the objective fell in operation o at iteration t
  void (*jmerge)(FILE *fp);
  void (*jsplit)(FILE *fp);
};
extern SmemReport smem_report;

#endif
