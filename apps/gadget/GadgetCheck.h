// SPDX-License-Identifier: Apache-2.0
// Looks for what would keep a webcam from working, before anything is made.
#pragma once

#include <string>
#include <vector>

#include "GadgetSettings.h"

namespace korvane::gadget {

/** What the settings ask of the bus that it can't carry; one line each. */
std::vector<std::string> checkBus(const GadgetSettings& settings);

/** What this machine lacks: controller, kernel modules, the binder device; one line each. */
std::vector<std::string> checkMachine(const GadgetSettings& settings);

}  // namespace korvane::gadget
