// SPDX-License-Identifier: Apache-2.0
// The desktop-camera service and its clients in processes of their own: whose death clears a kind.

#include <chrono>
#include <string>
#include <thread>

#include "CameraDesktop.h"
#include "ServiceFixture.h"

namespace korvane::test {
namespace {

using ::android::sp;
using desktop_v2::ClientType;
using ::korvane::hardware::camera::desktop::V2_0::implementation::CameraDesktop;

/** A client of kind 3 that answers with its name, until it is killed. */
class NamedClient {
  public:
    explicit NamedClient(const std::string& name)
        : mProcess([name](Line& test) {
              const auto service = desktop_v2::ICameraDesktop::tryGetService();
              ASSERT_NE(nullptr, service);
              const sp<StubCallback> callback =
                      new StubCallback([name](const std::string&) { return name; });
              EXPECT_TRUE(service->registerCallback(ClientType::STREAM, callback).isOk());
              EXPECT_TRUE(service->registerCallback(ClientType::STREAM, callback).isOk());
              test.say('r');
              while (test.hear() == 'n') {
                  EXPECT_TRUE(service->registerCallback(ClientType::STREAM, nullptr).isOk());
                  test.say('d');
              }
          }) {
        EXPECT_EQ('r', mProcess.line().hear());
    }

    void kill() { mProcess.kill(); }
    void registerNobody() {
        mProcess.line().say('n');
        EXPECT_EQ('d', mProcess.line().hear());
    }

  private:
    ForkedProcess mProcess;
};

class ClientDeathTest : public ServiceFixture {
  protected:
    void SetUp() override { serve<CameraDesktop>(); }

    static void expectAnswer(const std::string& expected) {
        runClient([&](const Desktop& service) { EXPECT_EQ(expected, send(service, "who")); });
    }

    // A notice waits for its turn on the thread that serves the calls.
    static void expectCleared() {
        runClient([](const Desktop& service) {
            const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            while (!send(service, "who").empty()) {
                ASSERT_LT(std::chrono::steady_clock::now(), until) << "the kind isn't cleared";
                std::this_thread::yield();
            }
        });
    }
};

TEST_F(ClientDeathTest, ADeathClearsTheKind) {
    NamedClient client("first");
    expectAnswer("first");
    client.kill();
    expectCleared();
}

TEST_F(ClientDeathTest, TheDeathOfAReplacedClientClearsItsSuccessorToo) {
    NamedClient first("first");
    NamedClient second("second");
    expectAnswer("second");
    first.kill();
    expectCleared();
}

TEST_F(ClientDeathTest, TheDeathOfAClientThatRegisteredNobodyStillClearsTheKind) {
    NamedClient first("first");
    first.registerNobody();
    NamedClient second("second");
    expectAnswer("second");
    first.kill();
    expectCleared();
}

}  // namespace
}  // namespace korvane::test
