// SPDX-License-Identifier: Apache-2.0
// What the machine must have, before any function is made: binder, a controller, configfs; and the
// node that comes of it.
#pragma once

#include <optional>
#include <string>

#include "Finding.h"

namespace korvane::ctl {

Findings checkBinder();

/** The device controller, and configfs with the modules behind it. */
Findings checkGadgetSupport();

/** The gadget's node: that there is one, that it opens, that the service's scan comes to it. */
Findings checkNode();

/** Whether the host has taken the device, as the controller `udc` says. */
Findings checkHost(const std::string& udc);

}  // namespace korvane::ctl
