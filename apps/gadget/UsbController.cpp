// SPDX-License-Identifier: Apache-2.0
#include "UsbController.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "KernelFiles.h"
#include "WebcamFunction.h"

namespace korvane::gadget {
namespace {

constexpr char kControllers[] = "/sys/class/udc";
constexpr char kNodes[] = "/sys/class/video4linux";

std::string realPath(const std::string& path) {
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), free);
    return real ? real.get() : "";
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : " ") + name;
    return text.empty() ? "none" : text;
}

}  // namespace

std::vector<std::string> controllers() {
    return namesIn(kControllers);
}

std::string findController(const std::string& wanted, std::string* out) {
    const std::vector<std::string> names = controllers();
    if (!wanted.empty()) {
        *out = wanted;
        if (std::find(names.begin(), names.end(), wanted) != names.end()) return "";
        return "no device controller '" + wanted + "' (there is: " + joined(names) + ")";
    }
    if (names.empty()) return std::string("no device controller: ") + kControllers + " is empty";
    *out = names.front();
    if (names.size() == 1) return "";
    return "several device controllers, 'controller' (or UDC) must name one of: " + joined(names);
}

std::string gadgetOn(const std::string& controller) {
    for (const std::string& gadget : namesIn(kGadgets)) {
        if (readText(std::string(kGadgets) + "/" + gadget + "/UDC") == controller) return gadget;
    }
    return "";
}

std::string videoNodeOn(const std::string& controller) {
    if (controller.empty()) return "";
    // The node's parent is the controller's gadget, whose parent is the controller's parent.
    const std::string parent = realPath(std::string(kControllers) + "/" + controller + "/device");
    if (parent.empty()) return "";
    for (const std::string& node : namesIn(kNodes)) {
        const std::string device = realPath(std::string(kNodes) + "/" + node + "/device");
        if (device.rfind(parent + "/gadget", 0) == 0) return node;
    }
    return "";
}

}  // namespace korvane::gadget
