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
        case Arguments::HELP:
            fputs(korvane::ctl::helpText().c_str(), stdout);
            return korvane::ctl::READY;
        case Arguments::VERSION:
            printf("desktopctl %s\n", korvane::options::version().c_str());
            return korvane::ctl::READY;
        case Arguments::STATUS:
            return korvane::ctl::showStatus(arguments.json);
        case Arguments::WATCH:
            return korvane::ctl::watch(arguments.interval, arguments.screens);
        case Arguments::CLIENTS:
            return korvane::ctl::showClients();
        case Arguments::SEND:
            return korvane::ctl::sendText(arguments.kind, arguments.text);
        case Arguments::SUSPEND:
            return korvane::ctl::suspend(true);
        case Arguments::RESUME:
            return korvane::ctl::suspend(false);
        case Arguments::SNAPSHOT:
            return korvane::ctl::takeSnapshot(arguments.file);
        case Arguments::DUMP:
            return korvane::ctl::dumpTo(arguments.file, arguments.seconds);
        case Arguments::DOCTOR:
            return korvane::ctl::runDoctor(arguments.json);
    }
    return korvane::ctl::WRONG_USAGE;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words == std::vector<std::string>{"--version"}) {
        printf("desktopctl %s\n", korvane::options::version().c_str());
        return korvane::ctl::READY;
    }
    Arguments arguments;
    const std::string wrong = arguments.read(words);
    if (!wrong.empty()) {
        fprintf(stderr, "desktopctl: %s\n", wrong.c_str());
        return korvane::ctl::WRONG_USAGE;
    }
    return run(arguments);
}
