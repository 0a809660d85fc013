// SPDX-License-Identifier: Apache-2.0
// What a frame costs on its way through the daemon: from the camera's queueBuffer to VIDIOC_QBUF,
// and from VIDIOC_DQBUF back to the camera.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include <benchmark/benchmark.h>

#include "support/AllocationCounter.h"
#include "support/BareNode.h"
#include "support/FrameStream.h"
#include "support/Samples.h"

namespace korvane::bench {
namespace {

struct NamedMode {
    const char* name;
    StreamMode mode;
};

constexpr NamedMode kModes[] = {
        {"MJPEG/50kB", {StreamMode::MJPEG, 1920, 1080, 50000}},
        {"MJPEG/300kB", {StreamMode::MJPEG, 1920, 1080, 300000}},
        {"MJPEG/1MB", {StreamMode::MJPEG, 1920, 1080, 1000000}},
        {"NV12/640x480", {StreamMode::NV12, 640, 480}},
        {"NV12/1280x720", {StreamMode::NV12, 1280, 720}},
        {"NV12/1920x1080", {StreamMode::NV12, 1920, 1080}},
        {"NV12/3840x2160", {StreamMode::NV12, 3840, 2160}},
        {"YUYV/640x480", {StreamMode::YUYV, 640, 480}},
        {"YUYV/1280x720", {StreamMode::YUYV, 1280, 720}},
        {"YUYV/1920x1080", {StreamMode::YUYV, 1920, 1080}},
        {"YUYV/3840x2160", {StreamMode::YUYV, 3840, 2160}},
};

// The share of a frame's cost that is the scripted node's, whoever uses it.
void addNode(Samples* cpu, int64_t count) {
    BareNode bare;
    for (int64_t i = 0; i < count; ++i) cpu->add(bare.pass());
}

// Frame and copy in turn, so that whatever else the machine does affects both alike. The node alone
// is measured before and after them: two nodes in one process would wake each other's threads.
void cost(benchmark::State& state, const StreamMode& mode) {
    const int64_t nodePasses = std::min<int64_t>(state.max_iterations, 2000);
    Samples node, frameCpu, frameWall, copyCpu, copyWall;
    addNode(&node, nodePasses);
    {
        FrameStream stream(mode);
        for (auto _ : state) {
            const FrameTimes frame = stream.pass();
            const FrameTimes copy = stream.copy();
            frameCpu.add(frame.cpu);
            frameWall.add(frame.wall);
            copyCpu.add(copy.cpu);
            copyWall.add(copy.wall);
        }
    }
    addNode(&node, nodePasses);
    state.counters["bytes"] = mode.frameSize();
    node.report(state, "node_cpu");
    frameCpu.report(state, "cpu");
    frameWall.report(state, "wall");
    copyCpu.report(state, "memcpy_cpu");
    copyWall.report(state, "memcpy_wall");
}

/** Keeps every processor busy. */
class Load {
  public:
    explicit Load(bool busy) {
        const unsigned count = busy ? std::thread::hardware_concurrency() : 0;
        for (unsigned i = 0; i < count; ++i) {
            mThreads.emplace_back([this] {
                while (!mStop) {
                }
            });
        }
    }
    ~Load() {
        mStop = true;
        for (std::thread& thread : mThreads) thread.join();
    }

  private:
    std::atomic<bool> mStop{false};
    std::vector<std::thread> mThreads;
};

// Frames with a pause before each, in which the processor does other things, as in a real stream;
// and copies with the same pauses, since a processor is slower for a while after waking up.
void latency(benchmark::State& state, const StreamMode& mode, bool busy) {
    FrameStream stream(mode);
    const Load load(busy);
    const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(3)); };
    Samples frames, copies;
    for (auto _ : state) {
        pause();
        frames.add(stream.pass().latency);
        pause();
        copies.add(stream.copy().wall);
    }
    state.counters["copy_median"] = copies.median();
    state.counters["median"] = frames.median();
    state.counters["p99"] = frames.quantile(0.99);
    state.counters["worst"] = frames.quantile(1);
}

struct Counts {
    int64_t allocations = 0;
    int64_t waits = 0;
    int64_t faults = 0;

    Counts operator-(const Counts& other) const {
        return {allocations - other.allocations, waits - other.waits, faults - other.faults};
    }
    Counts& operator+=(const Counts& other) {
        allocations += other.allocations;
        waits += other.waits;
        faults += other.faults;
        return *this;
    }
};

Counts ofThisThread() {
    rusage usage;
    getrusage(RUSAGE_THREAD, &usage);
    return {static_cast<int64_t>(test::allocations()), usage.ru_nvcsw, usage.ru_minflt};
}

// Without allocations, which aren't counted per thread.
Counts ofThread(pid_t thread) {
    const std::string task = "/proc/self/task/" + std::to_string(thread);
    Counts counts;
    std::ifstream status(task + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("voluntary_ctxt_switches:", 0) == 0)
            counts.waits = std::stol(line.substr(24));
    }
    std::ifstream stat(task + "/stat");
    std::string field;
    for (int i = 0; i < 10; ++i) stat >> field;
    counts.faults = std::stol(field);
    return counts;
}

// What a frame makes its threads do apart from moving its bytes.
void counts(benchmark::State& state, const StreamMode& mode) {
    FrameStream stream(mode);
    Counts total;
    const Counts pollBefore = ofThread(stream.pollThread());
    for (auto _ : state) {
        const Counts before = ofThisThread();
        stream.queue();
        total += ofThisThread() - before;
        const auto allocations = static_cast<int64_t>(test::allocations());
        stream.takeBack();
        total.allocations += static_cast<int64_t>(test::allocations()) - allocations;
    }
    total += ofThread(stream.pollThread()) - pollBefore;
    const auto perFrame = [&](int64_t count) {
        return static_cast<double>(count) / static_cast<double>(state.iterations());
    };
    state.counters["allocations"] = perFrame(total.allocations);
    state.counters["context_switches"] = perFrame(total.waits);
    state.counters["page_faults"] = perFrame(total.faults);
}

void registerAll() {
    for (const auto& [name, mode] : kModes) {
        const auto add = [name = std::string(name)](const std::string& kind, auto run) {
            benchmark::RegisterBenchmark((kind + "/" + name).c_str(), run)->UseRealTime();
        };
        add("cost", [mode = mode](benchmark::State& state) { cost(state, mode); });
        if (mode.height != 1080 || (mode.jpegSize != 0 && mode.jpegSize != 300000)) continue;
        add("counts", [mode = mode](benchmark::State& state) { counts(state, mode); });
        for (bool busy : {false, true}) {
            add(busy ? "latency/busy" : "latency/idle",
                [mode = mode, busy](auto& state) { latency(state, mode, busy); });
        }
    }
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
    if (const std::string whyNot = korvane::test::DaemonWorld().whyNot(); !whyNot.empty()) {
        fprintf(stderr, "%s\n", whyNot.c_str());
        return 77;
    }
    korvane::bench::registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
