// The order of the columns in the case file: as in the input, with the count
// column (if any) moved to the end where vesk reads it; or, to score new data
// with a fitted model, the order of that model's columns file.
#ifndef VESK_PREP_COLUMN_ORDER_H
#define VESK_PREP_COLUMN_ORDER_H

#include <vector>

#include "prep/column_role.h"
#include "prep/column_summary.h"
#include "prep/delimited_table.h"
#include "prep/role_override.h"

// Names that occur again get ".1", ".2" ... (the first suffix no column has),
// with a warning, so that every column can be named.
void make_names_unique(DelimitedTable *t);

// Reads a columns file of an earlier run ("index,name,role") and arranges `t`
// in its order. A column the file names that the input lacks is added with
// every value missing when it is the ID, the answer or ignored (and then
// ignored), or with every count 1 when it is the count; a missing attribute
// column, or an input column the file does not name, is an error. Returns
// the roles to set, one per column of the result.
std::vector<RoleOverride> arrange_as_columns_file(const char *path, DelimitedTable *t);

// Moves the count column to the end, with its summary and plan.
void move_count_last(DelimitedTable *t, std::vector<ColumnSummary> *summaries,
                     std::vector<ColumnPlan> *plans);

#endif
