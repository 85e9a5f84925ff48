#pragma once

// Runs the daemon on the calling thread, which must be the process's main thread, until a signal, a
// lost permission or the removal of the front application asks for the end. Returns the exit code
// of the process: 77 (EX_NOPERM of <sysexits.h>) when a permission is missing, so that the launcher
// starts the daemon again later, otherwise 1. Throws what its set-up throws (the log, the
// settings, a thread that the system does not give), once that stands in the log too. Call once.
int run_daemon();
