// SPDX-License-Identifier: Apache-2.0
#include "Screens.h"

#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <numeric>

namespace korvane::ctl {
namespace {

[[gnu::format(printf, 2, 3)]] void append(std::string* text, const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    *text += line;
}

std::string describe(const Picture& picture) {
    std::string text;
    append(&text, "%s %ux%u, %.2f fps", picture.format.c_str(), picture.width, picture.height,
           picture.fps);
    return text;
}

// Counts start again with each stream.
double rate(const Status& now, const Status* before, const char* name, double seconds) {
    if (before == nullptr || seconds <= 0) return 0;
    const uint64_t newer = now.ofStart(name);
    const uint64_t older = before->ofStart(name);
    return newer < older ? 0 : static_cast<double>(newer - older) / seconds;
}

std::string shownBound(uint64_t us) {
    std::string text;
    if (us == 0) return "-";
    if (us == UINT64_MAX) return "more than a second";
    append(&text, "below %.1f ms", static_cast<double>(us) / 1000);
    return text;
}

void appendLatency(std::string* text, const char* name, const Status& status,
                   const Latency& latency) {
    append(text, "  %-22s half %s, 99 %% %s\n", name,
           shownBound(boundOf(status, latency, 0.5)).c_str(),
           shownBound(boundOf(status, latency, 0.99)).c_str());
}

void appendDrops(std::string* text, const Status& now) {
    append(text, "Dropped     %llu", static_cast<unsigned long long>(now.dropped()));
    for (const auto& [name, count] : now.stream) {
        if (name.rfind("dropped-", 0) != 0 || count == 0) continue;
        append(text, ", %s %llu", name.substr(sizeof("dropped-") - 1).c_str(),
               static_cast<unsigned long long>(count));
    }
    *text += "\n";
}

void appendSurface(std::string* text, const Status& now) {
    if (!now.surface) {
        *text += "Surface     none\n";
        return;
    }
    append(text, "Surface     %s, ", describe(now.surface->picture).c_str());
    if (now.surface->renderer == 0) {
        *text += "taken by nobody";
    } else {
        append(text, "taken by %d (%s)", now.surface->renderer,
               processName(now.surface->renderer).c_str());
    }
    *text += now.surface->suspended ? ", suspended\n" : "\n";
}

}  // namespace

uint64_t boundOf(const Status& status, const Latency& latency, double part) {
    const uint64_t sum = std::accumulate(latency.counts.begin(), latency.counts.end(), uint64_t{0});
    if (sum == 0) return 0;
    uint64_t seen = 0;
    for (size_t i = 0; i < latency.counts.size(); ++i) {
        seen += latency.counts[i];
        if (static_cast<double>(seen) < part * static_cast<double>(sum)) continue;
        return i < status.belowUs.size() ? status.belowUs[i] : UINT64_MAX;
    }
    return UINT64_MAX;
}

std::string processName(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    return std::getline(file, name) ? name : "?";
}

std::string watchScreen(const Status& now, const Status* before, double seconds) {
    std::string text;
    append(&text, "Service     process %d, for %.0f s\n", now.pid, now.seconds);
    append(&text, "Node        %s %s\n", now.nodePath.c_str(), now.nodeState.c_str());
    if (now.mode) append(&text, "Mode        %s\n", describe(*now.mode).c_str());
    appendSurface(&text, now);
    append(&text, "Frames      drawn %.1f/s, sent %.1f/s, returned %.1f/s\n",
           rate(now, before, "drawn", seconds), rate(now, before, "sent", seconds),
           rate(now, before, "returned", seconds));
    append(&text, "Stream      %llu sent", static_cast<unsigned long long>(now.ofStream("sent")));
    if (now.isStreaming()) append(&text, " in %.1f s", now.streamSeconds);
    text += "\n";
    appendDrops(&text, now);
    text += "Latency\n";
    appendLatency(&text, "arrival to queueing", now, now.queueing);
    appendLatency(&text, "queueing to return", now, now.sending);
    text += "Buffers    ";
    for (const std::string& owner : now.buffers) text += " " + owner;
    text += "\n" + clientList(now);
    return text;
}

std::string clientList(const Status& status) {
    std::string text;
    for (const Client& client : status.clients) {
        append(&text, "%u %-10s %d (%s), for %.1f s\n", client.kind, client.name.c_str(),
               client.pid, processName(client.pid).c_str(), client.seconds);
    }
    return text;
}

}  // namespace korvane::ctl
