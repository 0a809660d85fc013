// SPDX-License-Identifier: Apache-2.0
#include "uvc/ServiceStats.h"

#include <cstdlib>
#include <cstring>

#include <utils/Timers.h>

#include "uvc/FrameInterval.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr int64_t kNsPerMs = 1000000;

int64_t nowNs() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

uint64_t packSize(uint32_t width, uint32_t height) {
    return uint64_t{width} << 32 | height;
}

int32_t numberAtEnd(const char* path) {
    const char* digits = path + strlen(path);
    while (digits > path && digits[-1] >= '0' && digits[-1] <= '9') --digits;
    return *digits == '\0' ? -1 : static_cast<int32_t>(strtol(digits, nullptr, 10));
}

}  // namespace

ServiceStats::ServiceStats() : mStartNs(nowNs()) {}

int64_t ServiceStats::nowMs() const {
    return (nowNs() - mStartNs) / kNsPerMs;
}

void ServiceStats::frameArrived(uint64_t frameNumber) {
    count(Count::FRAMES_DRAWN);
    mArrivedNs[frameNumber % kArrivals].store(nowNs(), kRelaxed);
    mArrivedNumbers[frameNumber % kArrivals].store(frameNumber, kRelaxed);
}

int64_t ServiceStats::arrivalOf(uint64_t frameNumber) const {
    const size_t place = frameNumber % kArrivals;
    if (mArrivedNumbers[place].load(kRelaxed) != frameNumber) return 0;
    return mArrivedNs[place].load(kRelaxed);
}

void ServiceStats::frameSent(uint32_t buffer) {
    count(Count::FRAMES_SENT);
    if (buffer >= kBuffers) return;
    mSentNs[buffer].store(nowNs(), kRelaxed);
    mBuffers[buffer].store(BufferState::QUEUED, kRelaxed);
}

void ServiceStats::frameTook(uint32_t buffer, int64_t arrivedNs) {
    if (buffer >= kBuffers || arrivedNs == 0) return;
    const int64_t sentNs = mSentNs[buffer].load(kRelaxed);
    if (sentNs != 0) mQueueing.add(sentNs - arrivedNs);
}

void ServiceStats::frameReturned(uint32_t buffer) {
    count(Count::FRAMES_RETURNED);
    if (buffer >= kBuffers) return;
    const int64_t sentNs = mSentNs[buffer].load(kRelaxed);
    if (sentNs != 0) mSending.add(nowNs() - sentNs);
    mBuffers[buffer].store(BufferState::FREE, kRelaxed);
}

void ServiceStats::setNode(NodeState state, const char* path) {
    const int32_t number = numberAtEnd(path);
    mNodeNumber.store(number, kRelaxed);
    setNode(state);
    note(state == NodeState::UNOPENED ? Event::NODE_UNOPENED : Event::NODE_OPENED, number);
}

void ServiceStats::setNode(NodeState state) {
    mNode.store(state, kRelaxed);
    if (state != NodeState::NONE) return;
    note(Event::NODE_REMOVED, mNodeNumber.exchange(-1, kRelaxed));
}

void ServiceStats::streamStarted(uint32_t buffers) {
    mCounts.mark();
    mQueueing.mark();
    mSending.mark();
    for (size_t i = 0; i < kBuffers; ++i) {
        mBuffers[i].store(i < buffers ? BufferState::FREE : BufferState::NONE, kRelaxed);
    }
    mStreamStartMs.store(nowMs(), kRelaxed);
    mNode.store(NodeState::STREAMING, kRelaxed);
    note(Event::STREAM_STARTED);
}

void ServiceStats::streamStopped() {
    mNode.store(NodeState::READY, kRelaxed);
    note(Event::STREAM_STOPPED);
}

void ServiceStats::buffersReleased() {
    for (size_t i = 0; i < kBuffers; ++i) {
        mBuffers[i].store(BufferState::NONE, kRelaxed);
        mSentNs[i].store(0, kRelaxed);
    }
}

void ServiceStats::setMode(uint32_t width, uint32_t height, uint32_t format, uint32_t interval) {
    mModeSize.store(packSize(width, height), kRelaxed);
    mModeFormat.store(format, kRelaxed);
    mInterval.store(interval, kRelaxed);
}

void ServiceStats::surfaceMade(const Picture& picture, uint32_t usage) {
    mSurfaceSize.store(packSize(picture.width, picture.height), kRelaxed);
    mSurfaceUsage.store(usage, kRelaxed);
    mSurfaceFps.store(picture.fps, kRelaxed);
    mRenderer.store(0, kRelaxed);
    mSuspended.store(false, kRelaxed);
    mSurfaceFormat.store(picture.format, kRelaxed);
    note(Event::SURFACE_MADE);
}

void ServiceStats::surfaceTaken(pid_t pid) {
    mRenderer.store(pid, kRelaxed);
    note(Event::SURFACE_TAKEN);
}

void ServiceStats::surfaceGone() {
    mSurfaceFormat.store(0, kRelaxed);
    mRenderer.store(0, kRelaxed);
    mSuspended.store(false, kRelaxed);
}

void ServiceStats::setSuspended(bool suspended) {
    mSuspended.store(suspended, kRelaxed);
    note(suspended ? Event::FRAMES_SUSPENDED : Event::FRAMES_RESUMED);
}

void ServiceStats::clientRegistered(uint8_t kind, pid_t pid) {
    if (kind >= kClients) return;
    mClientsSinceMs[kind].store(nowMs(), kRelaxed);
    mClientPids[kind].store(pid, kRelaxed);
    note(Event::CLIENT_REGISTERED, kind);
}

void ServiceStats::clientGone(uint8_t kind, Event how) {
    if (kind >= kClients) return;
    mClientPids[kind].store(0, kRelaxed);
    note(how, kind);
}

void ServiceStats::clientFailed(uint8_t kind) {
    count(Count::CLIENT_CALLS_FAILED);
    note(Event::CLIENT_FAILED, kind);
}

ServiceStats::Picture ServiceStats::mode() const {
    const uint64_t size = mModeSize.load(kRelaxed);
    return {static_cast<uint32_t>(size >> 32), static_cast<uint32_t>(size),
            mModeFormat.load(kRelaxed), framesPerSecond(interval())};
}

BufferState ServiceStats::buffer(size_t index) const {
    return index < kBuffers ? mBuffers[index].load(kRelaxed) : BufferState::NONE;
}

ServiceStats::Picture ServiceStats::surface() const {
    const uint64_t size = mSurfaceSize.load(kRelaxed);
    return {static_cast<uint32_t>(size >> 32), static_cast<uint32_t>(size),
            mSurfaceFormat.load(kRelaxed), mSurfaceFps.load(kRelaxed)};
}

ServiceStats::Client ServiceStats::client(size_t kind) const {
    if (kind >= kClients) return {0, 0};
    return {mClientPids[kind].load(kRelaxed), mClientsSinceMs[kind].load(kRelaxed)};
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
