// SPDX-License-Identifier: Apache-2.0
// The kernel's messages about devices that come, go and change.
#pragma once

#include "Descriptor.h"

namespace korvane::gadget {

/** Listens to the kernel itself, not to udev. */
class UeventSocket {
  public:
    UeventSocket();

    bool valid() const { return mSocket.valid(); }
    /** Readable once a message has arrived. */
    int fd() const { return mSocket.get(); }

    /**
     * Takes the messages that have arrived.
     *
     * @return whether any of them may concern a controller or a video node
     */
    bool drain();

  private:
    Descriptor mSocket;
};

}  // namespace korvane::gadget
