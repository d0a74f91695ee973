// The readers' --verbose dumps of what they read. The readers do not know the
// writers; the program fills these in at start-up. Until then each entry
// writes nothing.
#ifndef VESK_INPUT_REPORT_H
#define VESK_INPUT_REPORT_H

#include <cstdio>

struct InputReport {
  void (*hparam)(FILE *fp);     // the hyperparameters read
  void (*attr_list)(FILE *fp);  // the value lists of the parameters read
};
extern InputReport input_report;

#endif
