// SPDX-License-Identifier: Apache-2.0
// The USB device controllers of this machine, and what is attached to one.
#pragma once

#include <string>
#include <vector>

namespace korvane::gadget {

/** The controllers, by name. */
std::vector<std::string> controllers();

/**
 * The controller to use: `wanted`, or the only one if that is empty.
 *
 * @return an empty text, or one line that says why there is none
 */
std::string findController(const std::string& wanted, std::string* out);

/** The name in configfs of the gadget that is bound to a controller; empty if none is. */
std::string gadgetOn(const std::string& controller);

/** The video node of the webcam function on a controller, like "video2"; empty if there is none. */
std::string videoNodeOn(const std::string& controller);

}  // namespace korvane::gadget
