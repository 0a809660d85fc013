// SPDX-License-Identifier: Apache-2.0
// What the service holds and lets go of: clients that die, are replaced, call back, and its own
// end.

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <log/log.h>

#include "support/CameraDesktopTest.h"
#include "support/StubProducer.h"

namespace korvane::test {
namespace {

class CameraDesktopLifeTest : public CameraDesktopTest {};

TEST_F(CameraDesktopLifeTest, FollowsTheDeathOfAClientUnderItsKind) {
    const sp<RecordingClient> client = new RecordingClient("");
    registerClient(5, client);
    EXPECT_EQ(client->deathLinks(), std::vector<uint64_t>{5});
}

TEST_F(CameraDesktopLifeTest, FollowsTheDeathOfAClientUnderEachOfItsKinds) {
    const sp<RecordingClient> client = new RecordingClient("both");
    registerClient(1, client);
    registerClient(3, client);
    client->die();
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Service died for 1"));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Service died for 3"));
    EXPECT_EQ(send(1), "");
    EXPECT_EQ(send(3), "");
}

TEST_F(CameraDesktopLifeTest, KeepsAClientWhoseDeathItCannotFollow) {
    const sp<RecordingClient> client = new RecordingClient("still here");
    client->refuseDeathLinks();
    registerClient(2, client);
    EXPECT_EQ(send(2), "still here");
}

TEST_F(CameraDesktopLifeTest, TheDeathOfAReplacedClientClearsItsSuccessorToo) {
    const sp<RecordingClient> first = new RecordingClient("first");
    const sp<RecordingClient> second = new RecordingClient("second");
    registerClient(3, first);
    registerClient(3, second);
    setSurface(3, makeSurface());
    EXPECT_FALSE(first->wasUnlinked());
    first->die();
    EXPECT_EQ(send(3), "");
    EXPECT_EQ(surface(3), nullptr);
}

TEST_F(CameraDesktopLifeTest, TheDeathOfAClientThatWasClearedStillClearsTheKind) {
    const sp<RecordingClient> client = new RecordingClient("");
    registerClient(3, client);
    registerClient(3, nullptr);
    setSurface(3, makeSurface());
    EXPECT_FALSE(client->wasUnlinked());
    client->die();
    EXPECT_EQ(surface(3), nullptr);
}

TEST_F(CameraDesktopLifeTest, ReplacingAClientLetsGoOfTheOldOne) {
    sp<RecordingClient> client = new RecordingClient("");
    const wp<RecordingClient> watched = client;
    registerClient(3, client);
    client.clear();
    ASSERT_NE(watched.promote(), nullptr);
    registerClient(3, nullptr);
    EXPECT_EQ(watched.promote(), nullptr);
}

TEST_F(CameraDesktopLifeTest, AClientMayLeaveWhileItAnswers) {
    wp<RecordingClient> watched;
    sp<RecordingClient> client = new RecordingClient([&](const std::string&) {
        registerClient(3, nullptr);
        return watched.promote() != nullptr ? "held until it has answered" : "freed";
    });
    watched = client;
    registerClient(3, client);
    client.clear();
    EXPECT_EQ(send(3), "held until it has answered");
    EXPECT_EQ(watched.promote(), nullptr);
    EXPECT_EQ(send(3), "");
}

TEST_F(CameraDesktopLifeTest, AClientMayUseTheServiceWhileItAnswers) {
    const sp<Surface> posted = makeSurface();
    registerClient(1, new RecordingClient("one"));
    registerClient(3, new RecordingClient([&](const std::string& command) {
                       setSurface(3, posted);
                       return command + " " + send(1).value_or("nothing");
                   }));
    EXPECT_EQ(send(3, "three and"), "three and one");
    EXPECT_EQ(surface(3), posted);
}

TEST_F(CameraDesktopLifeTest, AClientMayUseTheServiceWhenItIsLetGoOf) {
    class LeavingClient : public RecordingClient {
      public:
        explicit LeavingClient(CameraDesktop& service) : RecordingClient(""), mService(service) {}
        ~LeavingClient() override {
            EXPECT_TRUE(mService.setSurface(static_cast<ClientType>(3), nullptr).isOk());
        }

      private:
        CameraDesktop& mService;
    };
    setSurface(3, makeSurface());
    registerClient(3, new LeavingClient(*mService));
    registerClient(3, new LeavingClient(*mService));
    EXPECT_EQ(surface(3), nullptr);
    registerClient(3, nullptr);
    registerClient(3, new LeavingClient(*mService));
    mService->serviceDied(3, nullptr);
    EXPECT_EQ(send(3), "");
}

