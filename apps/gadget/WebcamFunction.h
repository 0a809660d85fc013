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
 * Makes, binds and removes the gadget. Needs root, except for status(). Each call returns an empty
 * text, or one line that says what failed.
 */
class WebcamFunction {
  public:
    /** Loads the kernel's gadget framework and mounts configfs, unless that has been done. */
    static std::string prepare();

    static bool made();
    /** The controller that it is bound to; empty if none. */
    static std::string boundTo();

    /** Makes the gadget; if that fails half-way, what was made is removed again. */
    static std::string make(const GadgetSettings& settings);
    static std::string bind(const std::string& controller);
    /** Waits until no program has the node open. */
    static std::string unbind();
    /** Removes the gadget, which must not be bound. */
    static std::string remove();

    /** What exists, in lines: formats and frames as the host numbers them. */
    static std::string status(std::string* text);
};

}  // namespace korvane::gadget
