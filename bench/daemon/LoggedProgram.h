// SPDX-License-Identifier: Apache-2.0
// A separate program that a benchmark starts and follows by what it prints to stderr.
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

    /** When it was started, taken before the fork: monotonic nanoseconds, like all times here. */
    int64_t started() const { return mStarted; }

    /**
     * Waits until it has printed the text and returns when that was noticed. All output up to there
     * is discarded, so wait for texts in their order. Throws if the program ends first, or after
     * twenty seconds of silence.
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
