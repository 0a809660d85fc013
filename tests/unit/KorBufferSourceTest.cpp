// SPDX-License-Identifier: Apache-2.0
// The life of a frame source: made, configured, offered, started, ended.
#include "uvc/KorBufferSource.h"

#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FrameSourceTest.h"

namespace {

using android::BAD_VALUE;
using android::FrameActions;
using android::FrameRepetition;
using android::FrameTimes;
using android::INVALID_OPERATION;
using android::KorBufferSource;
using android::NO_INIT;
using android::OK;
using android::sp;
using korvane::test::failedCheck;
using korvane::test::FrameSourceTest;
using korvane::test::LogLine;
using korvane::test::QueueSpy;
using korvane::test::trespass;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class KorBufferSourceTest : public FrameSourceTest {
  protected:
    /** Starts, and sees whether a frame comes to the component. */
    bool lendsToItsComponent() {
        EXPECT_EQ(OK, source->onInputBufferAdded(0));
        EXPECT_EQ(OK, producer.connect());
        EXPECT_EQ(OK, source->start());
        EXPECT_GE(queueFrame(1 * kMs), 0);
        return !component->submissions().empty();
    }
};
using KorBufferSourceDeathTest = FrameSourceTest;

TEST_F(KorBufferSourceTest, ConnectsToItsQueueUnderItsNameAndNotForAnApplication) {
    EXPECT_FALSE(queue->isCompositors);
    EXPECT_THAT(queue->calls(), ElementsAre("consumerConnect", "setConsumerName"));
    EXPECT_FALSE(queue->controlledByApp);
    EXPECT_EQ("KorBufferSource", queue->name);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KorBufferSourceTest, ANewOneHasNothingAndDoesNothing) {
    EXPECT_EQ(State::IDLE, peer.state());
    EXPECT_FALSE(peer.actions().isSuspended());
    EXPECT_FALSE(peer.repetition().isOn());
    EXPECT_THAT(peer.availableBuffers(), IsEmpty());
    EXPECT_EQ(0, peer.unacquiredCount());
    EXPECT_EQ(0, peer.outstandingAcquires());
    EXPECT_THAT(freeCodecBuffers(), IsEmpty());
    EXPECT_EQ(-1, peer.lastFrameTimestampUs());
}

TEST_F(KorBufferSourceTest, StaysWithoutAQueueWhenConnectingFails) {
    QueueSpy::failInTheNextQueue("consumerConnect", NO_INIT);
    sp<KorBufferSource> unconnected = new KorBufferSource(stats);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       std::string("Error connecting to BufferQueue: ") + strerror(19) + " (-19)"));
    EXPECT_THAT(QueueSpy::last()->calls(), ElementsAre("consumerConnect"));
    unconnected.clear();
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "consumerDisconnect failed: -22"));
}

TEST_F(KorBufferSourceTest, RefusesAConfigurationWithoutAComponent) {
    queue->clear();
    EXPECT_EQ(BAD_VALUE, source->configure(nullptr, 4, kWidth, kHeight, kNv12, 0));
    EXPECT_THAT(queue->calls(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KorBufferSourceTest, RefusesABufferCountThatTheQueueRefuses) {
    queue->clear();
    EXPECT_EQ(BAD_VALUE, configure(kNv12, 0));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "Unable to set BQ max acquired buffer count to 0: -22"}));
    EXPECT_THAT(queue->calls(), ElementsAre("setMaxAcquiredBufferCount"));
    EXPECT_FALSE(lendsToItsComponent());
}

TEST_F(KorBufferSourceTest, RefusesASizeThatTheQueueRefusesButKeepsTheComponent) {
    queue->clear();
    EXPECT_EQ(BAD_VALUE, source->configure(component, 4, 0, kHeight, kNv12, 0));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "Unable to set BQ default buffer size to 0x32: -22"}));
    EXPECT_THAT(queue->calls(), ElementsAre("setMaxAcquiredBufferCount", "setDefaultBufferSize"));
    EXPECT_TRUE(lendsToItsComponent());
}

TEST_F(KorBufferSourceTest, TellsTheQueueItsConfigurationInOrder) {
    queue->clear();
    ASSERT_EQ(OK, source->configure(component, 3, 1280, 720, kNv12, 0x33));
    EXPECT_THAT(queue->calls(), ElementsAre("setMaxAcquiredBufferCount", "setDefaultBufferSize",
                                            "setConsumerUsageBits", "setDefaultBufferFormat",
                                            "setDefaultBufferDataSpace"));
    EXPECT_EQ(3, queue->maxAcquired);
    EXPECT_EQ(1280u, queue->width);
    EXPECT_EQ(720u, queue->height);
    EXPECT_EQ(0x33u, queue->usage);
}

