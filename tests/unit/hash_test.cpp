#include "base/hash.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Which bucket holds the key, or -1.
int bucket_holding(const HashTable &t, const char *key) {
  for (int b = 0; b < t.num_bucket; b++) {
    for (const HashEntry *e = t.bucket[b]; e != nullptr; e = e->next) {
      if (strcmp(e->key, key) == 0) return b;
    }
  }
  return -1;
}

TEST(HashTest, RegisterCountsAndMode) {
  HashTable t;
  init_hashtable(&t);
  EXPECT_EQ(t.num_bucket, 997);
  const char *mode = "x";
  int count = 0;
  get_mode_key(&t, &mode, &count);  // empty table
  EXPECT_EQ(mode, nullptr);
  EXPECT_EQ(count, -1);
  EXPECT_EQ(register_hashtable(&t, "a"), 0);
  EXPECT_EQ(register_hashtable(&t, "b"), 1);
  EXPECT_EQ(register_hashtable(&t, "a"), 0);
  EXPECT_EQ(get_cardinality(&t), 2);
  EXPECT_EQ(lookup_hashtable(&t, "c"), -1);
  get_mode_key(&t, &mode, &count);
  EXPECT_STREQ(mode, "a");
  EXPECT_EQ(count, 2);
  // Ties: "Ab" (bucket 421) is scanned after "a" (bucket 97) but is the
  // smaller key; "\xe9" (bucket 943) is larger as an unsigned byte.
  for (const char *k : {"Ab", "Ab", "\xe9", "\xe9"}) register_hashtable(&t, k);
  get_mode_key(&t, &mode, &count);
  EXPECT_STREQ(mode, "Ab");
  release_hashtable(&t);
}

// The hash adds bytes as signed chars: 0xe9 counts as -23, so "\xe9" hashes to
// 2^32 - 23 (bucket 943 of 997) and "a\xe9" to 97 * 97 - 23 (bucket 413). The
// empty key goes to bucket 0.
TEST(HashTest, BucketIndexWithHighBytes) {
  HashTable t;
  init_hashtable(&t);
  const char *keys[] = {"\xe9", "a\xe9", "", "a"};
  const int buckets[] = {943, 413, 0, 97};
  for (const char *k : keys) register_hashtable(&t, k);
  for (int i = 0; i < 4; i++) EXPECT_EQ(bucket_holding(t, keys[i]), buckets[i]) << i;
  EXPECT_EQ(lookup_hashtable(&t, ""), 2);
  release_hashtable(&t);
}

// Enough keys for several growths: the bucket count follows 997, 1995, 3991,
// ..., the occupied-bucket count is recomputed and stays at most 3/4 of the
// buckets, and ids, counts and lookups survive.
TEST(HashTest, GrowthKeepsIdsAndCounts) {
  HashTable t;
  init_hashtable(&t);
  const int n = 20000;
  std::vector<std::string> key(n);
  int growths = 0;
  for (int i = 0; i < n; i++) {
    key[i] = "value-" + std::to_string(i);
    int before = t.num_bucket;
    ASSERT_EQ(register_hashtable(&t, key[i].c_str()), i);
    ASSERT_LE(static_cast<double>(t.num_occupied) / t.num_bucket, 0.75);
    if (t.num_bucket == before) continue;
    growths++;
    EXPECT_EQ(t.num_bucket, 2 * before + 1);
    int occupied = 0;
    for (int b = 0; b < t.num_bucket; b++) occupied += t.bucket[b] != nullptr;
    EXPECT_EQ(t.num_occupied, occupied);
  }
  EXPECT_GE(growths, 2);
  for (int i = 0; i < n; i += 3) register_hashtable(&t, key[i].c_str());
  HashRecord *rec = get_entries(&t);
  for (int i = 0; i < n; i++) {
    ASSERT_EQ(lookup_hashtable(&t, key[i].c_str()), i);
    ASSERT_EQ(rec[i].key, key[i]);
    ASSERT_EQ(rec[i].count, i % 3 == 0 ? 2 : 1);
  }
  free(rec);
  release_hashtable(&t);
}

}  // namespace
