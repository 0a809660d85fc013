// SPDX-License-Identifier: Apache-2.0
#include "support/FrameSourceTest.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <gmock/gmock.h>

using android::Fence;
using android::KorBufferSource;
using android::OK;
using android::sp;
using android::status_t;

namespace korvane::test {

testing::Matcher<const std::string&> fatalLine(int site, const std::string& text) {
    return testing::AllOf(testing::HasSubstr("KorBufferSource F "),
                          testing::HasSubstr(" hardware/interfaces/camera/desktop/2.0/default/uvc/"
                                             "KorBufferSource:" +
                                             std::to_string(site) + " " + text + "\n"));
}

testing::Matcher<const std::string&> failedCheck(int site, const std::string& condition) {
    return fatalLine(site, "CHECK(" + condition + ") failed.");
}

testing::Matcher<const std::string&> trespass(int site) {
    return fatalLine(site, "Should not be here. ");
}

bool isClosed(int fd) {
    return fcntl(fd, F_GETFD) == -1 && errno == EBADF;
}

ManualFence::ManualFence() : mEvent(eventfd(0, EFD_CLOEXEC)) {}

sp<Fence> ManualFence::fence() const {
    return new Fence(dup());
}

int ManualFence::dup() const {
    return ::dup(mEvent.get());
}

void ManualFence::signal() {
    ASSERT_EQ(0, eventfd_write(mEvent.get(), 1));
}

FrameSourceTest::FrameSourceTest()
    : source(new KorBufferSource(stats)),
      peer(source.get()),
      queue(QueueSpy::last()),
      producer(queue->producer()) {}

status_t FrameSourceTest::configure(uint32_t fourcc, int maxAcquired) {
    return source->configure(component, maxAcquired, kWidth, kHeight, fourcc,
                             android::GraphicBuffer::USAGE_SW_READ_OFTEN);
}

void FrameSourceTest::prepare(int codecBuffers) {
    ASSERT_EQ(OK, configure());
    for (int id = 0; id < codecBuffers; ++id) ASSERT_EQ(OK, source->onInputBufferAdded(id));
    ASSERT_EQ(OK, producer.connect(4));
    log.clear();
    queue->clear();
}

void FrameSourceTest::start(int codecBuffers) {
    prepare(codecBuffers);
    ASSERT_EQ(OK, source->start());
}

int FrameSourceTest::queueFrame(int64_t timestampNs) {
    FrameProducer::Frame frame;
    frame.timestampNs = timestampNs;
    return producer.queue(frame);
}

std::vector<int> FrameSourceTest::submittedIds() const {
    std::vector<int> result;
    for (const auto& submission : component->submissions()) result.push_back(submission.bufferId);
    return result;
}

std::vector<int64_t> FrameSourceTest::submittedTimes() const {
    std::vector<int64_t> result;
    for (const auto& submission : component->submissions()) {
        result.push_back(submission.timestampUs);
    }
    return result;
}

std::vector<int> FrameSourceTest::freeCodecBuffers() {
    android::CodecBuffers copy = peer.codecBuffers();
    std::vector<int> result;
    while (copy.haveFree()) {
        result.push_back(copy.nextFree());
        copy.lendNext(nullptr);
    }
    return result;
}

}  // namespace korvane::test
