// SPDX-License-Identifier: Apache-2.0
// Reads a file of the phone's init and says what is in it, or does what it says.
//
// init_rc services FILE: prints each service: "service NAME PROGRAM", then its options, one per
// line.
//
// init_rc run FILE STEP...: raises an event for each STEP, or sets a property if it has the form
// NAME=VALUE; prints how many commands each step ran, and at the end the properties named by STEPs
// of the form "?NAME".
//
// FILE may be - for standard input. Exit status: 0; 1 if something in the file is wrong or can't be
// done, with one line on stderr; 2 for wrong arguments.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "support/init/InitFile.h"
#include "support/init/InitRunner.h"

namespace {

using korvane::test::InitAction;
using korvane::test::InitFile;
using korvane::test::InitLine;
using korvane::test::InitRunner;
using korvane::test::InitService;

std::string read(const std::string& path) {
    std::ostringstream text;
    if (path == "-") {
        text << std::cin.rdbuf();
        return text.str();
    }
    const std::ifstream file(path);
    if (!file) throw std::runtime_error("can't be opened");
    text << file.rdbuf();
    return text.str();
}

void print(const std::vector<std::string>& words) {
    for (size_t i = 0; i < words.size(); ++i) {
        std::cout << (i > 0 ? " " : "") << words[i];
    }
    std::cout << '\n';
}

void show(const InitFile& file) {
    for (const InitAction& action : file.actions) {
        std::cout << "on" << (action.event.empty() ? "" : " ") << action.event;
        for (const auto& [name, value] : action.properties) {
            std::cout << ' ' << name << '=' << value;
        }
        std::cout << '\n';
    }
    for (const InitService& service : file.services) {
        std::cout << "service " << service.name << ' ';
        print(service.program);
        for (const InitLine& option : service.options) {
            print(option.words);
        }
    }
}

void runStep(const std::string& step, InitRunner* runner) {
    const size_t equals = step.find('=');
    const size_t before = runner->ran().size();
    if (step.front() == '?') {
        std::cout << step.substr(1) << ": " << runner->property(step.substr(1)) << '\n';
        return;
    }
    if (equals == std::string::npos) {
        runner->raise(step);
    } else {
        runner->setProperty(step.substr(0, equals), step.substr(equals + 1));
    }
    std::cout << step << ": " << runner->ran().size() - before << " commands\n";
}

int fail(const std::string& what) {
    std::cerr << "init_rc: " << what << '\n';
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool showing = arguments.size() == 2 && arguments[0] == "show";
    const bool run = arguments.size() > 2 && arguments[0] == "run" &&
                     std::find(arguments.begin(), arguments.end(), "") == arguments.end();
    if (!showing && !run) {
        std::cerr << "init_rc: show FILE, or run FILE STEP...\n";
        return 2;
    }
    try {
        const InitFile file = korvane::test::parseInit(read(arguments[1]));
        if (showing) show(file);
        InitRunner runner(file);
        for (size_t i = 2; i < arguments.size(); ++i) {
            runStep(arguments[i], &runner);
        }
    } catch (const std::exception& error) {
        return fail(arguments[1] + ": " + error.what());
    }
    return 0;
}
