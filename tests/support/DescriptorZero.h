// SPDX-License-Identifier: Apache-2.0
// Makes descriptor 0, as valid as any other, turn up where it seldom does.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

namespace korvane::test {

/** While this exists, 0 is the next descriptor to be given out. Close it before this goes. */
class DescriptorZero {
  public:
    DescriptorZero() { close(STDIN_FILENO); }
    ~DescriptorZero() { dup2(mKept.get(), STDIN_FILENO); }
    DescriptorZero(const DescriptorZero&) = delete;
    DescriptorZero& operator=(const DescriptorZero&) = delete;

  private:
    const android::base::unique_fd mKept{fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)};
};

}  // namespace korvane::test
