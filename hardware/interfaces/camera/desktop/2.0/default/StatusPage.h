// SPDX-License-Identifier: Apache-2.0
// The service's status as a page of text, for people.
#pragma once

#include <string>

#include "uvc/ServiceStats.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Writes what there is, who is there and what has happened, some forty lines and less than 8 KiB.
 * Takes no lock and asks nobody.
 */
std::string statusPage(const ServiceStats& stats);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
