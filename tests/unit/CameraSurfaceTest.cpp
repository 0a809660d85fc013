// SPDX-License-Identifier: Apache-2.0
#include "uvc/CameraSurface.h"

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/PendingCall.h"
#include "support/StubDesktop.h"

namespace korvane::test {
namespace {

using ::android::KorBufferSource;
using ::android::sp;
using ::android::wp;
using desktop_v2::ClientType;
using ::korvane::hardware::camera::desktop::V2_0::implementation::CameraSurface;
using ::korvane::hardware::camera::desktop::V2_0::implementation::ServiceStats;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/** Notes each surface that it gets, and fails as it is told. */
class Desktop : public StubDesktop {
  public:
    Return<void> setSurface(ClientType type, const SurfaceV1& surface) override {
        EXPECT_EQ(ClientType::WEBCAM_CONTROLLER, type);
        posted.push_back(surface);
        return Return<void>(status);
    }

    std::vector<SurfaceV1> posted;
    ::android::hardware::Status status;
};

const char* refuseNothing(bool /* isCurrent */) {
    return nullptr;
}

class CameraSurfaceTest : public testing::Test {
  protected:
    void makeStats() { stats.surfaceMade({640, 480, 7, 30}, 3); }
    bool statsHaveASurface() const { return stats.surface().format != 0; }

    LogRecorder log;
    ServiceStats stats;
    const sp<Desktop> desktop = new Desktop;
    sp<KorBufferSource> first = new KorBufferSource(stats);
    sp<KorBufferSource> second = new KorBufferSource(stats);
    CameraSurface surface{stats};
};

TEST_F(CameraSurfaceTest, HasNoSourceUntilItGetsOne) {
    EXPECT_EQ(nullptr, surface.source());
    EXPECT_EQ(nullptr, surface.replace(first));
    EXPECT_EQ(first, surface.source());
}

TEST_F(CameraSurfaceTest, ReturnsTheSourceThatIsReplacedAsItsLastOwner) {
    surface.replace(first);
    const wp<KorBufferSource> weak = first;
    first.clear();
    sp<KorBufferSource> replaced = surface.replace(second);
    EXPECT_EQ(weak.promote(), replaced);
    EXPECT_EQ(second, surface.source());
    replaced.clear();
    EXPECT_EQ(nullptr, weak.promote());
}

TEST_F(CameraSurfaceTest, PostsTheProducerOfItsSource) {
    surface.replace(first);
    EXPECT_EQ(nullptr, surface.publish(desktop, first, refuseNothing));
    ASSERT_THAT(desktop->posted, SizeIs(1));
    EXPECT_NE(nullptr, desktop->posted[0]);
    EXPECT_EQ(first, surface.source());
}

TEST_F(CameraSurfaceTest, DoesNotMindAServiceThatTakesNoSurface) {
    desktop->status = ::android::hardware::Status::fromExceptionCode(
            ::android::hardware::Status::EX_TRANSACTION_FAILED);
    surface.replace(first);
    EXPECT_EQ(nullptr, surface.publish(desktop, first, refuseNothing));
    EXPECT_EQ(first, surface.withdraw(desktop));
}

TEST_F(CameraSurfaceTest, DoesNotMindThatThereIsNoService) {
    surface.replace(first);
    EXPECT_EQ(nullptr, surface.publish(nullptr, first, refuseNothing));
    EXPECT_EQ(first, surface.withdraw(nullptr));
}

TEST_F(CameraSurfaceTest, SaysWhetherTheSourceIsStillItsOwnBeforeItIsPosted) {
    std::vector<bool> current;
    const auto note = [&](bool isCurrent) {
        EXPECT_THAT(desktop->posted, SizeIs(current.size()));
        current.push_back(isCurrent);
        return static_cast<const char*>(nullptr);
    };
    surface.replace(first);
    (void)surface.publish(desktop, first, note);
    (void)surface.publish(desktop, second, note);
    EXPECT_THAT(current, ElementsAre(true, false));
}

TEST_F(CameraSurfaceTest, HasNoSourceAfterARefusal) {
    surface.replace(first);
    makeStats();
    EXPECT_STREQ("no", surface.publish(desktop, first, [](bool) { return "no"; }));
    EXPECT_THAT(desktop->posted, IsEmpty());
    EXPECT_EQ(nullptr, surface.source());
    EXPECT_FALSE(statsHaveASurface());
}

TEST_F(CameraSurfaceTest, TakesTheProducerBackFromTheService) {
    surface.replace(first);
    makeStats();
    const wp<KorBufferSource> weak = first;
    first.clear();
    sp<KorBufferSource> withdrawn = surface.withdraw(desktop);
    EXPECT_THAT(desktop->posted, ElementsAre(nullptr));
    EXPECT_EQ(nullptr, surface.source());
    EXPECT_FALSE(statsHaveASurface());
    withdrawn.clear();
    EXPECT_EQ(nullptr, weak.promote());
}

TEST_F(CameraSurfaceTest, TellsTheServiceEvenWithoutASource) {
    EXPECT_EQ(nullptr, surface.withdraw(desktop));
    EXPECT_THAT(desktop->posted, ElementsAre(nullptr));
}

TEST_F(CameraSurfaceTest, HasNoSurfaceForTheStatsWhileOneIsReplaced) {
    makeStats();
    surface.replace(first);
    EXPECT_FALSE(statsHaveASurface());
}

// A stop that comes while the surface is being posted withdraws it, and is the last to tell.
TEST_F(CameraSurfaceTest, IsNotWithdrawnUntilItIsPosted) {
    surface.replace(first);
    std::optional<PendingCall<sp<KorBufferSource>>> stop;
    (void)surface.publish(desktop, first, [&](bool) {
        stop.emplace([this] { return surface.withdraw(desktop); });
        EXPECT_TRUE(stop->isHeldUp());
        return static_cast<const char*>(nullptr);
    });
    EXPECT_EQ(first, stop->get());
    ASSERT_THAT(desktop->posted, SizeIs(2));
    EXPECT_NE(nullptr, desktop->posted[0]);
    EXPECT_EQ(nullptr, desktop->posted[1]);
}

}  // namespace
}  // namespace korvane::test
