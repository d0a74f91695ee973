// Allocation helpers built on the pools: allocate-and-fill, duplicates,
// projections onto selected components, and outer products. The declarations
// live with the pools in base/allocate_matrix.h; this header is the module's
// own entry point.
#ifndef VESK_BASE_ALLOCATE_MATRIX_AUX_H
#define VESK_BASE_ALLOCATE_MATRIX_AUX_H

#include "base/allocate_matrix.h"

#endif
