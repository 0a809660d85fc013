// SPDX-License-Identifier: Apache-2.0
// Raises kernel events that nothing happened for.
#pragma once

#include <string>
#include <vector>

#include <android-base/unique_fd.h>

namespace korvane::test {

/**
 * Moves the calling thread, and those it starts from then on, into a network namespace of their
 * own: events of this machine do not reach them, and theirs nobody else. False, with errno set,
 * without the right to do so.
 */
bool enterPrivateNetwork();

/**
 * Has the kernel broadcast an event to the listeners of the sender's network namespace. They see it
 * as coming from the kernel, with a string "SEQNUM=..." after the given ones.
 *
 * Needs root. The namespace is that of the thread that makes the sender.
 */
class UeventSender {
  public:
    UeventSender();

    /**
     * Sends the strings of one event, "action@devpath" first, then "KEY=value" each. The listeners
     * have it when this returns. False, with errno set, when the kernel refuses it.
     */
    bool send(const std::vector<std::string>& strings);

  private:
    android::base::unique_fd mSocket;
};

}  // namespace korvane::test
