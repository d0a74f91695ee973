#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "base/result_file.h"
#include "base/stop.h"
#include "driver/vesk.h"

namespace {

// After a stop request the log must end with a line end: every line in it is
// then complete.
void end_log_line() {
  if (settings.fp_log == nullptr) return;
  fflush(settings.fp_log);
  int fd = open(settings.fname_log, O_RDONLY);
  if (fd < 0) return;
  char last = '\n';
  off_t size = lseek(fd, 0, SEEK_END);
  if (size > 0 && pread(fd, &last, 1, size - 1) != 1) last = '\n';
  close(fd);
  if (last != '\n') fputc('\n', settings.fp_log);
}

}  // namespace

// A failure or a stop request unwinds to here: unfinished result files are
// removed, what was written is flushed, and the process ends with the status
// at once (what is still allocated goes back with the process).
int main(int argc, char **argv) {
  try {
    return vesk_main(argc, argv);
  } catch (const RunExit &e) {
    discard_outputs();
    if (e.status > 128) end_log_line();
    fflush(nullptr);
    _Exit(e.status);
  }
}
