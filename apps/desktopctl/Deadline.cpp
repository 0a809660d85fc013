// SPDX-License-Identifier: Apache-2.0
#include "Deadline.h"

#include <csignal>

#include <unistd.h>

#include "Status.h"

namespace korvane::ctl {
namespace {

void onAlarm(int /*signal*/) {
    constexpr char kText[] = "desktopctl: the service does not answer\n";
    (void)!write(STDERR_FILENO, kText, sizeof(kText) - 1);
    _exit(NOT_RUNNING);
}

}  // namespace

Deadline::Deadline(unsigned seconds) {
    signal(SIGALRM, onAlarm);
    alarm(seconds);
}

Deadline::~Deadline() {
    alarm(0);
}

}  // namespace korvane::ctl
