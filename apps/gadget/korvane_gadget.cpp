// SPDX-License-Identifier: Apache-2.0
// korvane-gadget: makes this machine a USB webcam, with the function that the service reads, and
// keeps it one.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

#include "GadgetCheck.h"
#include "GadgetLock.h"
#include "GadgetSettings.h"
#include "Keeper.h"
#include "KernelFiles.h"
#include "UsbController.h"
#include "WebcamFunction.h"
#include "options/Options.h"

namespace korvane::gadget {
namespace {

constexpr char kHelp[] =
        R"(usage: korvane-gadget COMMAND [OPTION...]
Makes this machine (a board with a USB device port) a USB webcam, and keeps it one. As root, but for
check and status.

  up          build the device and bind it: plug it in
  down        unbind and remove it
  reload      down and up with settings that have changed; if they are wrong, nothing happens
  bind        plug it in
  unbind      unplug it; waits until no program has the node open
  status      the controller and its state, the formats and sizes
  check       say in one line each what would keep it from working
  keep        bind it again whenever nobody serves it any more, until ended by a signal

Options of up, reload, check and keep:
  --config FILE       settings instead of those in /etc/korvane/gadget.conf
  --format FORMAT:WxH@RATE,...
                      a size, instead of those of the settings; once for each. FORMAT is yuyv or
                      nv12 (one of them: they share a place) or mjpeg. By default: yuyv 640x480 at
                      30 and 15 frames a second, 1280x720 at 10 and 5; mjpeg 640x480, 1280x720 and
                      1920x1080 at 30
  --nv12              NV12 instead of YUYV in the default list
  --maxpacket N       bytes in 125 us: 1 to 1024, or 2048 or 3072 (default 3072, 24.6 MB/s)
  --acm               a serial port before the camera, as another function of the same device
  --no-bind           only build it
  --help, --version

UDC in the environment names the device controller, where /sys/class/udc has several.
)";
constexpr char kCommands[] = "up down reload bind unbind status check keep help";
constexpr char kOptions[] = "--config --format --nv12 --maxpacket --acm --no-bind";

/** The parsed command line and settings file. */
struct Orders {
    std::string command;
    GadgetSettings settings;
    bool binding = true;
    std::vector<std::string> options;

    std::string read(const std::vector<std::string>& arguments);

