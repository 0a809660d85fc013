// SPDX-License-Identifier: Apache-2.0
#include "Arguments.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "options/Options.h"

namespace korvane::ctl {
namespace {

struct Known {
    const char* name;
    Arguments::Command command;
    size_t operands;
    const char* usage;
};

constexpr Known kCommands[] = {
        {"status", Arguments::STATUS, 0, "status [--json]"},
        {"watch", Arguments::WATCH, 0, "watch [--interval SECONDS] [--count N]"},
        {"clients", Arguments::CLIENTS, 0, "clients"},
        {"send", Arguments::SEND, 2, "send KIND TEXT"},
        {"suspend", Arguments::SUSPEND, 0, "suspend"},
        {"resume", Arguments::RESUME, 0, "resume"},
        {"snapshot", Arguments::SNAPSHOT, 1, "snapshot FILE.png|FILE.jpg"},
        {"dump", Arguments::DUMP, 1, "dump FILE [--seconds N]"},
        {"doctor", Arguments::DOCTOR, 0, "doctor [--json]"},
};

const Known* find(const std::string& name) {
    const auto found = std::find_if(std::begin(kCommands), std::end(kCommands),
                                    [&name](const Known& known) { return known.name == name; });
    return found == std::end(kCommands) ? nullptr : found;
}

bool positive(const std::string& text, double* out) {
    char* end = nullptr;
    const double number = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(number) || number <= 0) return false;
    *out = number;
    return number <= 86400;
}

bool hasOption(Arguments::Command command, const std::string& name) {
    if (name == "--json") return command == Arguments::STATUS || command == Arguments::DOCTOR;
    if (name == "--seconds") return command == Arguments::DUMP;
    return (name == "--interval" || name == "--count") && command == Arguments::WATCH;
}

std::string usageOf(const Known& known) {
    return std::string("usage: desktopctl ") + known.usage;
}

// Each step of parsing takes its part, and returns what is wrong with it or an empty text.

std::string takeNumber(const std::string& name, const std::string& value, Arguments* out) {
    unsigned long count = 0;
    const bool read = name == "--count" ? options::numberFrom(value, 1, 1000000, &count)
                                        : positive(value, name == "--seconds" ? &out->seconds
                                                                              : &out->interval);
    if (!read) return name + " is '" + value + "', but a number above 0 is needed";
    if (name == "--count") out->screens = static_cast<unsigned>(count);
    return "";
}

// Takes a command's options, and sorts out its operands.
std::string takeOptions(const Known& known, const std::vector<std::string>& arguments,
                        Arguments* out, std::vector<std::string>* operands) {
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        // A text may begin with a dash, and so may the file after it.
        if (operands->size() < known.operands && argument.rfind("--", 0) != 0) {
            operands->push_back(argument);
        } else if (!hasOption(known.command, argument)) {  // NOLINT(bugprone-branch-clone)
            return usageOf(known);
        } else if (argument == "--json") {
            out->json = true;
        } else if (++i == arguments.size()) {
            return usageOf(known);
        } else {
            std::string wrong = takeNumber(argument, arguments[i], out);
            if (!wrong.empty()) return wrong;
        }
    }
    return operands->size() == known.operands ? "" : usageOf(known);
}

std::string takeOperands(const Known& known, const std::vector<std::string>& operands,
                         Arguments* out) {
    if (known.command == Arguments::SEND) {
        unsigned long number = 0;
        if (!options::numberFrom(operands[0], 0, 7, &number)) {
            return "KIND is '" + operands[0] + "', but a number from 0 to 7 is needed";
        }
        out->kind = static_cast<unsigned>(number);
        out->text = operands[1];
    } else if (known.operands == 1) {
        out->file = operands[0];
    }
    return "";
}

}  // namespace

std::string Arguments::read(const std::vector<std::string>& arguments) {
    if (std::find(arguments.begin(), arguments.end(), "--help") != arguments.end()) return "";
    if (arguments == std::vector<std::string>{"--version"}) {
        command = VERSION;
        return "";
    }
    if (arguments.empty()) return "which command? 'desktopctl --help' lists them";
    const Known* known = find(arguments[0]);
    if (known == nullptr) {
        return "unknown command '" + arguments[0] + "'; 'desktopctl --help' lists them";
    }
    std::vector<std::string> operands;
    std::string wrong = takeOptions(*known, arguments, this, &operands);
    if (wrong.empty()) wrong = takeOperands(*known, operands, this);
    if (wrong.empty()) command = known->command;
    return wrong;
}

std::string helpText() {
    return "usage: desktopctl COMMAND\n"
           "Shows what the desktop-camera service does, and finds what is wrong.\n"
           "\n"
           "  status [--json]           the node, the stream, the clients, the counts\n"
           "  watch [--interval SECONDS] [--count N]\n"
           "                            the same live: frames, rates, drops, latency\n"
           "  clients                   who is connected, by kind, process and time\n"
           "  send KIND TEXT            a text to the client of a kind (0 to 7); its reply\n"
           "  suspend, resume           hold the picture, let it move again\n"
           "  snapshot FILE.png|.jpg    the next frame as the host gets it\n"
           "  dump FILE [--seconds N]   the bytes of every frame, for 10 seconds\n"
           "  doctor [--json]           look at everything that a picture needs; needs no service\n"
           "  --help, --version         this text, the version\n"
           "\n"
           "Exit status: 0 streaming or ready, 1 it could not be done, 2 wrong usage,\n"
           "3 the service is not running, 4 it has no node, 5 no camera is connected.\n"
           "doctor: 0 when all is right, else 1.\n";
}

}  // namespace korvane::ctl
