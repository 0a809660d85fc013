// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/AHandlerReflector.h"

#include <future>

#include <gtest/gtest.h>
#include <media/stagefright/foundation/ALooper.h>

namespace {

using android::AHandler;
using android::AHandlerReflector;
using android::ALooper;
using android::AMessage;
using android::RefBase;
using android::sp;
using android::wp;

struct Target : public RefBase {
    void onMessageReceived(const sp<AMessage>& msg) { received.set_value(msg->what()); }
    std::promise<uint32_t> received;
};

struct Barrier : public AHandler {
    std::promise<void> reached;

  protected:
    void onMessageReceived(const sp<AMessage>&) override { reached.set_value(); }
};

TEST(AHandlerReflectorTest, ForwardsMessagesToItsTarget) {
    const sp<Target> target = new Target;
    const sp<AHandlerReflector<Target>> reflector = new AHandlerReflector<Target>(target.get());
    const sp<ALooper> looper = new ALooper;
    looper->registerHandler(reflector);
    looper->start();
    (new AMessage(5, reflector))->post();
    EXPECT_EQ(5u, target->received.get_future().get());
}

TEST(AHandlerReflectorTest, HoldsItsTargetWeakly) {
    sp<Target> target = new Target;
    const wp<Target> weak = target;
    const sp<AHandlerReflector<Target>> reflector = new AHandlerReflector<Target>(target.get());
    target.clear();
    EXPECT_EQ(nullptr, weak.promote());
}

TEST(AHandlerReflectorTest, DropsMessagesOnceItsTargetIsGone) {
    sp<Target> target = new Target;
    const sp<AHandlerReflector<Target>> reflector = new AHandlerReflector<Target>(target.get());
    const sp<Barrier> barrier = new Barrier;
    const sp<ALooper> looper = new ALooper;
    looper->registerHandler(reflector);
    looper->registerHandler(barrier);
    (new AMessage(5, reflector))->post();
    (new AMessage(6, barrier))->post();
    auto received = target->received.get_future();
    target.clear();
    looper->start();
    barrier->reached.get_future().get();
    EXPECT_THROW(received.get(), std::future_error);  // the promise went without being kept
}

}  // namespace
