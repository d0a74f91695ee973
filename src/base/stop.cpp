#include "base/stop.h"

#include <signal.h>

#include <cstdio>
#include <cstring>

#include "base/misc.h"

namespace {

ExitHandler exit_handler = nullptr;
volatile sig_atomic_t pending_signal = 0;

extern "C" void note_signal(int sig) { pending_signal = sig; }

}  // namespace

void set_exit_handler(ExitHandler handler) { exit_handler = handler; }

void exit_run(int status) {
  if (exit_handler != nullptr) exit_handler(status);
  throw RunExit{status};
}

void install_stop_signals() {
  struct sigaction sa;
  memset(&sa, 0, sizeof sa);
  sa.sa_handler = note_signal;
  sigemptyset(&sa.sa_mask);
  // Interrupted writes resume; a second signal gets the default action.
  sa.sa_flags = SA_RESTART | SA_RESETHAND;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
}

int stop_signal() { return pending_signal; }

void check_stop() {
  int sig = pending_signal;
  if (sig == 0) return;
  FILE *fp = msg_stream();
  fprintf(fp, "\nStopped by %s\n", sig == SIGINT ? "SIGINT" : sig == SIGTERM ? "SIGTERM" : "a signal");
  fflush(fp);
  exit_run(128 + sig);
}
