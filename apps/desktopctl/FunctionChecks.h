// SPDX-License-Identifier: Apache-2.0
// The webcam function in configfs: what the service can't read, and what the host would count in
// another order than the service.
#pragma once

#include <string>

#include "Finding.h"

namespace korvane::ctl {

/**
 * Everything about /config/usb_gadget/g1, for a kernel of this release ("6.1.0-18-amd64"); `udc`
 * becomes what the function is bound to.
 */
Findings checkFunction(const std::string& release, std::string* udc);

}  // namespace korvane::ctl
