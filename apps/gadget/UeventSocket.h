// SPDX-License-Identifier: Apache-2.0
// The kernel's messages about devices that come, go and change.
#pragma once

#include "Descriptor.h"

namespace korvane::gadget {

/** Hears the kernel itself, not udev. */
class UeventSocket {
  public:
    UeventSocket();

    bool valid() const { return mSocket.valid(); }
    /** Readable when a message has come. */
    int fd() const { return mSocket.get(); }

    /**
     * Takes the messages that have come.
     *
     * @return whether one may be about a controller or a video node
     */
    bool drain();

  private:
    Descriptor mSocket;
};

}  // namespace korvane::gadget
