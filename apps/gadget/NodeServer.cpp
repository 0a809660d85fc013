// SPDX-License-Identifier: Apache-2.0
#include "NodeServer.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>

#include "KernelFiles.h"

namespace korvane::gadget {
namespace {

constexpr unsigned long kExiting = 0x4;  // PF_EXITING in the flags of /proc/PID/stat

bool isNumber(const std::string& text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// "flags:\t0100002" of /proc/PID/fdinfo/N, in octal.
bool isForWriting(const std::string& fdinfo) {
    const size_t flags = fdinfo.find("flags:");
    if (flags == std::string::npos) return false;
    return (strtoul(fdinfo.c_str() + flags + 6, nullptr, 8) & O_ACCMODE) == O_RDWR;
}

bool serves(const std::string& process, dev_t device) {
    for (const std::string& fd : namesIn(process + "/fd")) {
        struct stat status = {};
        if (stat((process + "/fd/" + fd).c_str(), &status) != 0) continue;
        if (!S_ISCHR(status.st_mode) || status.st_rdev != device) continue;
        if (isForWriting(readText(process + "/fdinfo/" + fd))) return true;
    }
    return false;
}

}  // namespace

pid_t serverOf(const std::string& node) {
    struct stat status = {};
    if (node.empty() || stat(("/dev/" + node).c_str(), &status) != 0) return 0;
    for (const std::string& process : namesIn("/proc")) {
        if (!isNumber(process)) continue;
        if (serves("/proc/" + process, status.st_rdev)) return atoi(process.c_str());
    }
    return 0;
}

bool hasDied(pid_t process) {
    const std::string text = readText("/proc/" + std::to_string(process) + "/stat");
    // After the name, which may contain anything: state, five numbers, flags.
    const size_t name = text.rfind(')');
    if (name == std::string::npos) return true;
    std::istringstream fields(text.substr(name + 1));
    std::string state;
    long skipped = 0;
    unsigned long flags = 0;
    fields >> state >> skipped >> skipped >> skipped >> skipped >> skipped >> flags;
    return (flags & kExiting) != 0;
}

}  // namespace korvane::gadget
