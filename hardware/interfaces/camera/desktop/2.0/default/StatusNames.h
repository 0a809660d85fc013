// SPDX-License-Identifier: Apache-2.0
// What the service's states, counts and events are called, for people and programs alike.
#pragma once

#include <cstddef>
#include <string>

#include "uvc/ServiceStats.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** Lower case, words joined by hyphens: keys of the status as JSON. Names never change. */
const char* nameOf(Count count);
const char* nameOf(NodeState state);
/** Who has the buffer: "service" while it waits for a frame, "driver" until it was sent. */
const char* nameOf(BufferState state);
const char* nameOf(Event event);
const char* nameOfKind(size_t kind);

/** The path of the gadget's node, empty without one. */
std::string nodePath(const ServiceStats& stats);

/** A V4L2 pixel format as text, with '?' for what can't be printed; empty for 0. */
std::string formatName(uint32_t format);

/** The rate, and 0 for what is no number. */
double finite(float fps);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
