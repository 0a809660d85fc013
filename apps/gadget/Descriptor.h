// SPDX-License-Identifier: Apache-2.0
// Owns a file descriptor.
#pragma once

#include <unistd.h>

namespace korvane::gadget {

/** Closes its descriptor when destroyed; -1 is none. */
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : mFd(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return mFd; }
    bool valid() const { return mFd >= 0; }
    void reset(int fd = -1) {
        if (mFd >= 0) close(mFd);
        mFd = fd;
    }

  private:
    int mFd;
};

}  // namespace korvane::gadget
