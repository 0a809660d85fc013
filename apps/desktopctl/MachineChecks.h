// SPDX-License-Identifier: Apache-2.0
// What the machine must have before any function is made: binder, a controller, configfs; and the
// node that results.
#pragma once

#include <optional>
#include <string>

#include "Finding.h"

namespace korvane::ctl {

Findings checkBinder();

/** The device controller, and configfs with the modules it needs. */
Findings checkGadgetSupport();

/** The gadget's node: that there is one, that it opens, that the service's scan reaches it. */
Findings checkNode();

/** Whether the host has accepted the device, according to the controller `udc`. */
Findings checkHost(const std::string& udc);

}  // namespace korvane::ctl
