// SPDX-License-Identifier: Apache-2.0
// The cameras that the kernel knows.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace korvane::camera {

/** A video4linux node and what it is to the webcam. */
struct CaptureDevice {
    enum class Kind {
        kCamera,
        kGadget,    // the webcam itself: its gadget's node, or its other end on this machine
        kOther,     // gives no pictures: outputs, codecs, metadata
        kUnusable,  // cannot be asked
    };

    std::string path;    // like /dev/video0
    std::string driver;  // by its own word, as the name; both empty where it cannot be asked
    std::string name;
    Kind kind = Kind::kUnusable;
};

/** Every node, in the order of their numbers. Looks anew each time, and opens each but the
 * gadget's. */
std::vector<CaptureDevice> captureDevices();

/** The one that `--source auto` takes: the first camera. */
std::optional<CaptureDevice> firstCamera(const std::vector<CaptureDevice>& devices);

/** The list for people: a line for each, and one that says so if there is no camera. */
std::string textOf(const std::vector<CaptureDevice>& devices);

}  // namespace korvane::camera
