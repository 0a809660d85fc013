// SPDX-License-Identifier: Apache-2.0
// What clients can't do to the daemon through the producer that it lends them.
#include "uvc/SurfaceProducer.h"

#include <cstdint>
#include <functional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/ProducerWrapperTest.h"

namespace korvane::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int64_t kLongest = SurfaceProducer::kMaxDequeueWaitNs;

/** Notes what the queue's producer is told of times and connections, and passes it on. */
class ProducerSpy : public H2BGraphicBufferProducer {
  public:
    using H2BGraphicBufferProducer::H2BGraphicBufferProducer;

    status_t setDequeueTimeout(nsecs_t timeout) override {
        timeouts.push_back(timeout);
        return H2BGraphicBufferProducer::setDequeueTimeout(timeout);
    }
    status_t connect(const sp<IProducerListener>& producerListener, int api, bool byApp,
                     QueueBufferOutput* output) override {
        connected.push_back(api);
        return H2BGraphicBufferProducer::connect(producerListener, api, byApp, output);
    }
    status_t disconnect(int api, DisconnectMode mode) override {
        disconnected.push_back(api);
        return H2BGraphicBufferProducer::disconnect(api, mode);
    }

    std::vector<nsecs_t> timeouts;
    std::vector<int> connected;
    std::vector<int> disconnected;
};

class SurfaceProducerTest : public ProducerWrapperTest {
  protected:
    SurfaceProducerTest() : spy(new ProducerSpy(wrapper)) { wrap(new SurfaceProducer(spy)); }

    /** A frame of the client's, drawn, acquired and released. */
    void passAFrame() {
        prepareSlot();
        ASSERT_EQ(NO_ERROR, wrappedQueue(goodInput()));
        ASSERT_EQ(NO_ERROR, acquire());
        ASSERT_EQ(NO_ERROR, release(item));
    }

    const sp<ProducerSpy> spy;
};

TEST_F(SurfaceProducerTest, OffersTheQueue) {
    connectClient();
    consumer->setDefaultBufferSize(64, 32);
    passAFrame();
    EXPECT_EQ(1u, item.mFrameNumber);
    EXPECT_EQ(64u, lastBuffer.attr.width);
}

TEST_F(SurfaceProducerTest, BoundsTheWaitForABufferFromTheFirst) {
    EXPECT_THAT(spy->timeouts, ElementsAre(kLongest));
    EXPECT_EQ(1000000000, kLongest);
}

TEST_F(SurfaceProducerTest, BoundsTheWaitThatAClientAsksFor) {
    spy->timeouts.clear();
    for (int64_t timeout :
         {int64_t{0}, int64_t{5}, kLongest, kLongest + 1, INT64_MAX, int64_t{-1}, INT64_MIN}) {
        EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setDequeueTimeout(timeout)));
    }
    EXPECT_THAT(spy->timeouts, ElementsAre(0, 5, kLongest, kLongest, kLongest, kLongest, kLongest));
}

TEST_F(SurfaceProducerTest, ConnectsAnEglClientAsACamera) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    for (int api : {NATIVE_WINDOW_API_EGL, NATIVE_WINDOW_API_CPU, NATIVE_WINDOW_API_MEDIA,
                    NATIVE_WINDOW_API_CAMERA}) {
        EXPECT_EQ(NO_ERROR, wrappedConnect(nullptr, api));
        EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->disconnect(api, HMode::API)));
    }
    const auto asTheQueueKnowsThem = ElementsAre(NATIVE_WINDOW_API_CAMERA, NATIVE_WINDOW_API_CPU,
                                                 NATIVE_WINDOW_API_MEDIA, NATIVE_WINDOW_API_CAMERA);
    EXPECT_THAT(spy->connected, asTheQueueKnowsThem);
    EXPECT_THAT(spy->disconnected, asTheQueueKnowsThem);
}

TEST_F(SurfaceProducerTest, RefusesWhatTheQueueRefuses) {
    EXPECT_EQ(NO_INIT, wrappedConnect(nullptr));
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(BAD_VALUE, wrappedConnect(nullptr, 9));
    EXPECT_EQ(NO_INIT, static_cast<int32_t>(wrapper->disconnect(2, HMode::API)));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->disconnect(2, HMode::ALL_LOCAL)));
}

TEST_F(SurfaceProducerTest, TellsAClientThatWantsToKnowOfReleases) {
    const sp<ClientListener> clientListener = new ClientListener();
    connectClient(clientListener);
    passAFrame();
    EXPECT_EQ(1, clientListener->asked);
    EXPECT_EQ(1, clientListener->released);
}

TEST_F(SurfaceProducerTest, DoesNotTellAClientThatDoesNotWantToKnow) {
    const sp<ClientListener> clientListener = new ClientListener();
    clientListener->wants = false;
    connectClient(clientListener);
    passAFrame();
    EXPECT_EQ(0, clientListener->released);
}

TEST_F(SurfaceProducerTest, AsksAClientWhileTheQueueIsFree) {
    struct Asked : public ClientListener {
        Return<bool> needsReleaseNotify() override {
            wasLocked = isLocked();
            return ClientListener::needsReleaseNotify();
        }
        std::function<bool()> isLocked;
        bool wasLocked = true;
    };
    const sp<Asked> clientListener = new Asked();
    clientListener->isLocked = [this] { return isQueueLocked(); };
    connectClient(clientListener);
    EXPECT_EQ(1, clientListener->asked);
    EXPECT_FALSE(clientListener->wasLocked);
}

// An unread failure of a call to a client ends the process on the phone: none gets as far as there.
TEST_F(SurfaceProducerTest, SurvivesAClientThatIsDeadWhenItConnects) {
    LogRecorder log;
    const sp<DeadListener> dead = new DeadListener();
    connectClient(dead);
    passAFrame();
    EXPECT_THAT(log.lines("LWProducerListener"), IsEmpty());
}

TEST_F(SurfaceProducerTest, SurvivesAClientThatDiesLater) {
    LogRecorder log;
    const sp<DeadListener> dead = new DeadListener();
    dead->diesLater = true;
    connectClient(dead);
    passAFrame();
    EXPECT_THAT(log.lines("LWProducerListener"), IsEmpty());
}

}  // namespace
}  // namespace korvane::test
