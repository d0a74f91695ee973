// How a run ends early: every failure and every stop request leaves through
// exit_run, which throws RunExit; `main` catches it, removes unfinished result
// files, flushes the streams and ends the process with the status.
#ifndef VESK_BASE_STOP_H
#define VESK_BASE_STOP_H

// Thrown by exit_run; carries the exit status (1 for failures, 128 plus the
// signal number for a stop request).
struct RunExit {
  int status;
};

// A handler, when installed, sees the status first: a harness that feeds many
// inputs through the readers in one process takes control back, a test binary
// ends a death test's child. When the handler returns (or there is none),
// exit_run throws RunExit.
typedef void (*ExitHandler)(int status);
void set_exit_handler(ExitHandler handler);
[[noreturn]] void exit_run(int status);

// SIGINT and SIGTERM only record the request (a second one ends the process
// at once); the run stops at the next safe point: between lines of the case
// file, between EM updates, between rows of a result file, between phases.
void install_stop_signals();
// At a safe point: when a stop was requested, tells so on the message stream
// and leaves through exit_run with status 128 + the signal number.
void check_stop();
// The signal received, or 0.
int stop_signal();

#endif
