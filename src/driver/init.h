// Structured option values (class ranges, index lists, smoothing values,
// ranking, inverse temperature, extreme values) and the attribute roles built
// from them. Every failure ends the run through die.
#ifndef VESK_DRIVER_INIT_H
#define VESK_DRIVER_INIT_H

// --gauss: appends the groups of one value ("#"-separated; "a~b" ranges).
void add_gauss(const char *text);
// --ignore: sets the flags of a comma-separated list of index items.
void add_attr_ignore(const char *text);
void parse_num_class(const char *text);
void parse_rank(const char *text);
void parse_itemp(const char *text);
void parse_extreme(const char *text);
// Smoothing values; "auto" marks a value to be set by the AutoClass rule.
long double parse_smooth_c(const char *text);
int parse_smooth_w(const char *text);  // fills smooth_w, returns the count
long double parse_smooth_tau(const char *text);
void parse_smooth_s(const char *text);

void check_tuple_size();
void parse_gauss();
void build_attr_info();
// Expands the attribute smoothing given for n attributes to every discrete one.
void build_smooth_nominal(int n);
void release_smooth_nominal();
// Frees the attribute roles (groups, role records, ignore flags).
void release_attr_info();

#endif
