// SPDX-License-Identifier: Apache-2.0
// The cameras that the kernel knows of.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace korvane::camera {

/** A video4linux node and what it is to the webcam. */
struct CaptureDevice {
    enum class Kind {
        CAMERA,
        GADGET,    // the webcam itself: its gadget's node, or its other end on this machine
        OTHER,     // no source of pictures: outputs, codecs, metadata
        UNUSABLE,  // can't be queried
    };

    std::string path;    // like /dev/video0
    std::string driver;  // as the device reports it, like the name; both empty for UNUSABLE
    std::string name;
    Kind kind = Kind::UNUSABLE;
};

/**
 * All nodes, in the order of their numbers. Looks afresh each time, and opens every one but the
 * gadget's.
 */
std::vector<CaptureDevice> captureDevices();

/** The one that `--source auto` picks: the first camera. */
std::optional<CaptureDevice> firstCamera(const std::vector<CaptureDevice>& devices);

/** The list for people: a line for each, or one that says there is no camera. */
std::string textOf(const std::vector<CaptureDevice>& devices);

}  // namespace korvane::camera
