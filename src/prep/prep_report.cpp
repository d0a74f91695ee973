#include "prep/prep_report.h"

#include "prep/prep_fail.h"
#include "prep/role_override.h"

void print_column_table(FILE *fp, const DelimitedTable &t,
                        const std::vector<ColumnSummary> &summaries,
                        const std::vector<ColumnPlan> &plans) {
  fprintf(fp, "%5s  %-10s  %7s  %8s  %-24s  %s\n", "index", "role", "missing", "distinct",
          "because", "name");
  for (size_t c = 0; c < t.names.size(); c++) {
    fprintf(fp, "%5zu  %-10s  %7d  %8d  %-24s  %s\n", c, role_name(plans[c].role),
            summaries[c].n_missing, summaries[c].n_distinct, plans[c].reason, t.names[c].c_str());
  }
}

void warn_about_columns(const DelimitedTable &t, const std::vector<ColumnSummary> &summaries,
                        const std::vector<ColumnPlan> &plans) {
  for (size_t c = 0; c < t.names.size(); c++) {
    const ColumnSummary &s = summaries[c];
    const char *name = t.names[c].c_str();
    if (plans[c].role == ROLE_CONTINUOUS && s.n_distinct <= 2) {
      prep_warn("column '%s' holds only %d distinct numbers but is continuous; a class in which "
                "it does not vary has a singular covariance without priors (-A); "
                "--role '%s=discrete' makes it categorical",
                name, s.n_distinct, name);
    }
    if (s.index_like && (plans[c].role == ROLE_ID || plans[c].role == ROLE_IGNORED) &&
        !role_set_by_user(plans[c])) {
      prep_warn("column '%s' looks like a row index (%s), so it is %s, not an attribute; "
                "--role '%s=continuous' makes it one",
                name, plans[c].reason, plans[c].role == ROLE_ID ? "the case ID" : "ignored", name);
    }
    size_t present = table_rows(t) - static_cast<size_t>(s.n_missing);
    if (plans[c].role == ROLE_DISCRETE && s.n_distinct > 100 &&
        2 * static_cast<size_t>(s.n_distinct) > present) {
      prep_warn("column '%s' is discrete with %d distinct values in %zu rows; it says little about "
                "clusters and slows the fit; --role '%s=ignored' leaves it out",
                name, s.n_distinct, present, name);
    }
  }
}
