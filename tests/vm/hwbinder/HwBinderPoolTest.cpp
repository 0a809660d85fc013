// SPDX-License-Identifier: Apache-2.0
// Which threads of a process serve, over the real driver.
#include <set>
#include <thread>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <hwbinder/IPCThreadState.h>

#include "TestObjects.h"

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::hardware::IBinder;
using android::hardware::IPCThreadState;
using android::hardware::Parcel;
using android::hardware::ProcessState;

class HwBinderPoolTest : public HwBinderTest {};

/** Starts a process that puts an object to the directory as "pool" and then runs prepare. */
class PoolServer {
  public:
    PoolServer(TestObject::Handler handler, const std::function<void(const Event&)>& prepare)
        : mProcess([this, &handler, &prepare] {
              Directory::put("pool", new TestObject(std::move(handler)));
              prepare(mReady);
          }) {
        EXPECT_TRUE(mReady.wait());
    }

  private:
    Event mReady;
    TestProcess mProcess;
};

void startPoolAndStay(size_t threads, const Event& ready) {
    startPool(threads);
    ready.signal();
    Event().wait(60000);
}

sp<IBinder> findPool() {
    return Directory::get("pool");
}

/**
 * Makes that many calls at once; how many are served at the same time. As many as there are threads
 * are waited for patiently, the others, which should not come, for a moment.
 */
int servedTogether(int calls, int threads, const Event& isInside, const Event& mayLeave) {
    std::vector<std::thread> callers;
    for (int i = 0; i < calls; i++) {
        callers.emplace_back([] { EXPECT_EQ(OK, call(findPool())); });
    }
    int inside = 0;
    while (inside < calls && isInside.wait(inside < threads ? 20000 : 1000)) inside++;
    for (int i = 0; i < calls; i++) mayLeave.signal();
    for (std::thread& caller : callers) caller.join();
    return inside;
}

TEST_F(HwBinderPoolTest, ThePoolGrowsOnDemandToItsConfiguredSizeAndNoFurther) {
    Event isInside;
    Event mayLeave;
    PoolServer server(
            [&](const Call&) {
                isInside.signal();
                EXPECT_TRUE(mayLeave.wait());
                return OK;
            },
            [](const Event& ready) { startPoolAndStay(3, ready); });
    runInProcess([&] {
        EXPECT_EQ(3, servedTogether(3, 3, isInside, mayLeave));
        EXPECT_EQ(3, servedTogether(4, 3, isInside, mayLeave));
    });
}

TEST_F(HwBinderPoolTest, ThePoolHasOneThreadIfNothingIsConfigured) {
    Event isInside;
    Event mayLeave;
    PoolServer server(
            [&](const Call&) {
                isInside.signal();
                EXPECT_TRUE(mayLeave.wait());
                EXPECT_TRUE(IPCThreadState::self()->isOnlyBinderThread());
                return OK;
            },
            [](const Event& ready) {
                ProcessState::self()->startThreadPool();
                ready.signal();
                Event().wait(60000);
            });
    runInProcess([&] { EXPECT_EQ(1, servedTogether(2, 1, isInside, mayLeave)); });
}

TEST_F(HwBinderPoolTest, WithOneThreadThatJoinsOnlyThatThreadServes) {
    PoolServer server(
            [](const Call&) {
                EXPECT_EQ(getpid(), gettid());
                EXPECT_TRUE(IPCThreadState::self()->isOnlyBinderThread());
                return OK;
            },
            [](const Event& ready) {
                ready.signal();
                serveAlone();
            });
    runInProcess([] {
        std::vector<std::thread> callers;
        for (int i = 0; i < 3; i++) {
            callers.emplace_back([] {
                for (int j = 0; j < 20; j++) EXPECT_EQ(OK, call(findPool()));
            });
        }
        for (std::thread& caller : callers) caller.join();
    });
}

TEST_F(HwBinderPoolTest, NothingIsServedBetweenConfigurationAndJoining) {
    Event mayJoin;
    Event isServed;
    PoolServer server(
            [&](const Call&) {
                isServed.signal();
                return OK;
            },
            [&](const Event& ready) {
                ProcessState::self()->setThreadPoolConfiguration(1, true);
                ProcessState::self()->startThreadPool();
                ready.signal();
                EXPECT_TRUE(mayJoin.wait());
                serveAlone();
            });
    TestProcess client([&] { EXPECT_EQ(OK, call(findPool())); });
    EXPECT_FALSE(isServed.wait(300));
    mayJoin.signal();
    client.expectSuccess();
    EXPECT_TRUE(isServed.wait());
}

TEST_F(HwBinderPoolTest, APooledThreadIsNamedAfterItsProcess) {
    PoolServer server(
            [](const Call&) {
                char name[16] = "";
                pthread_getname_np(pthread_self(), name, sizeof(name));
                EXPECT_EQ("HwBinder:" + std::to_string(getpid()) + "_1", name);
                return OK;
            },
            [](const Event& ready) { startPoolAndStay(1, ready); });
    runInProcess([] { EXPECT_EQ(OK, call(findPool())); });
}

TEST_F(HwBinderPoolTest, AThreadWithItsOwnLoopServesWhatItPolls) {
    PoolServer server([](const Call& call) { return call.reply->writeInt32(gettid()); },
                      [](const Event& ready) {
                          int descriptor;
                          EXPECT_EQ(OK, IPCThreadState::self()->setupPolling(&descriptor));
                          ready.signal();
                          pollfd readable{descriptor, POLLIN, 0};
                          while (poll(&readable, 1, 60000) == 1) {
                              EXPECT_EQ(OK, IPCThreadState::self()->handlePolledCommands());
                          }
                      });
    runInProcess([] {
        for (int i = 0; i < 3; i++) {
            Parcel reply;
            EXPECT_EQ(OK, findPool()->transact(1, Parcel(), &reply));
            int32_t thread = -1;
            reply.readInt32(&thread);
            EXPECT_GT(thread, 0);
        }
    });
}

}  // namespace
}  // namespace korvane::test
