// What vesk-prep tells the user: the table of column roles on standard output
// and warnings about columns that are likely to surprise on standard error.
#ifndef VESK_PREP_PREP_REPORT_H
#define VESK_PREP_PREP_REPORT_H

#include <cstdio>
#include <vector>

#include "prep/column_role.h"
#include "prep/column_summary.h"
#include "prep/delimited_table.h"

// One line per column: index, role, missing count, distinct count, reason, name.
void print_column_table(FILE *fp, const DelimitedTable &t,
                        const std::vector<ColumnSummary> &summaries,
                        const std::vector<ColumnPlan> &plans);

// Warns about a continuous column with two distinct values or fewer and a
// discrete column with more than 100 distinct values that are not repeated
// much (more than half the rows).
void warn_about_columns(const DelimitedTable &t, const std::vector<ColumnSummary> &summaries,
                        const std::vector<ColumnPlan> &plans);

#endif
