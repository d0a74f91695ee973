#include "prep/column_order.h"

#include <string>
#include <unordered_set>

#include "prep/prep_fail.h"

namespace {

long column_named(const DelimitedTable &t, const std::string &name) {
  for (size_t c = 0; c < t.names.size(); c++) {
    if (t.names[c] == name) return static_cast<long>(c);
  }
  return -1;
}

}  // namespace

void make_names_unique(DelimitedTable *t) {
  std::unordered_set<std::string> taken(t->names.begin(), t->names.end());
  std::unordered_set<std::string> seen;
  for (std::string &name : t->names) {
    if (seen.insert(name).second) continue;
    std::string fresh;
    for (int k = 1;; k++) {
      fresh = name + "." + std::to_string(k);
      if (!taken.count(fresh)) break;
    }
    prep_warn("the column name '%s' occurs again; that column is named '%s'", name.c_str(),
              fresh.c_str());
    taken.insert(fresh);
    seen.insert(fresh);
    name = fresh;
  }
}

std::vector<RoleOverride> arrange_as_columns_file(const char *path, DelimitedTable *t) {
  DelimitedTable cols = read_delimited_table(path, ',', true);
  if (cols.names.size() != 3 || cols.names[1] != "name" || cols.names[2] != "role")
    prep_die("%s is not a columns file (index,name,role)", path);
  std::vector<RoleOverride> roles;
  std::vector<long> source;
  std::vector<std::string> names, fill;
  for (size_t r = 0; r < table_rows(cols); r++) {
    std::string name = table_cell(cols, r, 1);
    int role = parse_role_name(table_cell(cols, r, 2));
    if (role < 0)
      prep_die("%s: line %d: unknown role '%s'", path, cols.row_line[r], table_cell(cols, r, 2));
    long c = column_named(*t, name);
    if (c < 0 && (role == ROLE_CONTINUOUS || role == ROLE_DISCRETE))
      prep_die("the input has no column '%s', a %s attribute of the model in %s", name.c_str(),
               role_name(role), path);
    if (c < 0 && role != ROLE_COUNT) role = ROLE_IGNORED;
    source.push_back(c);
    names.push_back(name);
    fill.push_back(role == ROLE_COUNT ? "1" : "");
    roles.push_back({name, role});
  }
  for (const std::string &name : t->names) {
    bool listed = false;
    for (const std::string &n : names) listed = listed || n == name;
    if (!listed)
      prep_die("column '%s' of the input is not in %s; remove it from the input", name.c_str(),
               path);
  }
  *t = arrange_columns(*t, source, names, fill);
  return roles;
}

void move_count_last(DelimitedTable *t, std::vector<ColumnSummary> *summaries,
                     std::vector<ColumnPlan> *plans) {
  size_t n = plans->size();
  std::vector<long> source;
  for (size_t c = 0; c < n; c++) {
    if ((*plans)[c].role != ROLE_COUNT) source.push_back(static_cast<long>(c));
  }
  if (source.size() == n) return;
  for (size_t c = 0; c < n; c++) {
    if ((*plans)[c].role == ROLE_COUNT) source.push_back(static_cast<long>(c));
  }
  std::vector<std::string> names;
  std::vector<ColumnSummary> s;
  std::vector<ColumnPlan> p;
  for (long c : source) {
    names.push_back(t->names[static_cast<size_t>(c)]);
    s.push_back((*summaries)[static_cast<size_t>(c)]);
    p.push_back((*plans)[static_cast<size_t>(c)]);
  }
  *t = arrange_columns(*t, source, names, std::vector<std::string>(n));
  *summaries = s;
  *plans = p;
}