TEST_F(KorBufferSourceTest, OffersJfifBlobsForMjpeg) {
    ASSERT_EQ(OK, configure(kMjpg));
    EXPECT_EQ(33, queue->format);
    EXPECT_EQ(0x8C20000u, queue->dataSpace);
    EXPECT_EQ(0x8C20000u, peer.lastDataSpace());
    EXPECT_THAT(log.lines(kTag), ElementsAre(LogLine{ANDROID_LOG_DEBUG, kTag,
                                                     "setting dataspace: 0x8c20000, acquired=0"}));
}

TEST_F(KorBufferSourceTest, OffersBt2020BlobsForH264) {
    ASSERT_EQ(OK, configure(kH264));
    EXPECT_EQ(33, queue->format);
    EXPECT_EQ(0x10C60000u, queue->dataSpace);
}

TEST_F(KorBufferSourceTest, OffersBt2020PlanesForNv12) {
    ASSERT_EQ(OK, configure(kNv12));
    EXPECT_EQ(35, queue->format);
    EXPECT_EQ(0x10C60000u, queue->dataSpace);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "setting dataspace: 0x10c60000, acquired=0"));
}

TEST_F(KorBufferSourceTest, RefusesEveryOtherFormatButKeepsTheComponent) {
    queue->clear();
    EXPECT_EQ(BAD_VALUE, configure(0x56595559));  // YUYV
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "configure: Unsupported format: 1448695129"},
                            LogLine{ANDROID_LOG_ERROR, kTag,
                                    "Failed to configure surface default format ret: -22"}));
    EXPECT_EQ(0u, queue->count("setDefaultBufferFormat"));
    EXPECT_EQ(0u, queue->count("setDefaultBufferDataSpace"));
    EXPECT_TRUE(lendsToItsComponent());
}

TEST_F(KorBufferSourceTest, PassesOnThatTheQueueRefusesTheFormat) {
    queue->setResult("setDefaultBufferFormat", NO_INIT);
    EXPECT_EQ(NO_INIT, configure());
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "Failed to configure surface default format ret: -19"}));
    EXPECT_EQ(0u, queue->count("setDefaultBufferDataSpace"));
}

TEST_F(KorBufferSourceTest, IgnoresThatUsageAndDataspaceAreRefused) {
    queue->setResult("setConsumerUsageBits", NO_INIT);
    queue->setResult("setDefaultBufferDataSpace", NO_INIT);
    EXPECT_EQ(OK, configure());
}

// The queue does so when it gives up slots.
TEST_F(KorBufferSourceTest, CanBeCalledBackWhileItSetsTheBufferCount) {
    queue->duringCall = [this](const std::string& name) {
        if (name == "setMaxAcquiredBufferCount") source->onBuffersReleased();
    };
    EXPECT_EQ(OK, configure());
    EXPECT_EQ(1u, queue->count("getReleasedBuffers"));
}

TEST_F(KorBufferSourceTest, ForgetsItsPacingWhenConfigured) {
    prepare(2);
    peer.times() = FrameTimes(stats, {.skipFramesBeforeNs = 100 * kMs, .inputTimeOffsetUs = 7});
    ASSERT_EQ(OK, peer.times().setMaxFps(1));
    peer.actions() = FrameActions(7);
    peer.actions().setSuspended(true);
    peer.repetition() = FrameRepetition(1);
    peer.repetition().setLatest({nullptr, 1, 2, 3});
    for (State state : {State::EXECUTING, State::ENDING, State::ENDED}) {
        peer.state() = state;
        ASSERT_EQ(OK, configure());
        EXPECT_EQ(State::IDLE, peer.state());
    }
    EXPECT_FALSE(peer.actions().isSuspended());
    EXPECT_FALSE(peer.actions().isStopPending());
    EXPECT_FALSE(peer.repetition().isOn());
    EXPECT_EQ(0, peer.repetition().latest().mTimestampNs);
    ASSERT_EQ(OK, source->start());
    for (int64_t ms : {1, 2}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000));
}

