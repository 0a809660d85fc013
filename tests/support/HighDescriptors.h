// SPDX-License-Identifier: Apache-2.0
// A process whose low descriptors are all in use.
#pragma once

#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

namespace korvane::test {

/** While this exists, new descriptors are too high for select(): FD_SETSIZE or above. */
class HighDescriptors {
  public:
    HighDescriptors() {
        getrlimit(RLIMIT_NOFILE, &mBefore);
        rlimit enough = mBefore;
        enough.rlim_cur = enough.rlim_max;
        setrlimit(RLIMIT_NOFILE, &enough);
        while (true) {
            android::base::unique_fd next(open("/dev/null", O_RDONLY | O_CLOEXEC));
            if (next.get() < 0 || next.get() >= FD_SETSIZE) return;
            mTaken.push_back(std::move(next));
        }
    }
    ~HighDescriptors() { setrlimit(RLIMIT_NOFILE, &mBefore); }
    HighDescriptors(const HighDescriptors&) = delete;
    HighDescriptors& operator=(const HighDescriptors&) = delete;

    /** False if the limit leaves no such number: this opens nothing then. */
    bool areLeft() const { return mBefore.rlim_max > FD_SETSIZE; }

  private:
    rlimit mBefore = {};
    std::vector<android::base::unique_fd> mTaken;
};

}  // namespace korvane::test
