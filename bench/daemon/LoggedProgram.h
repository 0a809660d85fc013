// SPDX-License-Identifier: Apache-2.0
// A program of its own that a benchmark starts and watches by what it says on stderr.
#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

#include <android-base/unique_fd.h>

namespace korvane::bench {

/** One of the built programs, by its path in the build folder. */
std::string builtProgram(const std::string& path);

/** Started with the object and killed with it. */
class LoggedProgram {
  public:
    /** Starts the program at path, without arguments or input. Throws if it can't. */
    explicit LoggedProgram(const std::string& path);
    ~LoggedProgram();
    LoggedProgram(const LoggedProgram&) = delete;
    LoggedProgram& operator=(const LoggedProgram&) = delete;

    /** When it was started: monotonic nanoseconds, as all times here, before the fork. */
    int64_t started() const { return mStarted; }

    /**
     * Waits until it has said text and returns when that was noticed. What has come before it is
     * forgotten, so texts are to be waited for in their order. Throws when the program ends before,
     * or after twenty seconds of silence.
     */
    int64_t waitFor(const std::string& text);

    /** Waits until it has ended and returns when that was noticed. */
    int64_t waitForEnd();

  private:
    int64_t mStarted = 0;
    pid_t mPid = -1;
    android::base::unique_fd mLog;
    std::string mSaid;
};

}  // namespace korvane::bench
