// SPDX-License-Identifier: Apache-2.0
#include "StatusPage.h"

#include <array>
#include <cstdarg>
#include <cstdio>

#include <unistd.h>

#include "StatusNames.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

namespace {

constexpr size_t kUsualLength = 4096;
constexpr double kMsPerSecond = 1000.0;

[[gnu::format(printf, 2, 3)]] void append(std::string* page, const char* format, ...) {
    char line[160];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    *page += line;
}

double seconds(int64_t ms) {
    return static_cast<double>(ms) / kMsPerSecond;
}

void appendPicture(std::string* page, const ServiceStats::Picture& picture) {
    append(page, "%s %ux%u, %.2f fps", formatName(picture.format).c_str(), picture.width,
           picture.height, finite(picture.fps));
}

void appendNode(std::string* page, const ServiceStats& stats) {
    append(page, "Node:     %s%s%s\n", nodePath(stats).c_str(), stats.nodeNumber() < 0 ? "" : ", ",
           nameOf(stats.node()));
    if (stats.node() != NodeState::READY && stats.node() != NodeState::STREAMING) return;
    *page += "Mode:     ";
    appendPicture(page, stats.mode());
    *page += "\n";
    if (stats.buffer(0) == BufferState::NONE) return;
    *page += "Buffers: ";
    for (size_t i = 0; stats.buffer(i) != BufferState::NONE; ++i) {
        append(page, " %zu %s", i, nameOf(stats.buffer(i)));
    }
    *page += "\n";
}

void appendSurface(std::string* page, const ServiceStats& stats) {
    const ServiceStats::Picture surface = stats.surface();
    if (surface.format == 0) {
        *page += "Surface:  none\n";
        return;
    }
    *page += "Surface:  ";
    appendPicture(page, surface);
    append(page, ", usage 0x%x, ", stats.surfaceUsage());
    if (stats.renderer() == 0) {
        *page += "taken by nobody";
    } else {
        append(page, "taken by process %d", stats.renderer());
    }
    *page += stats.suspended() ? ", suspended\n" : "\n";
}

void appendClients(std::string* page, const ServiceStats& stats) {
    *page += "Clients:\n";
    for (size_t kind = 0; kind < ServiceStats::kClients; ++kind) {
        const ServiceStats::Client client = stats.client(kind);
        if (client.pid == 0) continue;
        append(page, "  %zu %-10s process %d, for %.1f s\n", kind, nameOfKind(kind), client.pid,
               seconds(stats.nowMs() - client.sinceMs));
    }
}

void appendCounts(std::string* page, const ServiceStats& stats) {
    append(page, "Counts:                 stream      start\n");
    for (size_t i = 0; i < static_cast<size_t>(Count::COUNTS); ++i) {
        const auto count = static_cast<Count>(i);
        append(page, "  %-20s %8llu %10llu\n", nameOf(count),
               static_cast<unsigned long long>(stats.sinceStream(count)),
               static_cast<unsigned long long>(stats.total(count)));
    }
}

void appendTimes(std::string* page, const char* what, const LatencyHistogram& times) {
    append(page, "%s\n", what);
    for (size_t i = 0; i < LatencyHistogram::kClasses; ++i) {
        if (times.total(i) == 0) continue;
        const uint32_t bound = LatencyHistogram::boundUs(i);
        const uint32_t shown = bound == 0 ? LatencyHistogram::boundUs(i - 1) : bound;
        append(page, "  %s %7u us %10llu %10llu\n", bound == 0 ? "from " : "below", shown,
               static_cast<unsigned long long>(times.sinceMark(i)),
               static_cast<unsigned long long>(times.total(i)));
    }
}

void appendEvents(std::string* page, const ServiceStats& stats) {
    std::array<EventHistory::Entry, EventHistory::kEvents> entries;
    const size_t count = stats.events().read(&entries);
    *page += "Events (seconds since the start, what, detail):\n";
    for (size_t i = 0; i < count; ++i) {
        const EventHistory::Entry& entry = entries[i];
        append(page, "  %10.3f %-18s %d", seconds(entry.ms), nameOf(entry.event), entry.detail);
        if (entry.times > 1) append(page, ", %u times", entry.times);
        *page += "\n";
    }
}

}  // namespace

std::string statusPage(const ServiceStats& stats) {
    std::string page;
    page.reserve(kUsualLength);
    append(&page, "Service:  process %d, for %.1f s\n", getpid(), seconds(stats.nowMs()));
    appendNode(&page, stats);
    appendSurface(&page, stats);
    appendClients(&page, stats);
    appendCounts(&page, stats);
    appendTimes(&page, "From arrival to queueing:", stats.queueing());
    appendTimes(&page, "From queueing to return:", stats.sending());
    appendEvents(&page, stats);
    return page;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
