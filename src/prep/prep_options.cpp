#include "prep/prep_options.h"

#include <cstdlib>
#include <cstring>

#include "prep/cell_value.h"
#include "prep/prep_fail.h"

namespace {

const char *const USAGE =
    "Usage: vesk-prep INPUT BASE [option...]\n"
    "Reads the delimited file INPUT (header row, quoted fields, missing values) and writes\n"
    "BASE_freq.csv, the case file for vesk, and BASE_columns.csv (index, name, role).\n"
    "The last line of the output is the vesk command that fits it.\n"
    "Options:\n"
    "  --role NAME=ROLE   role of the column NAME: continuous, discrete, id, answer, ignored,\n"
    "                     count (how many times the row's case occurs)\n"
    "  --columns FILE     take every role from FILE, the BASE_columns.csv of an earlier\n"
    "                     run, to score new data with the model fitted there (-R)\n"
    "  --independent      one Gaussian per continuous column (default: one for all of them)\n"
    "  -k, --classes K    number of classes or Kmin:Kmax:Kstep in the command [2:6:1]\n"
    "  -d, --delimiter C  field delimiter of INPUT: , ; tab or one character [detected]\n"
    "  --decimal C        decimal mark of the numbers in INPUT: . or , [, where a column is\n"
    "                     wholly numbers with decimal commas and the delimiter is not a comma]\n"
    "  --no-header        INPUT has no header row; columns are named column0, column1, ...\n"
    "  --na TEXT          read TEXT as a missing value too\n"
    "  --keep TEXT        read TEXT as a value, not as a missing value\n"
    "  -h, --help         print this text\n"
    "Missing values by default: empty cells, NA, N/A, NaN, nan, ?, NULL, null, #N/A.\n";

char parse_delimiter(const std::string &v) {
  if (v == "tab" || v == "\\t") return '\t';
  if (v.size() != 1 || v[0] == '"' || v[0] == '\n' || v[0] == '\r' || v[0] == ' ')
    prep_die("--delimiter takes one character or 'tab', not '%s'", v.c_str());
  return v[0];
}

char parse_decimal(const std::string &v) {
  if (v != "," && v != ".") prep_die("--decimal takes . or , not '%s'", v.c_str());
  return v[0];
}

void remove_marker(std::vector<std::string> *markers, const std::string &text) {
  if (text.empty()) prep_die("--keep: an empty cell is always a missing value");
  for (size_t i = 0; i < markers->size(); i++) {
    if ((*markers)[i] == text) markers->erase(markers->begin() + static_cast<long>(i--));
  }
}

bool is_option(const char *word, const char *shrt, const char *lng) {
  return (shrt != nullptr && strcmp(word, shrt) == 0) || strcmp(word, lng) == 0;
}

}  // namespace

void print_prep_usage(FILE *fp) { fputs(USAGE, fp); }

PrepOptions parse_prep_options(int argc, char **argv) {
  PrepOptions o{"", "", 0, 0, true, default_missing_markers(), {}, "", "", {"2:6:1", false, false}};
  std::vector<std::string> positional;
  for (int i = 1; i < argc; i++) {
    const char *w = argv[i];
    if (is_option(w, "-h", "--help")) {
      print_prep_usage(stdout);
      exit(0);
    }
    bool takes_value = is_option(w, nullptr, "--role") || is_option(w, "-k", "--classes") ||
                       is_option(w, "-d", "--delimiter") || is_option(w, nullptr, "--na") ||
                       is_option(w, nullptr, "--keep") || is_option(w, nullptr, "--decimal") ||
                       is_option(w, nullptr, "--columns");
    if (takes_value && i + 1 >= argc) prep_die("%s needs a value (vesk-prep --help for usage)", w);
    const std::string v = takes_value ? argv[++i] : "";
    if (is_option(w, nullptr, "--role")) o.overrides.push_back(parse_role_override(v));
    else if (is_option(w, "-k", "--classes")) o.choices.classes = v;
    else if (is_option(w, "-d", "--delimiter")) o.delimiter = parse_delimiter(v);
    else if (is_option(w, nullptr, "--na")) o.missing.push_back(v);
    else if (is_option(w, nullptr, "--decimal")) o.decimal = parse_decimal(v);
    else if (is_option(w, nullptr, "--keep")) remove_marker(&o.missing, v);
    else if (is_option(w, nullptr, "--columns")) o.columns_file = v;
    else if (is_option(w, nullptr, "--independent")) o.choices.independent = true;
    else if (is_option(w, nullptr, "--no-header")) o.header = false;
    else if (w[0] == '-' && w[1] != '\0') prep_die("unknown option %s (vesk-prep --help for usage)", w);
    else positional.push_back(w);
  }
  if (positional.size() != 2)
    prep_die("expected INPUT and BASE, got %zu file names (vesk-prep --help for usage)",
             positional.size());
  o.input = positional[0];
  o.base = positional[1];
  if (o.base.empty()) prep_die("BASE is empty");
  if (!o.columns_file.empty()) {
    const std::string ending = "_columns.csv";
    const std::string &f = o.columns_file;
    if (f.size() <= ending.size() || f.compare(f.size() - ending.size(), ending.size(), ending) != 0)
      prep_die("--columns takes a file named BASE_columns.csv, not '%s'", f.c_str());
    o.model_base = f.substr(0, f.size() - ending.size());
    o.choices.read_param = true;
  }
  return o;
}
