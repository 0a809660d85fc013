// SPDX-License-Identifier: Apache-2.0
// The webcam as the kernel's gadget framework has it, in configfs.
#pragma once

#include <string>

#include "GadgetSettings.h"

namespace korvane::gadget {

constexpr char kConfigfs[] = "/config";
constexpr char kGadgets[] = "/config/usb_gadget";
/** The gadget whose function the service reads. */
constexpr char kGadget[] = "/config/usb_gadget/g1";
constexpr char kFunction[] = "/config/usb_gadget/g1/functions/uvc.0";

/**
 * Makes, binds and removes the gadget. Needs root, but for status(). Each call returns an empty
 * text, or one line that says what failed.
 */
class WebcamFunction {
  public:
    /** Loads the kernel's gadget framework and mounts configfs, where that is not done yet. */
    static std::string prepare();

    static bool made();
    /** The controller that it is bound to; empty if to none. */
    static std::string boundTo();

    /** Makes the gadget; what fails half-way is removed again. */
    static std::string make(const GadgetSettings& settings);
    static std::string bind(const std::string& controller);
    /** Waits until no program has the node open. */
    static std::string unbind();
    /** Removes the gadget, which is not bound. */
    static std::string remove();

    /** What there is, in lines: formats and frames as the host numbers them. */
    static std::string status(std::string* text);
};

}  // namespace korvane::gadget
