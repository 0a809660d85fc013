// SPDX-License-Identifier: Apache-2.0
#include "support/FrameStream.h"

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <linux/videodev2.h>

#include "support/Samples.h"

namespace korvane::bench {
namespace {

using test::UvcFunctionTree;

constexpr int kSources = 6;
constexpr int kTargets = 4;
constexpr uint32_t kJpegCapacity = 2 << 20;

std::atomic<int64_t> sQueuedAt{0};

struct Size {
    uint32_t width;
    uint32_t height;
};
// In the daemon's order, by pixels.
constexpr Size kSizes[] = {{640, 480}, {1280, 720}, {1920, 1080}, {3840, 2160}};

uint8_t frameIndex(const StreamMode& mode) {
    uint8_t index = 0;
    for (const Size& size : kSizes) {
        ++index;
        if (size.width == mode.width && size.height == mode.height) return index;
    }
    throw std::runtime_error("no such frame size");
}

void describe(UvcFunctionTree& function, StreamMode::Format format) {
    function.addUncompressed(format == StreamMode::NV12 ? "NV12" : "YUY2");
    for (const char* folder : {UvcFunctionTree::kUncompressed, UvcFunctionTree::kMjpeg}) {
        for (int i = 0; i < static_cast<int>(std::size(kSizes)); ++i) {
            function.addFrame(folder, std::to_string(i + 1), kSizes[i].width, kSizes[i].height);
        }
    }
}

std::string surfaceCommand(const StreamMode& mode) {
    return R"({"create-surface":{"width":)" + std::to_string(mode.width) + R"(,"height":)" +
           std::to_string(mode.height) + R"(,"consumer-usage":3,"v4l2-format":")" +
           (mode.format == StreamMode::MJPEG ? "MJPG" : "NV12") + R"(","fps":30}})";
}

pid_t findPollThread() {
    pid_t found = -1;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "poll_thread") found = std::max(found, std::stoi(task.path().filename()));
    }
    if (found < 0) throw std::runtime_error("no poll thread");
    return found;
}

// The kernel's number for the processor time of one thread.
clockid_t processorTimeOf(pid_t thread) {
    return static_cast<clockid_t>(~static_cast<unsigned>(thread) << 3 | 6);
}

}  // namespace

uint32_t StreamMode::frameSize() const {
    switch (format) {
        case NV12:
            return width * height * 3 / 2;
        case YUYV:
            return width * height * 2;
        default:
            return jpegSize;
    }
}

FrameStream::FrameStream(const StreamMode& mode) : mMode(mode) {
    if (!mWorld.available()) throw std::runtime_error(mWorld.whyNot());
    describe(mWorld.function, mode.format);
    mWorld.node.setBufferLength(kSizes[3].width * kSizes[3].height * 2);
    mWorld.start();
    mWorld.commit(mode.format == StreamMode::MJPEG ? 2 : 1, frameIndex(mode));
    mWorld.startStream();
    if (!mWorld.command(surfaceCommand(mode)).empty()) throw std::runtime_error("no surface");
    const bool isBlob = mode.format == StreamMode::MJPEG;
    mCamera.emplace(mWorld.surface(), isBlob ? kJpegCapacity : 0, isBlob ? 1 : 0);
    mWorld.node.setQuiet(true);
    mPollThread = findPollThread();
    mPollThreadTime = processorTimeOf(mPollThread);
    for (int i = 0; i < kSources; ++i) mSources.emplace_back(mode.frameSize());
    for (int i = 0; i < kTargets; ++i) mTargets.emplace_back(mode.frameSize());
    // To touch every page of every buffer, and do whatever is done only once.
    for (int i = 0; i < 3 * kSources * kTargets; ++i) pass();
}

FrameTimes FrameStream::pass() {
    const int64_t start = now(CLOCK_MONOTONIC);
    const int64_t cpu = timed(CLOCK_THREAD_CPUTIME_ID, [&] { queue(); });
    const int64_t queued = now(CLOCK_MONOTONIC);
    const int64_t back = timed(mPollThreadTime, [&] { takeBack(); });
    const int64_t end = now(CLOCK_MONOTONIC);
    return {cpu + back, end - start, std::min(sQueuedAt.load(), queued) - start};
}

FrameTimes FrameStream::copy() {
    ++mCopies;
    const SharedMemory& from = mSources[mCopies % kSources];
    const SharedMemory& to = mTargets[mCopies % kTargets];
    const int64_t start = now(CLOCK_MONOTONIC);
    const int64_t cpu = timed(CLOCK_THREAD_CPUTIME_ID,
                              [&] { memcpy(to.data(), from.data(), mMode.frameSize()); });
    return {cpu, now(CLOCK_MONOTONIC) - start, 0};
}

void FrameStream::queue() {
    const int slot = mCamera->dequeue();
    if (mMode.format == StreamMode::MJPEG) drawFooter(slot);
    mCamera->queue(slot);
}

void FrameStream::takeBack() {
    if (!mWorld.node.send()) throw std::runtime_error("the frame was not queued");
    mWorld.node.waitUntilIdle();
}

// The daemon clears the size as it reads it.
void FrameStream::drawFooter(int slot) {
    android::GraphicBuffer& blob = *mCamera->buffer(slot);
    void* memory = nullptr;
    blob.lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &memory);
    const uint32_t footer[] = {0x00FF, mMode.jpegSize};
    memcpy(static_cast<uint8_t*>(memory) + kJpegCapacity - sizeof(footer), footer, sizeof(footer));
    blob.unlock();
}

}  // namespace korvane::bench

extern "C" int __real_ioctl(int fd, unsigned long request, void* argument);

extern "C" int __wrap_ioctl(int fd, unsigned long request, void* argument);
extern "C" int __wrap_ioctl(int fd, unsigned long request, void* argument) {
    using namespace korvane::bench;
    if (request == VIDIOC_QBUF) sQueuedAt = now(CLOCK_MONOTONIC);
    return __real_ioctl(fd, request, argument);
}
