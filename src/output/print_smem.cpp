// Log sections of split-and-merge EM: update counts per operation, rejected
// and skipped candidates, the objective trace of every operation row, the
// decrease report, and (verbose) the two criteria.
#include <cstdio>

#include "settings/settings.h"
#include "model/allocate.h"
#include "output/print.h"
#include "output/print_common.h"
#include "smem/smem.h"

namespace {

// Header of a section per operation: class count, operation, then the
// other columns given.
void begin_op_section(const char *id, const char *col3, const char *col4) {
  add_desc_id("%s-K%d", id, model.num_class);
  add_desc_col("Num. of classes");
  add_desc_col("Num. of split-merge operations");
  if (col3 != nullptr) add_desc_col("%s", col3);
  if (col4 != nullptr) add_desc_col("%s", col4);
}

}  // namespace

void print_num_iterate_sm(FILE *fp) {
  int k = model.num_class;
  begin_op_section("SMEM-EM-STAT", "Num. of updates in partial EM", "Num. of updates in full EM");
  flush_desc(fp);
  print_data(fp, "%d,%d,N/A,%d", k, 0, smem.num_iterate_sm_full[0]);
  for (int o = 1; o <= settings.num_sm; o++)
    print_data(fp, "%d,%d,%d,%d", k, o, smem.num_iterate_sm_part[o], smem.num_iterate_sm_full[o]);
}

// Operation o + 1 is counted in slot o; rows carry the operation number.
void print_num_result_sm(FILE *fp) {
  int k = model.num_class;
  begin_op_section("SMEM-OP-STAT", "Num. of rejected candidates", "Num. of ignored candidates");
  flush_desc(fp);
  for (int o = 0; o < settings.num_sm; o++)
    print_data(fp, "%d,%d,%d,%d", k, o + 1, smem.num_result_rejected[o], smem.num_result_skipped[o]);
}

namespace {

void print_loglike_sm_row(FILE *fp, int k, int o, int t, bool map, bool daem) {
  long double ll = smem.loglike_sm[o][t];
  if (map && daem)
    print_data(fp, "%d,%d,%d,%.Ng,%.Ng,%.Ng,%.Ng", k, o, t, ll, smem.log_prior_sm[o][t], smem.lambda_sm[o][t],
               smem.log_itemp_sm[o][t]);
  else if (map)
    print_data(fp, "%d,%d,%d,%.Ng,%.Ng,%.Ng", k, o, t, ll, smem.log_prior_sm[o][t], smem.lambda_sm[o][t]);
  else if (daem)
    print_data(fp, "%d,%d,%d,%.Ng,%.Ng", k, o, t, ll, smem.log_itemp_sm[o][t]);
  else
    print_data(fp, "%d,%d,%d,%.Ng", k, o, t, ll);
}

}  // namespace

void print_loglike_sm(FILE *fp) {
  int k = model.num_class;
  bool map = model.smooth.any, daem = settings.mode_daem;
  // The annealed ML form names its update and likelihood columns as one;
  // joined by ", " on the column line, the text is the same.
  begin_op_section("LOGLIKE-SMEM", nullptr, nullptr);
  add_loglike_cols(map, daem);
  flush_desc(fp);
  for (int o = 0; o <= settings.num_sm; o++)
    for (int t = 0; t < smem.num_iterate_sm_full[o]; t++) print_loglike_sm_row(fp, k, o, t, map, daem);
}

void print_decrease_sm(FILE *fp, int op, int iter) {
  print_decrease_rows(fp, "SplitMergeOperation", op, iter, smem.loglike_sm[op], smem.lambda_sm[op]);
}

void print_jmerge(FILE *fp) {
  add_desc_id("JMERGE");
  add_desc_col("Class 1");
  add_desc_col("Class 2");
  add_desc_col("Jmerge");
  flush_desc(fp);
  for (int i = 0; i < model.num_class; i++)
    for (int j = i + 1; j < model.num_class; j++) print_data(fp, "%d,%d,%.Ng", i, j, smem.jmerge[i][j]);
}

void print_jsplit(FILE *fp) {
  add_desc_id("JSPLIT");
  add_desc_col("Class 1");
  add_desc_col("Class 2");
  add_desc_col("Jsplit");
  flush_desc(fp);
  for (int k = 0; k < model.num_class; k++) print_data(fp, "%d,%.Ng", k, smem.jsplit[k]);
}
