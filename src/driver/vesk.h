// The driver: the option passes, the checks and derived values after them,
// file names, the log, and the run itself.
#ifndef VESK_DRIVER_VESK_H
#define VESK_DRIVER_VESK_H

#include "settings/settings.h"

void postproc_args();
void build_filename();
void determine_format(const char *txt_candidate, const char *csv_candidate);
void open_log();
void initialize_rand();
int vesk_main(int argc, char **argv);

#endif
