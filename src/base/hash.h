// Value dictionary: maps texts to dense ids in registration order and counts
// how often each text was registered.
#ifndef VESK_BASE_HASH_H
#define VESK_BASE_HASH_H

struct HashEntry {
  char *key;
  int id;
  int count;
  HashEntry *next;
};

struct HashTable {
  HashEntry **bucket;
  int num_bucket;
  int num_entry;
  int num_occupied;
};

// Entry record of the listing operations (the key is borrowed from the table).
struct HashRecord {
  const char *key;
  int id;
  int count;
};

void init_hashtable(HashTable *table);
int register_hashtable(HashTable *table, const char *key);
int lookup_hashtable(const HashTable *table, const char *key);
int get_cardinality(const HashTable *table);
const char **get_keys(const HashTable *table);
HashRecord *get_entries(const HashTable *table);
HashRecord *get_entries_sorted_by_key(const HashTable *table);
HashRecord *get_entries_sorted_by_count(const HashTable *table);
void get_mode_key(const HashTable *table, const char **key_out, int *count_out);
void release_hashtable(HashTable *table);

#endif