TEST_F(KorBufferSourceTest, KeepsItsPacingWhenItsConfigurationFails) {
    peer.state() = State::EXECUTING;
    peer.times() = FrameTimes(stats, {.skipFramesBeforeNs = 7});
    peer.actions() = FrameActions(7);
    peer.actions().setSuspended(true);
    peer.repetition() = FrameRepetition(7);
    const auto expectKept = [&](const char* why) {
        EXPECT_EQ(State::EXECUTING, peer.state()) << why;
        int64_t timeNs = 6;
        EXPECT_TRUE(peer.times().skip(&timeNs)) << why;
        EXPECT_TRUE(peer.actions().isSuspended()) << why;
        EXPECT_TRUE(peer.actions().isStopPending()) << why;
        EXPECT_EQ(7, peer.repetition().intervalUs()) << why;
    };
    EXPECT_EQ(BAD_VALUE, source->configure(nullptr, 4, kWidth, kHeight, kNv12, 0));
    expectKept("no component");
    EXPECT_EQ(BAD_VALUE, configure(kNv12, 0));
    expectKept("a refused count");
    EXPECT_EQ(BAD_VALUE, source->configure(component, 4, 0, kHeight, kNv12, 0));
    expectKept("a refused size");
    EXPECT_EQ(BAD_VALUE, configure(0x56595559));
    expectKept("an unknown format");
    queue->setResult("setDefaultBufferFormat", NO_INIT);
    EXPECT_EQ(NO_INIT, configure());
    expectKept("a refused format");
}

TEST_F(KorBufferSourceTest, LendsToTheComponentOfItsLastConfiguration) {
    const sp<korvane::test::RecordingComponent> second = new korvane::test::RecordingComponent;
    prepare(1);
    ASSERT_EQ(OK, source->configure(second, 4, kWidth, kHeight, kNv12, 0));
    ASSERT_EQ(OK, source->start());
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(1u, second->submissions().size());
    EXPECT_THAT(component->submissions(), IsEmpty());
}

TEST_F(KorBufferSourceTest, KeepsCodecBuffersAndParkedFramesWhenConfiguredAgain) {
    prepare(1);
    ASSERT_GE(queueFrame(5 * kMs), 0);
    ASSERT_EQ(OK, configure());
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "setting dataspace: 0x10c60000, acquired=1"));
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(submittedTimes(), ElementsAre(5000));
}

TEST_F(KorBufferSourceTest, TakesCodecBuffersOnlyBeforeItIsStarted) {
    start(1);
    EXPECT_EQ(INVALID_OPERATION, source->onInputBufferAdded(1));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "addCodecBuffer: buffer added while executing"}));
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
}

TEST_F(KorBufferSourceDeathTest, AbortsWhenStartedTwice) {
    start(1);
    EXPECT_DEATH((void)source->start(), failedCheck(421, "!mExecuting"));
}

TEST_F(KorBufferSourceTest, LendsTheParkedFramesWhenStarted) {
    prepare(2);
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(component->submissions(), IsEmpty());
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(submittedIds(), ElementsAre(0, 1));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000));
    EXPECT_EQ(1u, peer.availableBuffers().size());
}

TEST_F(KorBufferSourceTest, GivesFramesBackWhenStartedWithoutAConfiguration) {
    ASSERT_EQ(OK, source->start());
    ASSERT_EQ(OK, producer.connect());
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(1u, queue->releases().size());
    EXPECT_EQ(0, peer.unacquiredCount());
}

TEST_F(KorBufferSourceTest, StartsNoLooperUnlessItRepeats) {
    prepare(1);
    peer.repetition() = FrameRepetition(0);
    ASSERT_EQ(OK, source->start());
    EXPECT_EQ(nullptr, peer.looper());
}

TEST_F(KorBufferSourceTest, DisconnectsFromItsQueueAtItsEnd) {
    start(1);
    source.clear();
    EXPECT_EQ(1u, queue->count("consumerDisconnect"));
    EXPECT_EQ(NO_INIT, queueFrame(0));
    EXPECT_THAT(log.lines(kTag), IsEmpty());
}

TEST_F(KorBufferSourceTest, ReleasesAllFramesAtItsEnd) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);  // lent
    peer.codecBuffers().add(1);
    peer.repetition() = FrameRepetition(1000);
    ASSERT_GE(queueFrame(2 * kMs), 0);  // lent, and the latest
    peer.state() = State::IDLE;
    ASSERT_GE(queueFrame(3 * kMs), 0);  // parked
    EXPECT_EQ(3, peer.outstandingAcquires());
    EXPECT_THAT(queue->releases(), IsEmpty());
    source.clear();
    EXPECT_EQ(3u, queue->releases().size());
    for (const auto& release : queue->releases()) EXPECT_EQ(OK, release.result);
}

TEST_F(KorBufferSourceTest, LogsThatDisconnectingFails) {
    queue->setResult("consumerDisconnect", BAD_VALUE);
    source.clear();
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "consumerDisconnect failed: -22"}));
}

