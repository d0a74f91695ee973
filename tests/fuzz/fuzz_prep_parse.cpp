// libFuzzer target of vesk-prep's reading of a delimited file: quoting, line
// ends, delimiter detection, repeated names, decimal commas, column
// summaries, roles, the printed command and the case-file encoding. The
// first input byte chooses the delimiter (detected, comma, semicolon or tab)
// and whether there is a header row; the rest is the file. A failure that
// vesk-prep reports (one message, status 1) comes back here as an exception;
// anything else is a finding.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "prep/case_encode.h"
#include "prep/cell_value.h"
#include "prep/column_order.h"
#include "prep/column_role.h"
#include "prep/column_summary.h"
#include "prep/decimal_comma.h"
#include "prep/delimited_table.h"
#include "prep/prep_fail.h"
#include "prep/vesk_command.h"

namespace {

struct PrepFailure {};

void remove_input();

// The input goes to a file of its own per process, removed at exit.
const std::string &input_path() {
  static const std::string path = "/tmp/fuzz_prep_parse_" + std::to_string(getpid()) + ".csv";
  static const bool registered = atexit(remove_input) == 0;
  (void)registered;
  return path;
}

void remove_input() { remove(input_path().c_str()); }

void exercise(const DelimitedTable &table) {
  DelimitedTable t = table;
  std::vector<std::string> markers = default_missing_markers();
  make_names_unique(&t);
  std::vector<ColumnSummary> summaries;
  for (size_t c = 0; c < t.names.size(); c++) {
    if (has_decimal_commas(t, c, markers)) convert_decimal_commas(&t, c, markers);
    summaries.push_back(summarize_column(t, c, markers));
  }
  std::vector<ColumnPlan> plans = infer_roles(summaries);
  vesk_command("base", plans, {"2:6:1", false, false});
  EncodeCounts counts;
  clear_encode_counts(&counts);
  for (size_t r = 0; r < table_rows(t); r++) {
    for (size_t c = 0; c < t.names.size(); c++) encode_case_text(table_cell(t, r, c), c == 0, &counts);
  }
  describe_encode_counts(counts);
}

}  // namespace

// vesk-prep's failure reporting, replaced for the fuzzer: no message, no exit.
void prep_die(const char *, ...) { throw PrepFailure(); }
void prep_warn(const char *, ...) {}
void remove_on_failure(const std::string &) {}
void keep_on_failure(const std::string &) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  const char delimiters[] = {0, ',', ';', '\t'};
  char delimiter = delimiters[data[0] & 3];
  bool header = (data[0] & 4) == 0;
  FILE *fp = fopen(input_path().c_str(), "wb");
  if (fp == nullptr) return 0;
  fwrite(data + 1, 1, size - 1, fp);
  fclose(fp);
  try {
    exercise(read_delimited_table(input_path().c_str(), delimiter, header));
  } catch (const PrepFailure &) {
  }
  return 0;
}
