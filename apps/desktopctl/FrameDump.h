// SPDX-License-Identifier: Apache-2.0
// The frames of a running stream, as the device puts them into the node's buffers.
#pragma once

#include <functional>
#include <string>

#include "Service.h"

namespace korvane::ctl {

/**
 * Has the service write the stream's frames to a file until `enough` says so, which is asked about
 * forty times a second with the number of frames so far. Returns an empty text, or what was wrong.
 * Without a stream there is none to write; a stream that ends ends the dump.
 */
std::string dumpFrames(const Service& service, int file,
                       const std::function<bool(uint64_t frames)>& enough, uint64_t* frames);

}  // namespace korvane::ctl
