// SPDX-License-Identifier: Apache-2.0
// The service's status as a page of text, for people.
#pragma once

#include <string>

#include "uvc/ServiceStats.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Writes the state of node, stream and clients and what has happened: some forty lines, less than
 * 8 KiB. Takes no lock and asks nobody.
 */
std::string statusPage(const ServiceStats& stats);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
