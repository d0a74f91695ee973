// Cuts one line of a delimited file into fields (no quoting; blanks dropped).
#ifndef VESK_BASE_SPLIT_H
#define VESK_BASE_SPLIT_H

enum { FIELD_SIZE = 131073, SPLIT_SCAN_MAX = 131072 };

int split(int max_fields, const char *line, char **fields, int *starts, const char *delimiters,
          const char *dropped);
// The number of fields split would find: the delimiters among the first
// SPLIT_SCAN_MAX characters, plus one.
int count_fields(const char *line, const char *delimiters);
int split_tab(int max_fields, const char *line, char **fields, int *starts);
int split_comma(int max_fields, const char *line, char **fields, int *starts);
char **alloc_field(int n);
void release_field(char **fields, int n);

#endif
