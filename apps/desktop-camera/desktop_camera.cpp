// SPDX-License-Identifier: Apache-2.0
// desktop-camera: the camera application of a webcam that runs under Linux.
#define LOG_TAG "desktop-camera"

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include <hidl/HidlTransportSupport.h>
#include <log/log.h>

#include "BackgroundSource.h"
#include "CameraClient.h"
#include "CameraOptions.h"
#include "CameraStatus.h"
#include "CaptureDevices.h"
#include "FileWatch.h"
#include "FrameJournal.h"
#include "GstreamerSource.h"
#include "ServiceConnection.h"
#include "StatusFile.h"
#include "SteadySource.h"
#include "StreamDemand.h"
#include "StreamHooks.h"
#include "TestCardSource.h"

namespace korvane::camera {
namespace {

constexpr char kBinder[] = "/dev/hwbinder";

constexpr int kFailed = 1;
constexpr int kMisused = 2;

int refuse(int status, const std::string& why) {
    fprintf(stderr, "desktop-camera: %s\n", why.c_str());
    return status;
}

// The description of the first camera present now.
std::string describeFirstCamera(std::string* why) {
    const auto camera = firstCamera(captureDevices());
    *why = camera ? "" : "no capture device was found";
    if (!camera) return "";
    ALOGI("taking %s, %s", camera->path.c_str(), camera->name.c_str());
    return "v4l2src device=" + camera->path;
}

std::unique_ptr<FrameSource> sourceFor(const CameraOptions& options) {
    std::unique_ptr<FrameSource> source;
    switch (options.source) {
        case CameraOptions::Source::CARD:
            return std::make_unique<TestCardSource>();
        case CameraOptions::Source::AUTO:
            source = std::make_unique<GstreamerSource>(describeFirstCamera, options.turn);
            break;
        case CameraOptions::Source::PIPELINE:
            source = std::make_unique<GstreamerSource>(options.pipeline, options.turn);
            break;
    }
    return std::make_unique<BackgroundSource>(std::move(source));
}

std::vector<ClientType> kindsOf(const CameraOptions& options) {
    std::vector<ClientType> kinds;
    if (options.asStreamClient) kinds.push_back(ClientType::STREAM);
    if (options.asLauncher) kinds.push_back(ClientType::LAUNCHER);
    return kinds;
}

/** Turns the signals that end the program into quit(); created before any other thread. */
class SignalWaiter {
  public:
    explicit SignalWaiter(StreamDemand& demand) {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        std::thread([signals, &demand] {
            int signal = 0;
            sigwait(&signals, &signal);
            demand.quit();
            // Shutting down may wait for a service that doesn't answer: a second signal ends the
            // program.
            pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
            for (;;) pause();
        }).detach();
    }
};

int serve(const CameraOptions& options, FrameSource& source, FrameJournal& journal) {
    // Calls from the service may arrive until the very end of the process.
    auto& demand = *new StreamDemand;
    StatusFile file(kStatusFile);
    auto& status = *new CameraStatus([&file](const std::string& json) { file.write(json); });
    const SignalWaiter signals(demand);
    android::hardware::configureRpcThreadpool(1, false);
    ServiceConnection connection(demand, status, kindsOf(options));
    FileWatch cover(options.privacy);
    SteadySource steady(
            source, [&cover] { return cover.exists(); }, {}, status);
    StreamHooks hooks(options.onStart, options.onStop);
    CameraClient(demand, connection, steady, journal, hooks, options.lastFrame).run();
    return 0;
}

// Shows what was asked for instead of running a camera, if anything was.
bool show(const CameraOptions& options) {
    if (!options.help.empty()) {
        fputs(options.help.c_str(), stdout);
        return true;
    }
    if (options.list) fputs(textOf(captureDevices()).c_str(), stdout);
    return options.list;
}

// Prepares for the source; returns what is wrong with it, or an empty text.
std::string checkSource(const CameraOptions& options) {
    if (options.source != CameraOptions::Source::CARD) gst_init(nullptr, nullptr);
    if (options.source != CameraOptions::Source::PIPELINE) return "";
    const std::string error = GstreamerPipeline::check(options.pipeline);
    if (error.empty()) return "";
    return "--source is '" + options.pipeline +
           "', but a GStreamer pipeline, auto or card is needed: " + error;
}

int run(const std::vector<std::string>& arguments) {
    CameraOptions options;
    const std::string wrong = options.read(arguments);
    if (!wrong.empty()) {
        fprintf(stderr, "%s\n", wrong.c_str());
        return kMisused;
    }
    if (show(options)) return 0;
    std::string error = checkSource(options);
    if (!error.empty()) return refuse(kMisused, error);
    FrameJournal journal;
    if (!options.log.empty() && !journal.open(options.log, &error)) {
        return refuse(kMisused, "--log needs a file that can be written: " + error);
    }
    if (access(kBinder, R_OK | W_OK) != 0) {
        return refuse(kFailed,
                      std::string("cannot use ") + kBinder +
                              ": is the kernel module binder_linux loaded, and is this root?");
    }
    const std::unique_ptr<FrameSource> source = sourceFor(options);
    return serve(options, *source, journal);
}

}  // namespace
}  // namespace korvane::camera

int main(int argc, char** argv) {
    return korvane::camera::run({argv + 1, argv + argc});
}
