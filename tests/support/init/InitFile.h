// SPDX-License-Identifier: Apache-2.0
// A file of the phone's init, parsed: actions with their commands, services with their options.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/init/InitTokenizer.h"

namespace korvane::test {

/** "on EVENT && property:NAME=VALUE ...", and the commands below it. */
struct InitAction {
    int number = 0;     // of its line
    std::string event;  // empty if there are only properties
    std::vector<std::pair<std::string, std::string>> properties;
    std::vector<InitLine> commands;
};

/** "service NAME PROGRAM [ARGUMENT...]", and the options below it. */
struct InitService {
    std::string name;
    std::vector<std::string> program;  // with its arguments
    std::vector<InitLine> options;
};

struct InitFile {
    std::vector<InitAction> actions;
    std::vector<InitService> services;
};

/**
 * Parses a file. Knows the commands and options that ours use, with the number and the form of
 * their arguments; anything else is an InitError, so that no slip goes unnoticed.
 */
InitFile parseInit(const std::string& text);

}  // namespace korvane::test
