// SPDX-License-Identifier: Apache-2.0
// Which proxy stands for a handle of the driver, while others take it and drop it.
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <hwbinder/ProcessState.h>

#include "../../platform/libhidlbase/hwbinder/RemoteHandles.h"

namespace korvane::test {
namespace {

using android::sp;
using android::hardware::BpHwBinder;
using android::hardware::ProcessState;
using android::hardware::RemoteHandles;

/** The process's own table, as proxies know no other; proxies need no driver to be made. */
RemoteHandles& handles() {
    return ProcessState::self()->remoteHandles();
}

TEST(HwRemoteHandlesTest, AHandleHasOneProxyWhileSomebodyHoldsIt) {
    const sp<BpHwBinder> proxy = handles().get(7);
    EXPECT_EQ(7u, proxy->handle());
    EXPECT_EQ(proxy, handles().get(7));
    EXPECT_EQ(proxy, handles().find(7));
    EXPECT_NE(proxy, handles().get(8));
}

TEST(HwRemoteHandlesTest, AProxyThatNobodyHoldsIsForgotten) {
    handles().get(9);
    EXPECT_EQ(nullptr, handles().find(9));
}

TEST(HwRemoteHandlesTest, AHandleHasNoSecondProxyWhileTheFirstIsBeingDestroyed) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([] {
            for (int round = 0; round < 200000; round++) {
                const sp<BpHwBinder> proxy = handles().get(11);
                ASSERT_EQ(proxy, handles().find(11));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(nullptr, handles().find(11));
}

}  // namespace
}  // namespace korvane::test
