// SPDX-License-Identifier: Apache-2.0
// The JSON texts that the camera exchanges with the webcam controller.
#pragma once

#include <cstdint>
#include <string>

#include "PictureFormat.h"

namespace korvane::camera {

/** What a command from the controller to its clients means for the camera. */
enum class Event {
    NONE,   // nothing that concerns it
    START,  // a host wants pictures: {"event":"stream-start"} or {"webcam-start":true}
    STOP,   // it wants no more: {"event":"stream-stop"}
};

/** Whether a command asks for the camera's status: {"get-camera-status":...}. */
bool asksForStatus(const std::string& command);

/** Parses a command; NONE for anything it doesn't understand. */
Event eventFrom(const std::string& command);

/** Asks for the format of the stream that the host has started. */
extern const char kGetStreamConfig[];

/**
 * Parses the reply to kGetStreamConfig. False if it isn't a configuration (the controller answers
 * in plain text when it has none) or is one without pictures.
 */
bool streamConfigFrom(const std::string& reply, PictureFormat* format);

/** Asks for a surface; the reply is empty if it was created, otherwise it says why not. */
std::string createSurfaceCommand(const PictureFormat& format, uint32_t consumerUsage);

}  // namespace korvane::camera
