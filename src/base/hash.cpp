// Value dictionary: chained hash table whose entries get dense ids in
// registration order. It grows to 2n + 1 buckets when more than three quarters
// of the buckets are occupied (occupied buckets, not entries, are counted).
#include "base/hash.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/misc.h"

namespace {

const int INITIAL_BUCKETS = 997;
const char *const MODULE = "hash.cpp";

// h = h * 97 + c over the bytes taken as signed chars, wrapping at 32 bits.
uint32_t hash_key(const char *key) {
  uint32_t h = 0;
  for (const char *p = key; *p != '\0'; p++) {
    h = h * 97U + static_cast<uint32_t>(static_cast<int>(static_cast<signed char>(*p)));
  }
  return h;
}

int bucket_of(const char *key, int num_bucket) {
  return static_cast<int>(hash_key(key) % static_cast<uint32_t>(num_bucket));
}

HashEntry **alloc_buckets(int n) {
  return static_cast<HashEntry **>(calloc_str0(sizeof(HashEntry *) * n, MODULE, 1));
}

// Moves every entry, old bucket by old bucket and along each chain in order,
// to the end of its chain in a table of 2n + 1 buckets.
void grow_hashtable(HashTable *table) {
  int n = 2 * table->num_bucket + 1;
  HashEntry **bucket = alloc_buckets(n);
  HashEntry **tail = alloc_buckets(n);
  int occupied = 0;
  for (int b = 0; b < table->num_bucket; b++) {
    HashEntry *e = table->bucket[b];
    while (e != nullptr) {
      HashEntry *next = e->next;
      int nb = bucket_of(e->key, n);
      e->next = nullptr;
      if (tail[nb] == nullptr) {
        bucket[nb] = e;
        occupied++;
      } else {
        tail[nb]->next = e;
      }
      tail[nb] = e;
      e = next;
    }
  }
  free(tail);
  free(table->bucket);
  table->bucket = bucket;
  table->num_bucket = n;
  table->num_occupied = occupied;
}

HashEntry *new_entry(const char *key, int id) {
  HashEntry *e = static_cast<HashEntry *>(xmalloc0(sizeof(HashEntry), MODULE, 2));
  e->key = dup_str0(key, MODULE, 3);
  e->id = id;
  e->count = 1;
  e->next = nullptr;
  return e;
}

bool key_less(const HashRecord &a, const HashRecord &b) { return strcmp(a.key, b.key) < 0; }

bool count_greater(const HashRecord &a, const HashRecord &b) { return a.count > b.count; }

}  // namespace

void init_hashtable(HashTable *table) {
  table->bucket = alloc_buckets(INITIAL_BUCKETS);
  table->num_bucket = INITIAL_BUCKETS;
  table->num_entry = 0;
  table->num_occupied = 0;
}

int register_hashtable(HashTable *table, const char *key) {
  int b = bucket_of(key, table->num_bucket);
  HashEntry *last = nullptr;
  for (HashEntry *e = table->bucket[b]; e != nullptr; e = e->next) {
    if (strcmp(e->key, key) == 0) {
      e->count++;
      return e->id;
    }
    last = e;
  }
  int id = table->num_entry;
  HashEntry *e = new_entry(key, id);
  if (last == nullptr) {
    table->bucket[b] = e;
    table->num_occupied++;
  } else {
    last->next = e;
  }
  table->num_entry++;
  if (static_cast<double>(table->num_occupied) / table->num_bucket > 0.75) grow_hashtable(table);
  return id;
}

int lookup_hashtable(const HashTable *table, const char *key) {
  int b = bucket_of(key, table->num_bucket);
  for (const HashEntry *e = table->bucket[b]; e != nullptr; e = e->next) {
    if (strcmp(e->key, key) == 0) return e->id;
  }
  return -1;
}

int get_cardinality(const HashTable *table) { return table->num_entry; }

const char **get_keys(const HashTable *table) {
  const char **keys =
      static_cast<const char **>(xmalloc0(sizeof(const char *) * table->num_entry, MODULE, 4));
  for (int b = 0; b < table->num_bucket; b++) {
    for (const HashEntry *e = table->bucket[b]; e != nullptr; e = e->next) keys[e->id] = e->key;
  }
  return keys;
}

HashRecord *get_entries(const HashTable *table) {
  HashRecord *rec =
      static_cast<HashRecord *>(xmalloc0(sizeof(HashRecord) * table->num_entry, MODULE, 5));
  for (int b = 0; b < table->num_bucket; b++) {
    for (const HashEntry *e = table->bucket[b]; e != nullptr; e = e->next) {
      rec[e->id].key = e->key;
      rec[e->id].id = e->id;
      rec[e->id].count = e->count;
    }
  }
  return rec;
}

HashRecord *get_entries_sorted_by_key(const HashTable *table) {
  HashRecord *rec = get_entries(table);
  std::stable_sort(rec, rec + table->num_entry, key_less);
  return rec;
}

HashRecord *get_entries_sorted_by_count(const HashTable *table) {
  HashRecord *rec = get_entries(table);
  std::stable_sort(rec, rec + table->num_entry, count_greater);
  return rec;
}

void get_mode_key(const HashTable *table, const char **key_out, int *count_out) {
  const char *best_key = nullptr;
  int best_count = -1;
  for (int b = 0; b < table->num_bucket; b++) {
    for (const HashEntry *e = table->bucket[b]; e != nullptr; e = e->next) {
      if (e->count > best_count || (e->count == best_count && strcmp(e->key, best_key) < 0)) {
        best_key = e->key;
        best_count = e->count;
      }
    }
  }
  *key_out = best_key;
  *count_out = best_count;
}

void release_hashtable(HashTable *table) {
  for (int b = 0; b < table->num_bucket; b++) {
    HashEntry *e = table->bucket[b];
    while (e != nullptr) {
      HashEntry *next = e->next;
      free(e->key);
      free(e);
      e = next;
    }
  }
  free(table->bucket);
  table->bucket = nullptr;
  table->num_bucket = 0;
  table->num_entry = 0;
  table->num_occupied = 0;
}
