// SPDX-License-Identifier: Apache-2.0
// What the controller's callback hands on, seen from within the controller.
#include "uvc/CamDesktopCallback.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/DaemonWorld.h"
#include "uvc/UvcGadgetHandler.h"

using ::korvane::hardware::camera::desktop::V2_0::implementation::CamDesktopCallback;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcGadgetHandler;

namespace {

UvcGadgetHandler* sHandler = nullptr;
std::vector<std::string> sCommands;
std::string sReply;

}  // namespace

// The linker sends the callback's calls of UvcGadgetHandler::handleCommand here (--wrap).
std::string handleCommand(UvcGadgetHandler*, const std::string&) __asm__("__wrap_" HANDLE_COMMAND);
std::string handleCommand(UvcGadgetHandler* handler, const std::string& command) {
    sHandler = handler;
    sCommands.push_back(command);
    return sReply;
}

namespace korvane::test {
namespace {

TEST(CamDesktopCallbackTest, HandsTextsOnWholeAndRepliesOnce) {
    DaemonWorld world;
    if (!world.available()) GTEST_SKIP() << world.whyNot();
    const android::sp<UvcGadgetHandler> handler = world.createController();
    const std::string command("{}\0more", 7);
    sReply = std::string("\0reply", 6);
    const android::sp<CamDesktopCallback> callback = new CamDesktopCallback(handler.get());
    std::vector<std::string> replies;
    const auto status =
            callback->onCommand(command, [&](const auto& reply) { replies.emplace_back(reply); });
    EXPECT_TRUE(status.isOk());
    EXPECT_EQ(handler.get(), sHandler);
    EXPECT_THAT(sCommands, testing::ElementsAre(command));
    EXPECT_THAT(replies, testing::ElementsAre(sReply));
}

}  // namespace
}  // namespace korvane::test
