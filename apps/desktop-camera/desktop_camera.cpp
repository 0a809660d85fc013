// SPDX-License-Identifier: Apache-2.0
// desktop-camera: the camera application of a webcam that runs under Linux.

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include <hidl/HidlTransportSupport.h>

#include "CameraClient.h"
#include "CameraOptions.h"
#include "FrameJournal.h"
#include "GstreamerSource.h"
#include "ServiceConnection.h"
#include "SteadySource.h"
#include "StreamDemand.h"
#include "TestCardSource.h"

namespace korvane::camera {
namespace {

constexpr char kBinder[] = "/dev/hwbinder";

int refuse(const std::string& why) {
    fprintf(stderr, "desktop-camera: %s\n", why.c_str());
    return 1;
}

std::vector<ClientType> kindsOf(const CameraOptions& options) {
    std::vector<ClientType> kinds;
    if (options.asStreamClient) kinds.push_back(ClientType::STREAM);
    if (options.asLauncher) kinds.push_back(ClientType::LAUNCHER);
    return kinds;
}

/** Turns the signals that end the program into quit(); made before any other thread. */
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
            // The way out may lead through a service that does not answer: a second one ends it.
            pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
            for (;;) pause();
        }).detach();
    }
};

int serve(const CameraOptions& options, FrameSource& source, FrameJournal& journal) {
    // Calls from the service may come until the very end of the process.
    auto& demand = *new StreamDemand;
    const SignalWaiter signals(demand);
    android::hardware::configureRpcThreadpool(1, false);
    ServiceConnection connection(demand, kindsOf(options));
    SteadySource steady(source, nullptr, {});
    CameraClient(demand, connection, steady, journal, options.lastFrame).run();
    return 0;
}

int run(const std::vector<std::string>& arguments) {
    CameraOptions options;
    const std::string wrong = options.read(arguments);
    if (!wrong.empty()) {
        fprintf(stderr, "%s\n", wrong.c_str());
        return 2;
    }
    if (!options.help.empty()) {
        fputs(options.help.c_str(), stdout);
        return 0;
    }
    std::unique_ptr<FrameSource> source = std::make_unique<TestCardSource>();
    std::string error;
    if (!options.source.empty()) {
        gst_init(nullptr, nullptr);
        error = GstreamerSource::check(options.source);
        if (!error.empty()) return refuse("--source: " + error);
        source = std::make_unique<GstreamerSource>(options.source);
    }
    FrameJournal journal;
    if (!options.log.empty() && !journal.open(options.log, &error))
        return refuse("--log: " + error);
    if (access(kBinder, R_OK | W_OK) != 0) {
        return refuse(std::string("cannot use ") + kBinder +
                      ": is the kernel module binder_linux loaded, and is this root?");
    }
    return serve(options, *source, journal);
}

}  // namespace
}  // namespace korvane::camera

int main(int argc, char** argv) {
    return korvane::camera::run({argv + 1, argv + argc});
}
