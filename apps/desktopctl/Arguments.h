// SPDX-License-Identifier: Apache-2.0
// The command line of desktopctl.
#pragma once

#include <string>
#include <vector>

namespace korvane::ctl {

struct Arguments {
    enum Command {
        HELP,
        VERSION,
        STATUS,
        WATCH,
        CLIENTS,
        SEND,
        SUSPEND,
        RESUME,
        SNAPSHOT,
        DUMP,
        DOCTOR
    };

    Command command = HELP;
    bool json = false;
    unsigned kind = 0;
    std::string text;
    std::string file;
    double seconds = 10;
    double interval = 1;
    unsigned screens = 0;

    /** Parses the arguments after the program's name: an empty text, or what is wrong with them. */
    std::string read(const std::vector<std::string>& arguments);
};

/** The text for --help: one screen. */
std::string helpText();

}  // namespace korvane::ctl
