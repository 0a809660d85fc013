// SPDX-License-Identifier: Apache-2.0
// What calls between processes cost on a real driver: bare, through HIDL, relayed by the daemon
// from one client to another, and answered by the daemon's controller; for texts of increasing
// length.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <hidl/HidlTransportSupport.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>

#include "BareBinder.h"
#include "LoggedProgram.h"
#include "Processes.h"
#include "support/Samples.h"
#include "support/StubDesktop.h"

namespace korvane::bench {
namespace {

using ::android::sp;
using ::android::hardware::hidl_string;
using test::ForkedProcess;
using test::Line;
using test::StubCallback;
using test::desktop_v2::ClientType;
using test::desktop_v2::ICameraDesktop;

// A kind that nobody registers for: commands to it end in the daemon.
constexpr auto kNobody = static_cast<ClientType>(6);

/** The processes that answer; started before this one opens the driver, which can't be shared. */
struct Servers {
    Servers() {
        manager.waitFor("Ready");
        daemon.waitFor("Registered Camera Desktop HAL service success!");
        client.line().say('g');
        if (client.line().hear() != 'r') throw std::runtime_error("the client does not register");
        // The controller only looks for the service, and becomes its client, after a while.
        daemon.waitFor("Got service for camera desktop 0x");
    }

    static void serveClient(Line& parent) {
        if (parent.hear() != 'g') return;
        ::android::hardware::configureRpcThreadpool(1, true /* callerWillJoin */);
        const sp<ICameraDesktop> service = ICameraDesktop::tryGetService("default");
        const sp<StubCallback> callback =
                new StubCallback([](const std::string&) { return "heard"; });
        if (!service->registerCallback(ClientType::STREAM, callback).isOk()) return;
        parent.say('r');
        ::android::hardware::joinRpcThreadpool();
    }

    ForkedProcess bare{[](Line&) { BareBinder().serve(); }};
    ForkedProcess client{serveClient};
    LoggedProgram manager{builtProgram("bin/hwservicemanager")};
    LoggedProgram daemon{builtProgram("bin/korvane.hardware.camera.desktop@2.0-service")};
};

struct World {
    static World& get() {
        static World sWorld;
        return sWorld;
    }

    Servers servers;
    BareBinder bare;
    sp<ICameraDesktop> service = ICameraDesktop::tryGetService("default");
};

/** The daemon's reply to a command; anything but `expected` ends the benchmark. */
void send(benchmark::State& state, ClientType to, const hidl_string& command,
          const std::string& expected) {
    std::string reply;
    const auto sent = World::get().service->sendCommand(
            to, command, [&](const hidl_string& text) { reply = text; });
    if (!sent.isOk() || reply != expected) state.SkipWithError("a call failed");
}

void ping(benchmark::State& state) {
    World& world = World::get();
    Samples bare, hidl;
    for (auto _ : state) {
        bare.add(timed(CLOCK_MONOTONIC, [&] { world.bare.call({}); }));
        hidl.add(timed(CLOCK_MONOTONIC, [&] {
            if (!world.service->ping().isOk()) state.SkipWithError("a ping failed");
        }));
    }
    bare.report(state, "bare");
    hidl.report(state, "hidl");
}

/** A command of a given length: bare, to nobody, to another process, to the controller. */
void command(benchmark::State& state) {
    World& world = World::get();
    const std::string text = R"({"x":")" + std::string(state.range(0) - 8, 'x') + R"("})";
    const hidl_string hidlText = text;
    const std::vector<uint8_t> bytes(text.begin(), text.end());
    Samples bare, nobody, relayed, controller;
    for (auto _ : state) {
        bare.add(timed(CLOCK_MONOTONIC, [&] { world.bare.call(bytes); }));
        nobody.add(timed(CLOCK_MONOTONIC, [&] { send(state, kNobody, hidlText, ""); }));
        relayed.add(timed(CLOCK_MONOTONIC,
                          [&] { send(state, ClientType::STREAM, hidlText, "heard"); }));
        controller.add(timed(CLOCK_MONOTONIC, [&] {
            send(state, ClientType::WEBCAM_CONTROLLER, hidlText, "OK_WEBCAM_HAL");
        }));
    }
    bare.report(state, "bare");
    nobody.report(state, "nobody");
    relayed.report(state, "relayed");
    controller.report(state, "controller");
}

BENCHMARK(ping)->Name("ping")->UseRealTime();
BENCHMARK(command)
        ->Name("command_length")
        ->UseRealTime()
        ->ArgName("n")
        ->RangeMultiplier(4)
        ->Range(16, 64 * 1024);

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
    korvane::bench::World::get();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
