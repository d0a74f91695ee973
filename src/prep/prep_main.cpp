// vesk-prep: turns an ordinary delimited file into a vesk case file, names
// its columns and prints the vesk command that fits it. Both files appear
// whole, and only when the run succeeds, standard output included.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "prep/case_file_write.h"
#include "prep/column_order.h"
#include "prep/column_role.h"
#include "prep/column_summary.h"
#include "prep/decimal_comma.h"
#include "prep/delimited_table.h"
#include "prep/output_file.h"
#include "prep/prep_fail.h"
#include "prep/prep_options.h"
#include "prep/prep_report.h"
#include "prep/vesk_command.h"

namespace {

void read_decimal_commas(DelimitedTable *t, const PrepOptions &opt) {
  if (opt.decimal == '.') return;
  for (size_t c = 0; c < t->names.size(); c++) {
    if (!has_decimal_commas(*t, c, opt.missing)) continue;
    convert_decimal_commas(t, c, opt.missing);
    if (opt.decimal == 0)
      prep_warn("column '%s' holds numbers with a decimal comma; they are read as numbers "
                "(--decimal . keeps them as text)", t->names[c].c_str());
  }
}

void print_report(const PrepOptions &opt, const DelimitedTable &t,
                  const std::vector<ColumnSummary> &summaries,
                  const std::vector<ColumnPlan> &plans, const std::string &freq,
                  const std::string &columns, const EncodeCounts &counts) {
  printf("Read %zu rows of %zu columns from %s\n", table_rows(t), t.names.size(),
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
}

}  // namespace

int main(int argc, char **argv) {
  PrepOptions opt = parse_prep_options(argc, argv);
  DelimitedTable t = read_delimited_table(opt.input.c_str(), opt.delimiter, opt.header);
  make_names_unique(&t);
  read_decimal_commas(&t, opt);
  if (!opt.columns_file.empty()) {
    std::vector<RoleOverride> fixed = arrange_as_columns_file(opt.columns_file.c_str(), &t);
    opt.overrides.insert(opt.overrides.begin(), fixed.begin(), fixed.end());
  }
  std::vector<ColumnSummary> summaries;
  for (size_t c = 0; c < t.names.size(); c++)
    summaries.push_back(summarize_column(t, c, opt.missing));
  std::vector<ColumnPlan> plans = infer_roles(summaries);
  apply_role_overrides(opt.overrides, t, summaries, &plans);
  move_count_last(&t, &summaries, &plans);

  std::string freq = opt.base + "_freq.csv", columns = opt.base + "_columns.csv";
  OutputFile freq_out = open_output_file(freq), columns_out = open_output_file(columns);
  EncodeCounts counts;
  clear_encode_counts(&counts);
  write_case_file(&freq_out, t, plans, opt.missing, &counts);
  write_columns_file(&columns_out, t, plans);
  commit_output_file(&columns_out, "");
  commit_output_file(&freq_out, columns);
  // The report names the files and ends with the command: a run whose
  // report cannot be written leaves no files either.
  remove_on_failure(columns);
  remove_on_failure(freq);
  print_report(opt, t, summaries, plans, freq, columns, counts);
  if (fflush(stdout) != 0 || ferror(stdout))
    prep_die("cannot write to standard output: %s", strerror(errno));
  return 0;
}