TEST_F(KorBufferSourceDeathTest, AbortsWhenItEndsWhileAFrameIsHeld) {
    prepare(1);
    ASSERT_GE(queueFrame(0), 0);
    queue->setResult("consumerDisconnect", BAD_VALUE);  // which would be logged if it was called
    EXPECT_DEATH(
            {
                __android_log_set_logger(__android_log_stderr_logger);
                const auto held = peer.availableBuffers().front().mBuffer;
                source.clear();
            },
            AllOf(HasSubstr("KorBufferSource W "),
                  HasSubstr(" potential buffer leak: acquired=1\n"), trespass(388),
                  Not(HasSubstr("consumerDisconnect"))));
}

TEST_F(KorBufferSourceTest, IgnoresItsQueueOnceItIsGone) {
    start(1);
    source.clear();
    queue->clear();
    queue->listener->onFrameAvailable(android::BufferItem());
    queue->listener->onBuffersReleased();
    queue->listener->onSidebandStreamChanged();
    EXPECT_THAT(queue->calls(), IsEmpty());
}

// As when the queue is just calling while the last reference drops.
TEST_F(KorBufferSourceTest, IgnoresACallbackOnItsWayOnceItIsGone) {
    const sp<android::BufferQueue::ConsumerListener> onItsWay = peer.consumerProxy();
    source.clear();
    queue->clear();
    onItsWay->onFrameAvailable(android::BufferItem());
    onItsWay->onBuffersReleased();
    onItsWay->onSidebandStreamChanged();
    EXPECT_THAT(queue->calls(), IsEmpty());
}

TEST_F(KorBufferSourceTest, IsNotKeptAliveByItsQueue) {
    const android::wp<KorBufferSource> weak = source;
    source.clear();
    EXPECT_EQ(nullptr, weak.promote());
}

TEST_F(KorBufferSourceTest, IgnoresTheRestOfWhatTheQueueTells) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    queue->clear();
    queue->listener->onSidebandStreamChanged();
    queue->listener->onDisconnect();
    queue->listener->onFrameReplaced(android::BufferItem());
    EXPECT_THAT(queue->calls(), IsEmpty());
    EXPECT_THAT(peer.unacquiredCount(), 0);
}

// The endpoint.

std::string nameOf(const sp<KorBufferSource::HGraphicBufferProducer>& endpoint) {
    std::string result;
    EXPECT_TRUE(endpoint->getConsumerName([&](const auto& name) { result = name; }).isOk());
    return result;
}

int32_t queryOf(const sp<KorBufferSource::HGraphicBufferProducer>& endpoint, int what) {
    int32_t result = -1;
    EXPECT_TRUE(endpoint->query(what, [&](int32_t, int32_t value) { result = value; }).isOk());
    return result;
}

TEST_F(KorBufferSourceTest, LogsTheNameOfTheQueueThatItOffers) {
    const LogLine line{ANDROID_LOG_DEBUG, kTag, "Getting producer with name: KorBufferSource"};
    source->getHGraphicBufferProducer_V1_0();
    EXPECT_THAT(log.lines(kTag), ElementsAre(line));
    ASSERT_EQ(OK, producer.connect());
    source->getHGraphicBufferProducer_V1_0();
    EXPECT_THAT(log.lines(kTag), ElementsAre(line, line));
}

TEST_F(KorBufferSourceTest, OffersNewEndpointsOfItsOneQueue) {
    ASSERT_EQ(OK, configure());
    const auto first = source->getHGraphicBufferProducer_V1_0();
    const auto second = source->getHGraphicBufferProducer_V1_0();
    EXPECT_NE(first, second);
    ASSERT_EQ(OK, producer.connect());
    EXPECT_EQ("KorBufferSource", nameOf(first));
    EXPECT_EQ("KorBufferSource", nameOf(second));
}

TEST_F(KorBufferSourceTest, OffersWhatItWasConfiguredTo) {
    ASSERT_EQ(OK, configure(kNv12, 5));
    const auto endpoint = source->getHGraphicBufferProducer_V1_0();
    EXPECT_EQ(static_cast<int32_t>(kWidth), queryOf(endpoint, 0));
    EXPECT_EQ(static_cast<int32_t>(kHeight), queryOf(endpoint, 1));
    EXPECT_EQ(35, queryOf(endpoint, 2));
    EXPECT_EQ(5, queryOf(endpoint, 3));
    EXPECT_EQ(3, queryOf(endpoint, 10));
    EXPECT_EQ(0x10C60000, queryOf(endpoint, 12));
}

TEST_F(KorBufferSourceTest, LeavesItsEndpointsAQueueWithoutAConsumer) {
    ASSERT_EQ(OK, configure());
    const auto endpoint = source->getHGraphicBufferProducer_V1_0();
    source.clear();
    int32_t status = OK;
    ASSERT_TRUE(endpoint->query(0, [&](int32_t result, int32_t) { status = result; }).isOk());
    EXPECT_EQ(NO_INIT, status);
}

}  // namespace
