// SPDX-License-Identifier: Apache-2.0
// Keeps those who change the gadget from getting in each other's way.
#pragma once

#include <fcntl.h>
#include <sys/file.h>

#include "Descriptor.h"
#include "WebcamFunction.h"

namespace korvane::gadget {

/** While it exists, nobody else who asks for it changes the gadget. Waits; needs configfs. */
class GadgetLock {
  public:
    GadgetLock() : mFolder(open(kGadgets, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (mFolder.valid()) flock(mFolder.get(), LOCK_EX);
    }

  private:
    Descriptor mFolder;
};

}  // namespace korvane::gadget
