// SPDX-License-Identifier: Apache-2.0
// The webcam function in configfs: what the service can't read, and what the host would number in a
// different order from the service.
#pragma once

#include <string>

#include "Finding.h"

namespace korvane::ctl {

/**
 * All checks of /config/usb_gadget/g1, for a kernel of this release ("6.1.0-18-amd64"); sets `udc`
 * to the controller that the function is bound to.
 */
Findings checkFunction(const std::string& release, std::string* udc);

}  // namespace korvane::ctl
