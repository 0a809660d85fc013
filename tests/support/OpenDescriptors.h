// SPDX-License-Identifier: Apache-2.0
// How many descriptors the process has open, to find leaks.
#pragma once

#include <fcntl.h>

namespace korvane::test {

/** Of the first 1024, whoever opened them. */
inline int countOpenDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd) count += fcntl(fd, F_GETFD) != -1;
    return count;
}

}  // namespace korvane::test