TEST_F(CameraDesktopLifeTest, ReplacingASurfaceLetsGoOfTheOldOne) {
    const wp<Surface> watched = [this] {
        const sp<Surface> posted = makeSurface();
        setSurface(4, posted);
        return wp<Surface>(posted);
    }();
    ASSERT_NE(watched.promote(), nullptr);
    setSurface(4, makeSurface());
    EXPECT_EQ(watched.promote(), nullptr);
}

TEST_F(CameraDesktopLifeTest, ADeadClientsCallbackAndSurfaceGo) {
    registerClient(3, new RecordingClient("three"));
    registerClient(1, new RecordingClient("one"));
    setSurface(3, makeSurface());
    setSurface(1, makeSurface());
    mService->serviceDied(3, nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Service died for 3"));
    EXPECT_EQ(send(3), "");
    EXPECT_EQ(surface(3), nullptr);
    EXPECT_EQ(send(1), "one");
    EXPECT_NE(surface(1), nullptr);
}

TEST_F(CameraDesktopLifeTest, OnlyTheLowEightBitsOfADeathsCookieCount) {
    registerClient(3, new RecordingClient("three"));
    mService->serviceDied(0x103, nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Service died for 259"));
    EXPECT_EQ(send(3), "");
    mService->serviceDied(UINT64_MAX, nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Service died for 18446744073709551615"));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, kTag, "Invalid client id: 255"));
}

TEST_F(CameraDesktopLifeTest, TheDeathOfAnUnknownKindClearsNothing) {
    registerClient(0, new RecordingClient("zero"));
    mService->serviceDied(8, nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, kTag, "Invalid client id: 8"));
    EXPECT_EQ(send(0), "zero");
}

// Says under its name that it is destroyed.
class Farewell {
  public:
    explicit Farewell(std::string name) : mName(std::move(name)) {}
    ~Farewell() { __android_log_write(ANDROID_LOG_VERBOSE, kFarewell, mName.c_str()); }
    static constexpr char kFarewell[] = "farewell";

  private:
    const std::string mName;
};

TEST_F(CameraDesktopLifeTest, LetsGoOfItsControllerFirstAndOfTheOutputSurfaceLast) {
    struct Client : RecordingClient, Farewell {
        explicit Client(int kind)
            : RecordingClient(""), Farewell("callback " + std::to_string(kind)) {}
    };
    struct Producer : StubProducer, Farewell {
        explicit Producer(int kind) : Farewell("surface " + std::to_string(kind)) {}
    };
    struct Output : bufferqueue::V2_0::BpHwGraphicBufferProducer, Farewell {
        Output() : BpHwGraphicBufferProducer(nullptr), Farewell("output surface") {}
    };
    EXPECT_TRUE(mService->setOutputSurface(new Output()).isOk());
    for (int kind = 0; kind < 8; ++kind) {
        setSurface(kind, new Producer(kind));
        registerClient(kind, new Client(kind));
    }
    mLog.clear();
    mService.clear();
    std::vector<LogLine> expected{{ANDROID_LOG_DEBUG, "UVC-GadgetHandler", "~UvcGadgetHandler E"}};
    const auto expect = [&](const std::string& name) {
        expected.push_back({ANDROID_LOG_VERBOSE, Farewell::kFarewell, name});
    };
    for (int kind = 7; kind >= 0; --kind) expect("callback " + std::to_string(kind));
    for (int kind = 7; kind >= 0; --kind) expect("surface " + std::to_string(kind));
    expect("output surface");
    EXPECT_EQ(mLog.lines(), expected);
}

TEST_F(CameraDesktopLifeTest, TwoThreadsMayUseTheKindsAtOnce) {
    std::atomic<bool> stop{false};
    std::thread controller([&] {
        while (!stop) {
            setSurface(4, makeSurface());
            send(3);
            setSurface(4, nullptr);
        }
    });
    for (int i = 0; i < 200; ++i) {
        registerClient(3, new RecordingClient(""));
        surface(4);
        mService->serviceDied(3, nullptr);
    }
    stop = true;
    controller.join();
    EXPECT_EQ(send(3), "");
}

}  // namespace
}  // namespace korvane::test
