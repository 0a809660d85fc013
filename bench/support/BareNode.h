// SPDX-License-Identifier: Apache-2.0
// A scripted node driven by a program that does nothing else.
#pragma once

#include <cstdint>
#include <ctime>
#include <thread>

#include "support/ScriptedKernel.h"

namespace korvane::bench {

/**
 * What any program that streams over a scripted node has to pay: the caller's thread queues empty
 * buffers, a thread of its own waits for them in `select` and takes them back. Throws
 * std::runtime_error if the node refuses something.
 */
class BareNode {
  public:
    BareNode();
    ~BareNode();
    BareNode(const BareNode&) = delete;
    BareNode& operator=(const BareNode&) = delete;

    /** Passes a buffer to the driver and, once sent, back; both threads' processor time, in ns. */
    int64_t pass();

  private:
    void request(unsigned long name, void* argument) const;
    void takeBack() const;
    void queue();

    test::ScriptedKernel mNode{"/dev/video0"};
    const int mFd;
    int mEnd[2];  // a pipe that ends the thread when closed
    uint32_t mPassed = 0;
    std::thread mThread;
    clockid_t mThreadTime = 0;
};

}  // namespace korvane::bench
