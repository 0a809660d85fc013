// SPDX-License-Identifier: Apache-2.0
// Raises kernel events without anything having happened.
#pragma once

#include <string>
#include <vector>

#include <android-base/unique_fd.h>

namespace korvane::test {

/**
 * Moves the calling thread, and those it starts from then on, into a network namespace of its own:
 * this machine's events don't reach them, and theirs reach nobody else. False, with errno set,
 * without the right to do so.
 */
bool enterPrivateNetwork();

/**
 * Has the kernel broadcast an event to the listeners in the sender's network namespace. To them it
 * comes from the kernel, with a string "SEQNUM=..." after the given ones.
 *
 * Needs root. The namespace is that of the thread that creates the sender.
 */
class UeventSender {
  public:
    UeventSender();

    /**
     * Sends the strings of one event, "action@devpath" first, then one "KEY=value" each. The
     * listeners have it when this returns. False, with errno set, if the kernel refuses it.
     */
    bool send(const std::vector<std::string>& strings);

  private:
    android::base::unique_fd mSocket;
};

}  // namespace korvane::test
