// The run: the order of its phases, the K loop, the phase clocks and the log
// sections written between them.
#ifndef VESK_DRIVER_RUN_H
#define VESK_DRIVER_RUN_H

#include "output/print.h"

// The clocks of this run's phases.
extern PhaseTimes run_times;

// Points the computations' report hooks at the writers.
void install_report_hooks();

// The cases, with the reader's log sections.
void read_cases();
// The smoothing constants of the current K (AutoClass rules, logged), then
// their flags.
void set_smooth_auto();

// The whole fitting run: read, fit over the K range, write results.
void em_main();
// The run that reads a parameter file instead of fitting.
void no_em_main();

// Phases after the fit. Membership distributions of cases and attribute
// values are always computed (clusters, ranking and dissimilarities read
// them); the membership file and its timing only with --mem-prob.
void member_main();
void cluster_main();
void rank_main();
void dissim_main();

#endif
