// SPDX-License-Identifier: Apache-2.0
// What the service answers to those who debug it.
#pragma once

#include <string>

#include <cutils/native_handle.h>
#include <hidl/HidlSupport.h>

#include "uvc/UvcGadgetHandler.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Carries out one call of debug() and writes its answer to the first descriptor of the handle.
 *
 * Options: none shows the status as a page, "--json" for programs; "--dump-frames" has every frame
 * of the stream written to the handle's second descriptor; "--end-dump" ends that, and so does the
 * end of the stream. Anything else is answered with a line about each.
 *
 * The status takes no lock, the dump takes the device's, as "get-stream-config" does. Whoever
 * calls can't hold the service up: an answer (less than 8 KiB) goes to a pipe or socket as far as
 * it takes it at once, or to a file; frames go to a file only.
 */
class DebugCommand {
  public:
    explicit DebugCommand(UvcGadgetHandler& controller) : mController(controller) {}

    void run(const native_handle_t* handle,
             const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options);

  private:
    std::string answer(const native_handle_t* handle, const std::string& option);
    std::string dumpFrames(const native_handle_t* handle);
    std::string endDump();

    UvcGadgetHandler& mController;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
