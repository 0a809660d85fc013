// SPDX-License-Identifier: Apache-2.0
// What the camera is asked to do.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "GstreamerPipeline.h"

namespace korvane::camera {

/** The parsed command line of desktop-camera. */
struct CameraOptions {
    enum class Source { CARD, AUTO, PIPELINE };

    Source source = Source::CARD;
    std::string pipeline;  // for Source::PIPELINE, as given
    Turn turn;
    std::string privacy;  // the path of a file; empty: none
    std::string onStart;  // commands of the shell; empty: none
    std::string onStop;
    bool list = false;  // list the cameras and do nothing else
    bool asLauncher = false;
    bool asStreamClient = true;
    std::string log;                  // empty: no log of the frames
    uint32_t lastFrame = UINT32_MAX;  // the number of the last frame to be queued
    std::string help;                 // if not empty: show this and do nothing else

    /** Reads the arguments after the program's name; returns one line on what is wrong, or "". */
    std::string read(const std::vector<std::string>& arguments);
};

}  // namespace korvane::camera
