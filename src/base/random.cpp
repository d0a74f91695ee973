// MT19937 (Matsumoto and Nishimura), bit-identical to the reference generator.
#include "base/random.h"

namespace {

enum { MT_N = 624, MT_M = 397 };
const uint32_t MATRIX_A = 0x9908b0dfU;
const uint32_t UPPER_MASK = 0x80000000U;
const uint32_t LOWER_MASK = 0x7fffffffU;

struct MtState {
  uint32_t mt[MT_N];
  int mti = MT_N + 1;  // MT_N + 1 means "not seeded yet"
};
MtState mt_state;

uint32_t twist_word(uint32_t upper, uint32_t lower, uint32_t far) {
  uint32_t y = (upper & UPPER_MASK) | (lower & LOWER_MASK);
  return far ^ (y >> 1) ^ ((y & 1U) ? MATRIX_A : 0U);
}

// Regenerates all 624 words of the state.
void twist() {
  uint32_t *mt = mt_state.mt;
  int kk;
  for (kk = 0; kk < MT_N - MT_M; kk++) mt[kk] = twist_word(mt[kk], mt[kk + 1], mt[kk + MT_M]);
  for (; kk < MT_N - 1; kk++) mt[kk] = twist_word(mt[kk], mt[kk + 1], mt[kk + (MT_M - MT_N)]);
  mt[MT_N - 1] = twist_word(mt[MT_N - 1], mt[0], mt[MT_M - 1]);
  mt_state.mti = 0;
}

}  // namespace

void init_genrand(uint32_t seed) {
  uint32_t *mt = mt_state.mt;
  mt[0] = seed;
  for (int i = 1; i < MT_N; i++) {
    mt[i] = 1812433253U * (mt[i - 1] ^ (mt[i - 1] >> 30)) + static_cast<uint32_t>(i);
  }
  mt_state.mti = MT_N;
}

void init_by_array(const uint32_t *keys, int length) {
  uint32_t *mt = mt_state.mt;
  init_genrand(19650218U);
  int i = 1, j = 0;
  for (int k = (MT_N > length ? MT_N : length); k > 0; k--) {
    mt[i] = (mt[i] ^ ((mt[i - 1] ^ (mt[i - 1] >> 30)) * 1664525U)) + keys[j] +
            static_cast<uint32_t>(j);
    i++;
    j++;
    if (i >= MT_N) {
      mt[0] = mt[MT_N - 1];
      i = 1;
    }
    if (j >= length) j = 0;
  }
  for (int k = MT_N - 1; k > 0; k--) {
    mt[i] = (mt[i] ^ ((mt[i - 1] ^ (mt[i - 1] >> 30)) * 1566083941U)) - static_cast<uint32_t>(i);
    i++;
    if (i >= MT_N) {
      mt[0] = mt[MT_N - 1];
      i = 1;
    }
  }
  mt[0] = 0x80000000U;  // guarantees a non-zero initial state
}

uint32_t genrand_int32() {
  if (mt_state.mti >= MT_N) {
    if (mt_state.mti == MT_N + 1) init_genrand(5489U);
    twist();
  }
  uint32_t y = mt_state.mt[mt_state.mti++];
  y ^= (y >> 11);
  y ^= (y << 7) & 0x9d2c5680U;
  y ^= (y << 15) & 0xefc60000U;
  y ^= (y >> 18);
  return y;
}

int32_t genrand_int31() { return static_cast<int32_t>(genrand_int32() >> 1); }

double genrand_real1() { return genrand_int32() * (1.0 / 4294967295.0); }

double genrand_real2() { return genrand_int32() * (1.0 / 4294967296.0); }

double genrand_real3() { return (static_cast<double>(genrand_int32()) + 0.5) * (1.0 / 4294967296.0); }

double genrand_res53() {
  uint32_t a = genrand_int32() >> 5;
  uint32_t b = genrand_int32() >> 6;
  return (a * 67108864.0 + b) * (1.0 / 9007199254740992.0);
}
