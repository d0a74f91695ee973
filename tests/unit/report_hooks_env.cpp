// The computations reach the writers through hooks the program fills in at
// start-up; the unit tests fill them in the same way before any test runs.
#include "driver/run.h"

namespace {

const bool hooks_installed = (install_report_hooks(), true);

}  // namespace
