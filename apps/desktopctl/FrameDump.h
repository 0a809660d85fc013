// SPDX-License-Identifier: Apache-2.0
// The frames of a running stream, as the device puts them into the node's buffers.
#pragma once

#include <functional>
#include <string>

#include "Service.h"

namespace korvane::ctl {

/**
 * Has the service write the stream's frames to a file until `enough`, which is called about forty
 * times a second with the number of frames so far, returns true. Returns an empty text, or what
 * went wrong. Without a stream there are no frames to write; a stream that ends also ends the dump.
 */
std::string dumpFrames(const Service& service, int file,
                       const std::function<bool(uint64_t frames)>& enough, uint64_t* frames);

}  // namespace korvane::ctl
