// vesk-prep: turns an ordinary delimited file into a vesk case file, names
// its columns and prints the vesk command that fits it.
#include <cstdio>
#include <string>
#include <vector>

#include "prep/case_file_write.h"
#include "prep/column_role.h"
#include "prep/column_summary.h"
#include "prep/delimited_table.h"
#include "prep/prep_fail.h"
#include "prep/prep_options.h"
#include "prep/prep_report.h"
#include "prep/vesk_command.h"

int main(int argc, char **argv) {
  PrepOptions opt = parse_prep_options(argc, argv);
  DelimitedTable t = read_delimited_table(opt.input.c_str(), opt.delimiter, opt.header);
  std::vector<ColumnSummary> summaries;
  for (size_t c = 0; c < t.names.size(); c++)
    summaries.push_back(summarize_column(t, c, opt.missing));
  std::vector<ColumnPlan> plans = infer_roles(summaries);
  if (!opt.columns_file.empty()) {
    std::vector<RoleOverride> fixed = overrides_from_columns_file(opt.columns_file.c_str(), t);
    opt.overrides.insert(opt.overrides.begin(), fixed.begin(), fixed.end());
  }
  apply_role_overrides(opt.overrides, t, summaries, &plans);

  std::string freq = opt.base + "_freq.csv", columns = opt.base + "_columns.csv";
  EncodeCounts counts;
  clear_encode_counts(&counts);
  write_case_file(freq, t, plans, opt.missing, &counts);
  write_columns_file(columns, t, plans);

  printf("Read %zu rows of %zu columns from %s\n", t.rows.size(), t.names.size(),
         opt.input.c_str());
  print_column_table(stdout, t, summaries, plans);
  printf("Wrote %s and %s\n", freq.c_str(), columns.c_str());
  warn_about_columns(t, summaries, plans);
  std::string encoded = describe_encode_counts(counts);
  if (!encoded.empty()) {
    prep_warn("%ld values hold characters the case file cannot hold and were percent-encoded "
              "(%s); the result reader decodes them",
              counts.values, encoded.c_str());
  }
  if (opt.choices.read_param) {
    printf("Score with the model fitted on %s: cp %s %s, then run\n", opt.model_base.c_str(),
           shell_quote(opt.model_base + "_param.csv").c_str(),
           shell_quote(opt.base + "_param.csv").c_str());
  }
  printf("%s\n", vesk_command(opt.base, plans, opt.choices).c_str());
  return fflush(stdout) == 0 ? 0 : 1;
}
