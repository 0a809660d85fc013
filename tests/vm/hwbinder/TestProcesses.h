// SPDX-License-Identifier: Apache-2.0
// Processes that play the parts of a test, and what they use to wait for each other.
#pragma once

#include <functional>

#include <sys/types.h>

namespace korvane::test {

/** Something that happens, any number of times, in any process forked after this was made. */
class Event {
  public:
    Event();
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void signal() const;

    /** Waits for one signal and takes it; false if none comes within the time. */
    bool wait(int timeoutMs = 20000) const;

  private:
    int mPipe[2];
};

/**
 * A forked process that runs one function. The first expectation that fails in it is printed and
 * ends it, which its peers and expectSuccess() notice. The test program itself never speaks to the
 * driver, which a process can't share.
 */
class TestProcess {
  public:
    explicit TestProcess(const std::function<void()>& body);
    /** Kills the process if it still runs. */
    ~TestProcess();
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;

    pid_t pid() const { return mPid; }

    /** Waits for the end of the function: its expectations must have held. */
    void expectSuccess();

    /** Ends the process without warning and returns when it is gone. */
    void kill();

  private:
    pid_t mPid;
};

/** One part of a test, in a process of its own, to its end. */
void runInProcess(const std::function<void()>& body);

}  // namespace korvane::test
