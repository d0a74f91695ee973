#include "smem/report.h"

namespace {

void write_nothing(FILE *) {}
void write_nothing_at(FILE *, int, int) {}

}  // namespace

SmemReport smem_report = {write_nothing_at, write_nothing, write_nothing};
