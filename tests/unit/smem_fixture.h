// Shared by the split-and-merge unit tests: the program's E-step on the
// installed parameters, with the class counts handed to the criteria.
#ifndef VESK_TESTS_SMEM_FIXTURE_H
#define VESK_TESTS_SMEM_FIXTURE_H

#include <cstring>

#include "em_fixture.h"
#include "smem/smem.h"

inline void smem_estep() {
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  compute_expect();
  memcpy(smem.expect_c_sm, model.expect_c, sizeof(long double) * model.num_class);
}

#endif
