// The MT19937 Mersenne Twister, the program's only source of randomness.
#ifndef VESK_BASE_RANDOM_H
#define VESK_BASE_RANDOM_H

#include <cstdint>

void init_genrand(uint32_t seed);
void init_by_array(const uint32_t *keys, int length);
uint32_t genrand_int32();
int32_t genrand_int31();
double genrand_real1();
double genrand_real2();
double genrand_real3();
double genrand_res53();

#endif
