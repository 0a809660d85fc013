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

/** The command line of testcard-check, understood. */
struct CheckOptions {
    std::string capture;
    std::optional<PixelFormat> format;
    std::optional<StripLayout> layout;
    std::string log;
    std::string times;         // empty: no receive times
    std::string contactSheet;  // empty: none wanted
    size_t maxLost = 0;
    bool codesOnly = false;  // nothing is to be checked, only the frames' codes shown
    std::string help;        // not empty: nothing is to be checked, this is to be shown

    /** Reads the arguments after the program's name; returns one line on what is wrong, or "". */
    std::string read(const std::vector<std::string>& arguments);
};

}  // namespace korvane::testcard
