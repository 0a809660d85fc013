// SPDX-License-Identifier: Apache-2.0
#include "ServiceChecks.h"

#include <algorithm>
#include <cstdio>

#include "Attributes.h"

namespace korvane::ctl {
namespace {

constexpr char kService[] = "korvane.hardware.camera.desktop@2.0-service";
constexpr char kRestart[] = "systemctl restart korvane-desktop-camera; or start it by hand";
constexpr char kRebind[] = "korvane-gadget unbind; korvane-gadget bind";

bool runs(const std::string& program) {
    for (const std::string& pid : entriesOf("/proc")) {
        if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
        const std::string line = attribute("/proc/" + pid + "/cmdline");
        const std::string first = line.substr(0, line.find('\0'));
        if (first.substr(first.rfind('/') + 1) == program) return true;
    }
    return false;
}

Finding checkNodeOf(const Status& status) {
    if (status.nodeState == "none") {
        return wrong("service", "it has no node", kRebind);
    }
    if (status.nodeState == "unopened") {
        return wrong("service", "it could not open " + status.nodePath, kRebind);
    }
    if (status.nodeState == "closed") {
        return wrong("service", "the host has gone, and it has let go of " + status.nodePath,
                     kRebind);
    }
    return right("service", "it runs as process " + std::to_string(status.pid) + " and has " +
                                    status.nodePath);
}

Finding checkCamera(const Status& status) {
    for (const Client& client : status.clients) {
        if (client.name != "stream" && client.name != "launcher") continue;
        return right("camera", "process " + std::to_string(client.pid) + " is connected");
    }
    return wrong("camera", "none is connected",
                 "systemctl start korvane-camera; or desktop-camera");
}

uint64_t grown(const Status& status, const Status& later, const std::string& name) {
    const uint64_t before = status.ofStart(name);
    const uint64_t after = later.ofStart(name);
    return after > before ? after - before : 0;
}

// The reason why most frames were dropped in between.
std::string mostDropped(const Status& status, const Status& later) {
    std::string most;
    uint64_t count = 0;
    for (const auto& [name, total] : later.start) {
        (void)total;
        if (name.rfind("dropped-", 0) != 0 || grown(status, later, name) <= count) continue;
        most = name.substr(sizeof("dropped-") - 1);
        count = grown(status, later, name);
    }
    return most;
}

struct Cure {
    const char* reason;
    const char* mend;
};

constexpr Cure kCures[] = {
        {"rate", "the camera draws faster than the host has asked for; nothing to do"},
        {"backward", "give the camera's frames growing timestamps"},
        {"suspended", "desktopctl resume"},
        {"no-stream", "open the webcam at the host again"},
        {"too-large",
         "let the camera draw in the size that get-stream-config names, "
         "or JPEGs of lower quality"},
        {"unreadable",
         "the camera's buffers can't be read by the processor: "
         "set consumer-usage to 3"},
        {"refused",
         "dmesg says why the driver refuses; korvane-gadget unbind; korvane-gadget bind"},
};

std::string cureOf(const std::string& reason) {
    const auto cure = std::find_if(std::begin(kCures), std::end(kCures),
                                   [&reason](const Cure& one) { return one.reason == reason; });
    return cure == std::end(kCures) ? "desktopctl status" : cure->mend;
}

Finding nothingIsDrawn(const Status& later) {
    const bool waits = std::count(later.buffers.begin(), later.buffers.end(), "driver") ==
                       static_cast<long>(later.buffers.size());
    if (waits && !later.buffers.empty()) {
        return wrong("stream", "the driver has every buffer, and sends none",
                     "open the webcam at the host again; plug the cable out and in");
    }
    return wrong("stream", "the camera draws nothing",
                 "restart the camera; its log says what its source does");
}

Finding checkFrames(const Status& status, const Status& later, double seconds) {
    const uint64_t drawn = grown(status, later, "drawn");
    const uint64_t sent = grown(status, later, "sent");
    const uint64_t returned = grown(status, later, "returned");
    if (later.surface->suspended) {
        return wrong("stream", "the picture is held: it is suspended", "desktopctl resume");
    }
    if (drawn == 0 && sent == 0) return nothingIsDrawn(later);
    if (grown(status, later, "stale") * 2 > drawn) {
        return wrong("stream", "the host gets old pictures: the camera's can't be read",
                     cureOf("unreadable"));
    }
    if (sent == 0) {
        const std::string reason = mostDropped(status, later);
        if (!reason.empty()) {
            return wrong("stream", "every frame is dropped: " + reason, cureOf(reason));
        }
    }
    if (returned == 0) {
        return wrong("stream", "frames are queued, and none is sent",
                     "open the webcam at the host again; plug the cable out and in");
    }
    char text[64];
    snprintf(text, sizeof(text), "%.1f frames a second", static_cast<double>(returned) / seconds);
    return right("stream", text);
}

Finding checkStream(const Status& status, const Status& later, double seconds) {
    if (!later.isStreaming()) {
        return note("stream", "the host has not opened the webcam",
                    "open it there, in any program with a camera");
    }
    if (!later.surface) {
        return wrong("stream", "the camera has asked for no surface",
                     "restart the camera; its log says why");
    }
    if (later.surface->renderer == 0) {
        return wrong("stream", "nobody has taken the surface",
                     "restart the camera; its log says why");
    }
    return checkFrames(status, later, seconds);
}

}  // namespace

Findings checkManager(bool answers) {
    if (answers) return {right("register", "the service manager answers")};
    return {wrong("register", "no service manager answers",
                  "systemctl start korvane-hwservicemanager; or hwservicemanager")};
}

Findings checkMissingService() {
    if (runs(kService)) {
        return {wrong("service", "it runs, but is not registered: its log says why", kRestart)};
    }
    return {wrong("service", "it does not run",
                  std::string("systemctl start korvane-desktop-camera; or ") + kService)};
}

Findings checkStatus(const Status& status, const Status& later, double seconds) {
    const Finding node = checkNodeOf(later);
    if (node.state == Finding::WRONG) return {node, checkCamera(later)};
    const Finding camera = checkCamera(later);
    if (camera.state == Finding::WRONG) return {node, camera};
    return {node, camera, checkStream(status, later, seconds)};
}

}  // namespace korvane::ctl
