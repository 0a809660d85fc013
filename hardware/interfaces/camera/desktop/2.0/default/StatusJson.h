// SPDX-License-Identifier: Apache-2.0
// The service's status as JSON, for programs.
#pragma once

#include <string>

#include "uvc/ServiceStats.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Writes one JSON object in one line, less than 8 KiB. Takes no lock and asks nobody.
 *
 * Members: "pid"; "seconds" since the start; "node" with "path" and "state"; "mode" and "surface",
 * null when there is none; "buffers", who has each; "clients"; "stream" and "start", the counts
 * since then; "latency"; "events", oldest first. Members may be added, and none changes its
 * meaning.
 */
std::string statusJson(const ServiceStats& stats);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
