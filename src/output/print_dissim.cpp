// The dissimilarity sections: the header of each, then its rows.
#include <cstdio>

#include "analysis/dissim.h"
#include "output/print.h"
#include "output/print_common.h"
#include "settings/settings.h"

void print_dissim_case(FILE *fp) {
  add_desc_id("DISSIM-CASE");
  add_desc_col("Case ID of x");
  if (settings.mode_eval) add_desc_col("Answer class of x");
  add_desc_col("Case ID of x'");
  if (settings.mode_eval) add_desc_col("Answer class of x'");
  add_desc_col("KL-divergence D(x||x')");
  flush_desc(fp);
  write_dissim_case_rows(fp);
}

void print_dissim_cat(FILE *fp, int attr) {
  add_desc_id("DISSIM-CAT%d", attr);
  add_desc_col("Attr. ID");
  add_desc_col("Attr. value x%d", attr);
  add_desc_col("Attr. value x%d'", attr);
  add_desc_col("KL-divergence D(x%d||x%d')", attr, attr);
  flush_desc(fp);
  write_dissim_cat_rows(fp, attr);
}

void print_dissim_gauss(FILE *fp, int g) {
  add_desc_id("DISSIM-GAUSS%d", g);
  add_desc_col("Gauss ID");
  add_desc_col("Case ID of Gauss%d", g);
  add_desc_group_attr(g, "Attr. x%d");
  add_desc_col("Case ID of Gauss%d'", g);
  add_desc_group_attr(g, "Attr. x%d'");
  add_desc_col("KL-divergence D(Gauss%d||Gauss%d')", g, g);
  flush_desc(fp);
  write_dissim_gauss_rows(fp, g);
}
