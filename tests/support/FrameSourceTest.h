// SPDX-License-Identifier: Apache-2.0
// What the tests of the frame source share: a source, its queue, and both its neighbours.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/FrameProducer.h"
#include "support/KorBufferSourcePeer.h"
#include "support/LogRecorder.h"
#include "support/QueueSpy.h"
#include "support/RecordingComponent.h"
#include "uvc/KorBufferSource.h"

namespace korvane::test {

/** What the source's fatal checks write, matched in the output of a death test. */
testing::Matcher<const std::string&> fatalLine(int site, const std::string& text);
testing::Matcher<const std::string&> failedCheck(int site, const std::string& condition);
testing::Matcher<const std::string&> trespass(int site);

/** Whether the descriptor has been closed. */
bool isClosed(int fd);

/** A fence that signals when told to. */
class ManualFence {
  public:
    ManualFence();
    /** A fence on a descriptor of its own. */
    android::sp<android::Fence> fence() const;
    /** Another descriptor for it, owned by the caller. */
    int dup() const;
    void signal();

  private:
    android::base::unique_fd mEvent;
};

class FrameSourceTest : public testing::Test {
  protected:
    using State = android::KorBufferSourcePeer::State;

    static constexpr char kTag[] = "KorBufferSource";
    static constexpr uint32_t kMjpg = 0x47504A4D;
    static constexpr uint32_t kH264 = 0x34363248;
    static constexpr uint32_t kNv12 = 0x3231564E;
    static constexpr uint32_t kWidth = 64;
    static constexpr uint32_t kHeight = 32;
    /** The dataspace of NV12, and so of frames that don't specify one. */
    static constexpr uint32_t kDataSpace = 0x10C60000;
    static constexpr int64_t kMs = 1000000;  // in nanoseconds

    /** The frame source is new, and its log is empty. */
    FrameSourceTest();

    android::status_t configure(uint32_t fourcc = kNv12, int maxAcquired = 4);
    /** Configures, adds codec buffers 0, 1, ..., connects the producer. */
    void prepare(int codecBuffers);
    /** The same, then starts. */
    void start(int codecBuffers);

    /** Queues a frame with this timestamp. */
    int queueFrame(int64_t timestampNs);

    /** The ids and the times, in microseconds, of what the component was given. */
    std::vector<int> submittedIds() const;
    std::vector<int64_t> submittedTimes() const;

    /** The codec buffers that are free, the next to be lent first. */
    std::vector<int> freeCodecBuffers();

    bool logged(android_LogPriority priority, const std::string& message) const {
        return log.has(priority, kTag, message);
    }

    LogRecorder log;
    android::KorBufferSource::ServiceStats stats;
    android::sp<android::KorBufferSource> source;
    android::KorBufferSourcePeer peer;
    android::sp<QueueSpy> queue;
    android::sp<RecordingComponent> component = new RecordingComponent;
    FrameProducer producer;
};

}  // namespace korvane::test
