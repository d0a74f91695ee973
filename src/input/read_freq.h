// The case file reader and the case table it fills.
#ifndef VESK_INPUT_READ_FREQ_H
#define VESK_INPUT_READ_FREQ_H

#include "base/allocate_matrix.h"
#include "base/hash.h"

enum { WORD_MISSING = -2, WORD_UNSET = -1 };

// One distinct case (or one line with --uncompress, --id or Gaussian groups).
struct CaseRecord {
  int *word;             // per discrete attribute: value id, WORD_MISSING or WORD_UNSET
  int *miss_w;           // per discrete attribute: 1 when missing
  int count;             // sum of the object counts of the lines merged into it
  int case_id;           // id in ht_case_id (with --id), else -1
  int ans_class;         // id in ht_class (with --eval), else -1
  int num_miss;          // number of missing discrete values
  Vector *gauss;         // per Gaussian group: the values (missing ones are 0)
  int **miss_g;          // per group, per component: 1 when missing
  int *num_miss_gauss;   // per group: number of missing components
};

struct CaseTable {
  CaseRecord *freq_list;
  int num_entry_pre;       // non-comment lines
  int num_entry;           // records
  int total_freq;          // sum of all counts
  HashTable *ht;           // per discrete attribute: value dictionary
  int *num_word;           // per discrete attribute: number of values
  const char ***word_list; // per discrete attribute: value texts by id
  int **print_order;       // per discrete attribute: value ids in print order
  int **word_freq_list;    // per discrete attribute: registrations per value id
  HashTable ht_vec;        // whole discrete vectors, for merging
  HashTable ht_case_id;
  int num_case_id;
  const char **case_id_list;
  HashTable ht_class;
  int num_ans_class;
  const char **ans_class_list;
  int *cluster_case_freq_ans;  // records per answer class
  int *num_miss_w;             // per discrete attribute: count of cases with it missing
  int **num_miss_g;            // per group, per component: count of cases with it missing
  long long total_num_miss_w;  // missing discrete values over the table
  // Discrete attributes and Gaussian groups the per-attribute and per-group
  // arrays above were made for (what release_freq frees).
  int num_attr_d, num_groups;
};
extern CaseTable cases;

void read_freq();
// Frees the case table (the value dictionaries included) and whatever a
// failed read left behind, and clears `cases`.
void release_freq();
// Orders value ids of discrete attribute `a` for printing (lexical or first appearance).
void build_print_order(int a);
// Byte-wise comparison of two value texts, at most 256 bytes.
int compare_word(const char *x, const char *y);

#endif
