// SPDX-License-Identifier: Apache-2.0
// What the checking program is asked to do.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Capture.h"
#include "StripLayout.h"

namespace korvane::testcard {

/** The parsed command line of testcard-check. */
struct CheckOptions {
    std::string capture;
    std::optional<PixelFormat> format;
    std::optional<StripLayout> layout;
    std::string log;
    std::string times;         // empty: no receive times
    std::string contactSheet;  // empty: none wanted
    size_t maxLost = 0;
    bool codesOnly = false;  // check nothing, only show the frames' codes
    std::string help;        // if not empty: show this and check nothing

    /** Parses the arguments after the program's name; returns one line on what is wrong, or "". */
    std::string read(const std::vector<std::string>& arguments);
};

}  // namespace korvane::testcard
