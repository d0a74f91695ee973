#include "base/hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
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

int count_occupied(const HashTable &t) {
  int n = 0;
  for (int b = 0; b < t.num_bucket; b++) n += t.bucket[b] != nullptr;
  return n;
}

std::string key_of(int i) {
  char buf[32];
  snprintf(buf, sizeof buf, "value-%d", i);
  return buf;
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
  EXPECT_EQ(lookup_hashtable(&t, "b"), 1);
  EXPECT_EQ(lookup_hashtable(&t, "c"), -1);
  HashRecord *rec = get_entries(&t);
  EXPECT_STREQ(rec[0].key, "a");
  EXPECT_EQ(rec[0].count, 2);
  EXPECT_EQ(rec[1].count, 1);
  free(rec);
  get_mode_key(&t, &mode, &count);
  EXPECT_STREQ(mode, "a");
  EXPECT_EQ(count, 2);
  release_hashtable(&t);
}

TEST(HashTest, ModeTieGoesToByteWiseSmallerKey) {
  const std::vector<std::vector<const char *>> orders = {
      {"zeta", "alpha", "mid"}, {"alpha", "zeta", "mid"}, {"\xe9t\xe9", "zeta"}};
  const char *expected[] = {"alpha", "alpha", "zeta"};
  for (size_t i = 0; i < orders.size(); i++) {
    HashTable t;
    init_hashtable(&t);
    for (const char *k : orders[i]) register_hashtable(&t, k);
    const char *mode = nullptr;
    int count = 0;
    get_mode_key(&t, &mode, &count);
    EXPECT_STREQ(mode, expected[i]);
    EXPECT_EQ(count, 1);
    release_hashtable(&t);
  }
}

// The hash adds bytes as signed chars: 0xe9 counts as -23, so "\xe9" hashes to
// 2^32 - 23 (bucket 943 of 997) and "a\xe9" to 97 * 97 - 23 (bucket 413). The
// empty key goes to bucket 0.
TEST(HashTest, BucketIndexWithHighBytes) {
  HashTable t;
  init_hashtable(&t);
  register_hashtable(&t, "\xe9");
  register_hashtable(&t, "a\xe9");
  register_hashtable(&t, "");
  register_hashtable(&t, "a");
  EXPECT_EQ(bucket_holding(t, "\xe9"), 943);
  EXPECT_EQ(bucket_holding(t, "a\xe9"), 413);
  EXPECT_EQ(bucket_holding(t, ""), 0);
  EXPECT_EQ(bucket_holding(t, "a"), 97);
  EXPECT_EQ(lookup_hashtable(&t, ""), 2);
  release_hashtable(&t);
}

TEST(HashTest, SortedListings) {
  HashTable t;
  init_hashtable(&t);
  const char *keys[] = {"pear", "\xe9t\xe9", "apple", "Zebra", "pear", "apple", "pear"};
  for (const char *k : keys) register_hashtable(&t, k);
  HashRecord *by_key = get_entries_sorted_by_key(&t);
  const char *key_order[] = {"Zebra", "apple", "pear", "\xe9t\xe9"};  // unsigned byte order
  for (int i = 0; i < 4; i++) EXPECT_STREQ(by_key[i].key, key_order[i]) << i;
  EXPECT_EQ(by_key[1].id, 2);
  EXPECT_EQ(by_key[1].count, 2);
  free(by_key);
  HashRecord *by_count = get_entries_sorted_by_count(&t);
  EXPECT_STREQ(by_count[0].key, "pear");
  EXPECT_STREQ(by_count[1].key, "apple");
  EXPECT_EQ(by_count[2].count, 1);
  EXPECT_EQ(by_count[3].count, 1);
  free(by_count);
  const char **k = get_keys(&t);
  EXPECT_STREQ(k[0], "pear");
  EXPECT_STREQ(k[3], "Zebra");
  free(k);
  release_hashtable(&t);
}

uint32_t reference_hash(const char *key) {
  uint32_t h = 0;
  for (const char *p = key; *p; p++) h = h * 97U + static_cast<uint32_t>(static_cast<signed char>(*p));
  return h;
}

// Enough keys for several growths: the bucket count follows 997, 1995, 3991,
// ..., occupancy stays at most 3/4, and ids, counts and lookups survive. Right
// after the first growth each chain lists its entries by old bucket, then by
// position in the old chain (registration order before any growth).
TEST(HashTest, GrowthKeepsIdsCountsAndChainOrder) {
  HashTable t;
  init_hashtable(&t);
  const int n = 20000;
  int growths = 0;
  for (int i = 0; i < n; i++) {
    int before = t.num_bucket;
    ASSERT_EQ(register_hashtable(&t, key_of(i).c_str()), i);
    ASSERT_LE(static_cast<double>(t.num_occupied) / t.num_bucket, 0.75);
    if (t.num_bucket == before) continue;
    EXPECT_EQ(t.num_bucket, 2 * before + 1);
    EXPECT_EQ(t.num_occupied, count_occupied(t));
    if (growths++ > 0) continue;
    for (int b = 0; b < t.num_bucket; b++) {
      std::pair<uint32_t, int> prev(0, -1);
      for (const HashEntry *e = t.bucket[b]; e != nullptr; e = e->next) {
        uint32_t h = reference_hash(e->key);
        ASSERT_EQ(h % 1995U, static_cast<uint32_t>(b));
        std::pair<uint32_t, int> cur(h % 997U, e->id);
        ASSERT_LT(prev, cur) << "bucket " << b;
        prev = cur;
      }
    }
  }
  EXPECT_GE(growths, 2);
  for (int i = 0; i < n; i += 3) register_hashtable(&t, key_of(i).c_str());
  EXPECT_EQ(get_cardinality(&t), n);
  HashRecord *rec = get_entries(&t);
  for (int i = 0; i < n; i++) {
    ASSERT_EQ(lookup_hashtable(&t, key_of(i).c_str()), i);
    ASSERT_EQ(rec[i].key, key_of(i));
    ASSERT_EQ(rec[i].count, i % 3 == 0 ? 2 : 1);
  }
  free(rec);
  release_hashtable(&t);
}

}  // namespace
