// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/AMessage.h"

#include <cerrno>
#include <future>
#include <string>

#include <gtest/gtest.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>

#include "support/LogRecorder.h"

namespace {

using android::AHandler;
using android::ALooper;
using android::AMessage;
using android::AString;
using android::OK;
using android::RefBase;
using android::sp;
using korvane::test::LogRecorder;

class FirstMessage : public AHandler {
  public:
    sp<AMessage> wait() { return mMessage.get_future().get(); }

  protected:
    void onMessageReceived(const sp<AMessage>& msg) override { mMessage.set_value(msg); }

  private:
    std::promise<sp<AMessage>> mMessage;
};

TEST(AMessageTest, FindsValuesByNameAndType) {
    const sp<AMessage> msg = new AMessage;
    const sp<RefBase> object = new AMessage;
    msg->setInt32("int32", -7);
    msg->setInt64("int64", INT64_MIN);
    msg->setString("string", "text");
    msg->setString("part", "text", 2);
    msg->setString("other", AString("other text"));
    msg->setObject("object", object);

    int32_t int32 = 0;
    int64_t int64 = 0;
    AString text;
    sp<RefBase> found;
    EXPECT_TRUE(msg->findInt32("int32", &int32));
    EXPECT_EQ(-7, int32);
    EXPECT_TRUE(msg->findInt64("int64", &int64));
    EXPECT_EQ(INT64_MIN, int64);
    EXPECT_TRUE(msg->findString("string", &text));
    EXPECT_STREQ("text", text.c_str());
    EXPECT_TRUE(msg->findString("part", &text));
    EXPECT_STREQ("te", text.c_str());
    EXPECT_TRUE(msg->findString("other", &text));
    EXPECT_STREQ("other text", text.c_str());
    EXPECT_TRUE(msg->findObject("object", &found));
    EXPECT_EQ(object, found);
}

TEST(AMessageTest, LeavesTheResultAloneWhenTheTypeIsAnother) {
    const sp<AMessage> msg = new AMessage;
    msg->setInt32("value", 5);
    int64_t int64 = 11;
    AString text("untouched");
    EXPECT_FALSE(msg->findInt64("value", &int64));
    EXPECT_EQ(11, int64);
    EXPECT_FALSE(msg->findString("value", &text));
    EXPECT_STREQ("untouched", text.c_str());
}

TEST(AMessageTest, DoesNotFindAnUnknownName) {
    const sp<AMessage> msg = new AMessage;
    msg->setInt32("value", 5);
    int32_t int32 = 11;
    EXPECT_FALSE(msg->findInt32("valu", &int32));
    EXPECT_EQ(11, int32);
    EXPECT_FALSE(msg->contains("valu"));
    EXPECT_TRUE(msg->contains("value"));
}

TEST(AMessageTest, ReplacesValueAndTypeOfAName) {
    const sp<AMessage> msg = new AMessage;
    msg->setInt32("value", 5);
    msg->setInt64("value", 6);
    int32_t int32 = 0;
    int64_t int64 = 0;
    EXPECT_FALSE(msg->findInt32("value", &int32));
    EXPECT_TRUE(msg->findInt64("value", &int64));
    EXPECT_EQ(6, int64);
}

TEST(AMessageTest, ClearsItsValuesAndKeepsWhatHappened) {
    const sp<AMessage> msg = new AMessage(9, nullptr);
    msg->setInt32("value", 5);
    msg->clear();
    EXPECT_FALSE(msg->contains("value"));
    EXPECT_EQ(9u, msg->what());
}

TEST(AMessageTest, HoldsAnObjectWhileItLives) {
    sp<RefBase> object = new AMessage;
    const android::wp<RefBase> weak = object;
    sp<AMessage> msg = new AMessage;
    msg->setObject("object", object);
    object.clear();
    EXPECT_NE(nullptr, weak.promote());
    msg.clear();
    EXPECT_EQ(nullptr, weak.promote());
}

TEST(AMessageDeathTest, RefusesMoreThan256Values) {
    const sp<AMessage> msg = new AMessage;
    for (int i = 0; i < 256; ++i) msg->setInt32(std::to_string(i).c_str(), i);
    msg->setInt32("0", 1000);  // no further one
    EXPECT_DEATH(msg->setInt32("256", 256), "CHECK");
}

TEST(AMessageTest, CannotBePostedWithoutATarget) {
    const sp<AMessage> msg = new AMessage;
    EXPECT_EQ(-ENOENT, msg->post());
}

TEST(AMessageTest, CannotBePostedToAHandlerThatWasRegisteredLater) {
    const sp<FirstMessage> handler = new FirstMessage;
    const sp<AMessage> msg = new AMessage(0, handler);
    const sp<ALooper> looper = new ALooper;
    looper->registerHandler(handler);
    EXPECT_EQ(-ENOENT, msg->post());
    msg->setTarget(handler);
    EXPECT_EQ(OK, msg->post());
}

TEST(AMessageTest, CannotBePostedOnceTheLooperIsGone) {
    LogRecorder log;
    const sp<FirstMessage> handler = new FirstMessage;
    sp<ALooper> looper = new ALooper;
    const int32_t id = looper->registerHandler(handler);
    const sp<AMessage> msg = new AMessage(0, handler);
    looper.clear();
    EXPECT_EQ(-ENOENT, msg->post());
    EXPECT_TRUE(log.has(ANDROID_LOG_WARN, "AMessage",
                        "failed to post message as target looper for handler " +
                                std::to_string(id) + " is gone."));
}

TEST(AMessageTest, IsDroppedWithAWarningWhenItsHandlerIsGone) {
    LogRecorder log;
    sp<FirstMessage> handler = new FirstMessage;
    const sp<ALooper> looper = new ALooper;
    const int32_t id = looper->registerHandler(handler);
    const sp<AMessage> msg = new AMessage(0, handler);
    handler.clear();
    EXPECT_EQ(OK, msg->post());
    looper->start();
    EXPECT_TRUE(log.waitFor(
            ANDROID_LOG_WARN, "AMessage",
            "failed to deliver message as target handler " + std::to_string(id) + " is gone."));
}

TEST(AMessageTest, ArrivesAsItWasPosted) {
    const sp<FirstMessage> handler = new FirstMessage;
    const sp<ALooper> looper = new ALooper;
    looper->registerHandler(handler);
    looper->start();
    const sp<AMessage> msg = new AMessage(17, handler);
    msg->setInt32("generation", 3);
    EXPECT_EQ(OK, msg->post());
    const sp<AMessage> received = handler->wait();
    int32_t generation = 0;
    EXPECT_EQ(17u, received->what());
    EXPECT_TRUE(received->findInt32("generation", &generation));
    EXPECT_EQ(3, generation);
}

}  // namespace
