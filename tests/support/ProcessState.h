// What the scheduler says a process is doing, as /proc shows it: 'R' running, 'S' asleep in a
// system call, 'T' stopped by a signal, and so on.
#pragma once

#include <sys/types.h>

#include <chrono>

namespace oxa::test {

// The state letter of process `pid`, or '?' when it cannot be read.
char processState(pid_t pid);

// Waits until process `pid` is in `state`; false after `timeout`.
bool waitProcessState(pid_t pid, char state, std::chrono::milliseconds timeout);

}  // namespace oxa::test
