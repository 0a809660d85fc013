// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

#include "CameraReport.h"
#include "Deadline.h"
#include "FrameDump.h"
#include "Screens.h"
#include "Service.h"
#include "Snapshot.h"
#include "desktop-camera/StatusFile.h"

namespace korvane::ctl {

using ::android::base::unique_fd;
using std::chrono::duration;
using std::chrono::steady_clock;

namespace {

constexpr unsigned kAnswerSeconds = 5;
constexpr unsigned kClientKinds = 8;
constexpr unsigned kController = 4;
constexpr double kFirstFrameSeconds = 3;

volatile sig_atomic_t sInterrupted = 0;

void onInterrupt(int /*signal*/) {
    sInterrupted = 1;
}

// A long-running command still ends cleanly.
void catchInterrupts() {
    signal(SIGINT, onInterrupt);
    signal(SIGTERM, onInterrupt);
}

ExitCode fail(ExitCode code, const std::string& what) {
    fprintf(stderr, "desktopctl: %s\n", what.c_str());
    return code;
}

ExitCode notRunning() {
    return fail(NOT_RUNNING, "the service is not running; 'desktopctl doctor' says why");
}

double secondsSince(steady_clock::time_point start) {
    return duration<double>(steady_clock::now() - start).count();
}

std::string megabytes(double bytes) {
    char text[32];
    snprintf(text, sizeof(text), "%.1f MB", bytes / 1e6);
    return text;
}

// Why there is no stream, in the order in which a stream comes about.
ExitCode noStream(const Status& status) {
    const ExitCode code = status.exitCode();
    if (code == NO_NODE) return fail(code, "nothing streams: the service has no node");
    if (code == NO_CAMERA) return fail(code, "nothing streams: there is no camera");
    return fail(FAILED, "nothing streams: the host has not opened the webcam");
}

}  // namespace

ExitCode showStatus(bool json) {
    const Deadline deadline(kAnswerSeconds);
    const auto service = Service::find();
    if (!service) return notRunning();
    auto text = json ? service->debug({"--json"}) : service->debug({});
    const auto status = service->status();
    if (!text || !status) return notRunning();
    if (const auto camera = readCameraReport(camera::kStatusFile, *status)) {
        text = json ? jsonWith(*camera, *text) : pageWith(*camera, *text);
    }
    fputs(text->c_str(), stdout);
    return status->exitCode();
}

ExitCode showClients() {
    const Deadline deadline(kAnswerSeconds);
    const auto service = Service::find();
    const auto status = service ? service->status() : std::nullopt;
    if (!status) return notRunning();
    fputs(clientList(*status).c_str(), stdout);
    return status->exitCode();
}

ExitCode watch(double intervalSeconds, unsigned screens) {
    catchInterrupts();
    const char* const clear = isatty(STDOUT_FILENO) != 0 ? "\033[H\033[2J" : "";
    std::optional<Status> before;
    steady_clock::time_point beforeTime;
    ExitCode code = NOT_RUNNING;
    for (unsigned i = 0; sInterrupted == 0 && (screens == 0 || i < screens); ++i) {
        if (i > 0) std::this_thread::sleep_for(duration<double>(intervalSeconds));
        const Deadline deadline(kAnswerSeconds);
        const auto service = Service::find();
        const auto now = service ? service->status() : std::nullopt;
        const double passed = secondsSince(beforeTime);
        beforeTime = steady_clock::now();
        if (now) {
            // Another process has counts of its own.
            const bool same = before && before->pid == now->pid;
            printf("%s%s", clear, watchScreen(*now, same ? &*before : nullptr, passed).c_str());
            code = now->exitCode();
        } else {
            printf("%sthe service is not running\n", clear);
            code = NOT_RUNNING;
        }
        fflush(stdout);
        before = now;
    }
    return code;
}

ExitCode sendText(unsigned kind, const std::string& text) {
    // The service does not survive a kind that doesn't exist.
    if (kind >= kClientKinds) return fail(WRONG_USAGE, "KIND is a number from 0 to 7");
    const Deadline deadline(2 * kAnswerSeconds);
    const auto service = Service::find();
    if (!service) return notRunning();
    const auto reply = service->send(kind, text);
    if (!reply) return fail(FAILED, "the service has gone while it was asked");
    printf("%s\n", reply->c_str());
    return READY;
}

ExitCode suspend(bool suspend) {
    return sendText(kController,
                    suspend ? R"({"stream-suspend":true})" : R"({"stream-suspend":false})");
}

// Has the service write one frame of the stream to the file. Returns what is wrong, or "".
std::string catchFrame(const Service& service, int file) {
    const auto start = steady_clock::now();
    const auto enough = [&start](uint64_t seen) {
        return seen > 0 || secondsSince(start) > kFirstFrameSeconds;
    };
    uint64_t frames = 0;
    std::string wrong = dumpFrames(service, file, enough, &frames);
    if (!wrong.empty()) return wrong;
    struct stat size = {};
    if (fstat(file, &size) == 0 && size.st_size > 0) return "";
    return "no frame came within three seconds; 'desktopctl status' says where they are lost";
}

ExitCode takeSnapshot(const std::string& path) {
    if (!isPicturePath(path)) return fail(WRONG_USAGE, "FILE ends in .png, .jpg or .jpeg");
    const Deadline deadline(2 * kAnswerSeconds);
    const auto service = Service::find();
    const auto status = service ? service->status() : std::nullopt;
    if (!status) return notRunning();
    const auto format =
            status->mode ? testcard::formatFromName(status->mode->format) : std::nullopt;
    if (!status->isStreaming()) return noStream(*status);
    if (!format) return fail(FAILED, "a stream of " + status->mode->format + " has no pictures");

    const unique_fd file(memfd_create("frames", MFD_CLOEXEC));
    std::string error = catchFrame(*service, file.get());
    if (!error.empty()) return fail(FAILED, error);
    testcard::Capture capture;
    const std::string frameFile = "/proc/self/fd/" + std::to_string(file.get());
    if (!capture.open(frameFile, *format, status->mode->width, status->mode->height, &error) ||
        !writePicture(path, capture.frames().front(), *format, status->mode->width,
                      status->mode->height, &error)) {
        return fail(FAILED, path + ": " + error);
    }
    return READY;
}

ExitCode dumpTo(const std::string& path, double seconds) {
    catchInterrupts();
    const Deadline deadline(static_cast<unsigned>(seconds) + 2 * kAnswerSeconds);
    const auto service = Service::find();
    const auto status = service ? service->status() : std::nullopt;
    if (!status) return notRunning();
    if (!status->isStreaming()) return noStream(*status);
    const unique_fd file(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file.get() < 0) return fail(FAILED, path + ": " + strerror(errno));

    const auto start = steady_clock::now();
    uint64_t frames = 0;
    const std::string wrong = dumpFrames(
            *service, file.get(),
            [&](uint64_t /*seen*/) { return sInterrupted != 0 || secondsSince(start) >= seconds; },
            &frames);
    if (!wrong.empty()) return fail(FAILED, wrong);
    struct stat size = {};
    fstat(file.get(), &size);
    printf("%s of %s frames in %s\n", megabytes(static_cast<double>(size.st_size)).c_str(),
           status->mode ? status->mode->format.c_str() : "?", path.c_str());
    return READY;
}

}  // namespace korvane::ctl
