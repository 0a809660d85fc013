// SPDX-License-Identifier: Apache-2.0
// The command line for people who build on the desktop-camera service.

#include <cstdio>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Commands.h"
#include "Doctor.h"
#include "options/Options.h"

using korvane::ctl::Arguments;

namespace {

int run(const Arguments& arguments) {
    switch (arguments.command) {
        case Arguments::kHelp:
            fputs(korvane::ctl::helpText().c_str(), stdout);
            return korvane::ctl::kReady;
        case Arguments::kVersion:
            printf("desktopctl %s\n", korvane::options::version().c_str());
            return korvane::ctl::kReady;
        case Arguments::kStatus:
            return korvane::ctl::showStatus(arguments.json);
        case Arguments::kWatch:
            return korvane::ctl::watch(arguments.interval, arguments.screens);
        case Arguments::kClients:
            return korvane::ctl::showClients();
        case Arguments::kSend:
            return korvane::ctl::sendText(arguments.kind, arguments.text);
        case Arguments::kSuspend:
            return korvane::ctl::suspend(true);
        case Arguments::kResume:
            return korvane::ctl::suspend(false);
        case Arguments::kSnapshot:
            return korvane::ctl::takeSnapshot(arguments.file);
        case Arguments::kDump:
            return korvane::ctl::dumpTo(arguments.file, arguments.seconds);
        case Arguments::kDoctor:
            return korvane::ctl::runDoctor(arguments.json);
    }
    return korvane::ctl::kWrongUsage;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words == std::vector<std::string>{"--version"}) {
        printf("desktopctl %s\n", korvane::options::version().c_str());
        return korvane::ctl::kReady;
    }
    Arguments arguments;
    const std::string wrong = arguments.read(words);
    if (!wrong.empty()) {
        fprintf(stderr, "desktopctl: %s\n", wrong.c_str());
        return korvane::ctl::kWrongUsage;
    }
    return run(arguments);
}
