// SPDX-License-Identifier: Apache-2.0
#include "FrameDump.h"

#include <chrono>
#include <thread>

namespace korvane::ctl {
namespace {

constexpr std::chrono::milliseconds kLook{25};

std::string withoutNewline(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

// Empty if the service did as it was told.
std::string tell(const Service& service, const std::string& option, int file = -1) {
    const std::optional<std::string> answer = service.debug({option}, file);
    return answer ? withoutNewline(*answer) : "the service does not answer";
}

}  // namespace

std::string dumpFrames(const Service& service, int file,
                       const std::function<bool(uint64_t frames)>& enough, uint64_t* frames) {
    *frames = 0;
    std::string wrong = tell(service, "--dump-frames", file);
    if (!wrong.empty()) return wrong;
    // What is sent between the two calls is in the file, but not counted.
    const std::optional<Status> first = service.status();
    std::optional<Status> now = first;
    while (now && now->isStreaming() && now->streamSeconds >= first->streamSeconds) {
        *frames = now->ofStream("sent") - first->ofStream("sent");
        if (enough(*frames)) break;
        std::this_thread::sleep_for(kLook);
        now = service.status();
    }
    if (!now) return "the service does not answer";
    wrong = tell(service, "--end-dump");
    // Then the end of the stream has already ended the dump.
    return wrong == "no stream" ? "" : wrong;
}

}  // namespace korvane::ctl
