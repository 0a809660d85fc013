// SPDX-License-Identifier: Apache-2.0
// The processes of a test: forked ones that run a function, and the register of services.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include <sys/types.h>

#include <android-base/unique_fd.h>

namespace korvane::test {

/** One end of a line between a test and a process that it has forked; carries single characters. */
class Line {
  public:
    explicit Line(android::base::unique_fd fd) : mFd(std::move(fd)) {}

    void say(char what);
    /** Waits for the next character; 0 once the other end is gone, or after a minute. */
    char hear();

  private:
    android::base::unique_fd mFd;
};

/**
 * A process that runs a function and ends. It ends with the status 0 if no expectation of the test
 * failed in it. It is killed with the object, and with the test.
 *
 * The test's own process must not use the binder driver, which forked processes can't share.
 */
class ForkedProcess {
  public:
    using Body = std::function<void(Line& test)>;

    explicit ForkedProcess(const Body& body);
    ~ForkedProcess();
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    pid_t pid() const { return mPid; }
    Line& line() { return mLine; }

    /** Waits until it has ended; its status as waitpid() gives it. */
    int wait();
    /** Kills it and waits. */
    void kill();

  private:
    Line mLine;
    pid_t mPid = -1;
    int mStatus = 0;
};

/** The program hwservicemanager beside the test program; it is ready once constructed. */
class RegisterProcess {
  public:
    RegisterProcess();
    ~RegisterProcess();
    RegisterProcess(const RegisterProcess&) = delete;
    RegisterProcess& operator=(const RegisterProcess&) = delete;

    /** Waits until it has logged a line with this text; false after a minute. */
    bool waitForLog(const std::string& text);

  private:
    pid_t mPid = -1;
    android::base::unique_fd mLogEnd;
    std::string mLog;
};

}  // namespace korvane::test
