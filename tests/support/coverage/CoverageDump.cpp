// SPDX-License-Identifier: Apache-2.0
// Linked into every program of a COVERAGE build: what a process has run is counted however it ends.
// Without this only an orderly exit() writes the counts, but death tests abort, forked test
// processes leave by _exit() and servers are killed.

#include <csignal>
#include <initializer_list>

#include <sys/types.h>
#include <unistd.h>

extern "C" {

void __gcov_dump();
[[noreturn]] void __real__exit(int status);
int __real_kill(pid_t pid, int signal);

/** Referenced by the link, so that this object is taken from its library. */
int korvane_coverage_dump = 0;

}  // extern "C"

namespace {

// Plenty for writing the counts; a process that can't, because the signal caught it inside
// malloc(), ends.
constexpr unsigned kPatienceSeconds = 30;

// What kill() below turns SIGKILL into, which can't be handled.
constexpr int kDumpAndKill = SIGUSR2;

void dumpAndEnd(int signal) {
    alarm(kPatienceSeconds);
    __gcov_dump();
    // The handler has been reset: the second signal ends the process as if there had been none.
    __real_kill(getpid(), signal == kDumpAndKill ? SIGKILL : signal);
}

__attribute__((constructor)) void dumpOnSignals() {
    for (int signal : {SIGABRT, SIGTERM, kDumpAndKill}) {
        struct sigaction action = {};
        action.sa_handler = dumpAndEnd;
        action.sa_flags = SA_RESETHAND;
        sigaction(signal, &action, nullptr);
    }
}

}  // namespace

extern "C" {

[[noreturn]] void __wrap__exit(int status) {
    __gcov_dump();
    __real__exit(status);
}

int __wrap_kill(pid_t pid, int signal) {
    return __real_kill(pid, signal == SIGKILL ? kDumpAndKill : signal);
}

}  // extern "C"