  private:
    std::string readFile();
    std::string readOption(size_t* index);
};

int refuse(const std::string& why) {
    fprintf(stderr, "korvane-gadget: %s\n", why.c_str());
    return 1;
}

bool takesOptions(const std::string& command) {
    return command == "up" || command == "reload" || command == "check" || command == "keep";
}

std::string Orders::read(const std::vector<std::string>& arguments) {
    command = arguments.empty() ? "" : arguments[0];
    if ((" " + std::string(kCommands) + " ").find(" " + command + " ") == std::string::npos ||
        command.empty()) {
        return "unknown command '" + command + "' (known: " + kCommands + ")";
    }
    options.assign(arguments.begin() + 1, arguments.end());
    if (!options.empty() && !takesOptions(command)) {
        return command + " takes no arguments, but got: " + options[0];
    }
    if (!takesOptions(command)) return command == "bind" ? readFile() : "";
    std::string wrong = readFile();
    bool ownFormats = false;
    for (size_t i = 0; wrong.empty() && i < options.size(); ++i) {
        if (options[i] == "--format" && !ownFormats) settings.clearFormats();
        ownFormats |= options[i] == "--format";
        wrong = readOption(&i);
    }
    return wrong.empty() ? settings.finish() : wrong;
}

// The file that was named, or the usual one if it exists.
std::string Orders::readFile() {
    for (size_t i = 0; i + 1 < options.size(); ++i) {
        if (options[i] == "--config") return settings.readFile(options[i + 1]);
    }
    return exists(GadgetSettings::kFile) ? settings.readFile(GadgetSettings::kFile) : "";
}

std::string Orders::readOption(size_t* index) {
    const std::string& option = options[*index];
    if (option == "--nv12") {
        settings.preferNv12();
    } else if (option == "--acm") {
        settings.serialPort = true;
    } else if (option == "--no-bind") {
        binding = false;
    } else if (option == "--format" || option == "--maxpacket" || option == "--config") {
        const char* needed = option == "--format"   ? "FORMAT:WxH@RATE,..."
                             : option == "--config" ? "FILE"
                                                    : "a number of bytes";
        if (++*index >= options.size()) return option + " needs " + needed;
        if (option == "--config") return "";
        if (option == "--format") return settings.addFormat(options[*index]);
        const std::string wrong = settings.setMaxPacket(options[*index]);
        return wrong.empty() ? "" : "--maxpacket " + wrong;
    } else {
        return "unknown option '" + option + "' (known: " + kOptions + ")";
    }
    return "";
}

std::string wantedController(const GadgetSettings& settings) {
    const char* wanted = getenv("UDC");
    return wanted != nullptr ? wanted : settings.controller;
}

std::string needGadget() {
    if (WebcamFunction::made()) return "";
    return std::string("there is no ") + kGadget + " (korvane-gadget up makes it)";
}

std::string bindTo(const std::string& wanted) {
    const std::string bound = WebcamFunction::boundTo();
    if (!bound.empty()) return "already bound to " + bound;
    std::string controller;
    const std::string error = findController(wanted, &controller);
    return error.empty() ? WebcamFunction::bind(controller) : error;
}

std::string makeAndBind(const Orders& orders) {
    if (WebcamFunction::made()) {
        return std::string(kGadget) + " is there already (korvane-gadget down removes it)";
    }
    const std::string wanted = wantedController(orders.settings);
    std::string controller;
    std::string error = orders.binding ? findController(wanted, &controller) : "";
    if (error.empty()) error = WebcamFunction::make(orders.settings);
    if (!error.empty() || !orders.binding) return error;
    error = WebcamFunction::bind(controller);
    if (!error.empty()) WebcamFunction::remove();
    return error;
}

std::string takeDown() {
    std::string error;
    if (!WebcamFunction::boundTo().empty()) error = WebcamFunction::unbind();
    return error.empty() ? WebcamFunction::remove() : error;
}

std::string up(const Orders& orders) {
    std::string error = WebcamFunction::prepare();
    if (!error.empty()) return error;
    const GadgetLock lock;
    return makeAndBind(orders);
}

std::string down() {
    const GadgetLock lock;
    const std::string error = needGadget();
    return error.empty() ? takeDown() : error;
}

std::string reload(const Orders& orders) {
    std::string error = WebcamFunction::prepare();
    if (!error.empty()) return error;
    const GadgetLock lock;
    if (WebcamFunction::made()) error = takeDown();
    return error.empty() ? makeAndBind(orders) : error;
}

std::string bind(const Orders& orders) {
    const GadgetLock lock;
    const std::string error = needGadget();
    return error.empty() ? bindTo(wantedController(orders.settings)) : error;
}

std::string unbind() {
    const GadgetLock lock;
    std::string error = needGadget();
    if (!error.empty()) return error;
    return WebcamFunction::boundTo().empty() ? "not bound" : WebcamFunction::unbind();
}

int status() {
    std::string text;
    const std::string error = WebcamFunction::status(&text);
    if (!error.empty()) return refuse(error);
    fputs(text.c_str(), stdout);
    return 0;
}

int check(const Orders& orders) {
    GadgetSettings settings = orders.settings;
    settings.controller = wantedController(settings);
    std::vector<std::string> lines = checkBus(settings);
    for (const std::string& line : checkMachine(settings)) lines.push_back(line);
    for (const std::string& line : lines) refuse(line);
    return lines.empty() ? 0 : 1;
}

// The settings may change while it runs; invalid ones are ignored until they are fixed.
std::string keep(const std::vector<std::string>& arguments, const Orders& orders) {
    std::string wanted = wantedController(orders.settings);
    return Keeper([&arguments, &wanted] {
               Orders now;
               if (now.read(arguments).empty()) wanted = wantedController(now.settings);
               return wanted;
           })
            .run();
}

std::string change(const std::vector<std::string>& arguments, const Orders& orders) {
    if (geteuid() != 0) return "only root can do this";
    if (orders.command == "up") return up(orders);
    if (orders.command == "down") return down();
    if (orders.command == "reload") return reload(orders);
    if (orders.command == "bind") return bind(orders);
    if (orders.command == "unbind") return unbind();
    return keep(arguments, orders);
}

bool asksFor(const std::vector<std::string>& arguments, const std::string& option) {
    for (const std::string& argument : arguments) {
        if (argument == option) return true;
    }
    return false;
}

int run(const std::vector<std::string>& arguments) {
    if (asksFor(arguments, "--version")) {
        printf("korvane-gadget %s\n", options::version().c_str());
        return 0;
    }
    if (asksFor(arguments, "--help")) return fputs(kHelp, stdout) < 0;
    Orders orders;
    const std::string wrong = orders.read(arguments);
    if (!wrong.empty()) return refuse(wrong);
    if (orders.command == "help") return fputs(kHelp, stdout) < 0;
    if (orders.command == "status") return status();
    if (orders.command == "check") return check(orders);
    const std::string error = change(arguments, orders);
    return error.empty() ? 0 : refuse(error);
}

}  // namespace
}  // namespace korvane::gadget

int main(int argc, char** argv) {
    return korvane::gadget::run({argv + 1, argv + argc});
}
