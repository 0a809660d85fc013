// SPDX-License-Identifier: Apache-2.0
// A process that has used up its descriptors.
#pragma once

#include <sys/resource.h>

namespace korvane::test {

/** While this exists, nothing can be opened or duplicated: EMFILE. What is open stays open. */
class NoMoreDescriptors {
  public:
    NoMoreDescriptors() {
        getrlimit(RLIMIT_NOFILE, &mBefore);
        const rlimit none = {0, mBefore.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &mBefore); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

  private:
    rlimit mBefore = {};
};

}  // namespace korvane::test
