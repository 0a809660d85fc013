// SPDX-License-Identifier: Apache-2.0
// What the camera is asked to do.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::camera {

/** The command line of desktop-camera, understood. */
struct CameraOptions {
    std::string source;  // a GStreamer pipeline; empty for the test card
    bool asLauncher = false;
    bool asStreamClient = true;
    std::string log;                  // empty: no log of the frames
    uint32_t lastFrame = UINT32_MAX;  // the number of the last frame to be queued
    std::string help;                 // not empty: this is to be shown, and nothing else done

    /** Reads the arguments behind the program's name; returns one line on what is wrong, or "". */
    std::string read(const std::vector<std::string>& arguments);

  private:
    std::string readSettings(const std::string& path);
};

}  // namespace korvane::camera
