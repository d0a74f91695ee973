// The unit tests that check a failure by its exit status and message run it in
// a death test: there a failure ends the child process with its status instead
// of throwing RunExit. A test that wants the exception in its own process
// installs no handler (set_exit_handler(nullptr)).
#include <cstdlib>

#include "base/stop.h"

namespace {

[[noreturn]] void exit_with_status(int status) { exit(status); }

const bool installed = (set_exit_handler(exit_with_status), true);

}  // namespace
