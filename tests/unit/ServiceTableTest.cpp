// SPDX-License-Identifier: Apache-2.0
#include "ServiceTable.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hidl/HidlBinderSupport.h>
#include <android/hidl/base/1.0/BpHwBase.h>

#include "support/StubDesktop.h"

namespace android {
namespace {

using ::korvane::test::StubDesktop;
using Names = std::vector<std::string>;

const std::string kV2 = "a@2.0::IFoo";
const std::string kV1 = "a@1.0::IFoo";
const std::string kOther = "b@1.0::IBar";
const std::string kBase = "android.hidl.base@1.0::IBase";

class ServiceTableTest : public testing::Test {
  protected:
    const ServiceTable::Service mFirst = new StubDesktop();
    const ServiceTable::Service mSecond = new StubDesktop();
    ServiceTable mTable;
};

TEST_F(ServiceTableTest, FindsAServiceUnderItsWholeChain) {
    mTable.add({kV2, kV1, kBase}, "default", mFirst, 1);
    EXPECT_EQ(mFirst, mTable.get(kV2, "default"));
    EXPECT_EQ(mFirst, mTable.get(kV1, "default"));
    EXPECT_EQ(mFirst, mTable.get(kBase, "default"));
    EXPECT_EQ(nullptr, mTable.get(kV2, "other"));
    EXPECT_EQ(nullptr, mTable.get(kOther, "default"));
}

TEST_F(ServiceTableTest, ALaterServiceReplacesTheFormer) {
    mTable.add({kV1, kBase}, "default", mFirst, 1);
    mTable.add({kV1, kBase}, "default", mSecond, 2);
    EXPECT_EQ(mSecond, mTable.get(kV1, "default"));
    EXPECT_EQ(2u, mTable.entries().size());
}

TEST_F(ServiceTableTest, AParentRemovesTheChildThatItReplaces) {
    mTable.add({kV2, kV1, kBase}, "default", mFirst, 1);
    mTable.add({kV1, kBase}, "default", mSecond, 2);
    EXPECT_EQ(nullptr, mTable.get(kV2, "default"));
    EXPECT_EQ(mSecond, mTable.get(kV1, "default"));
}

TEST_F(ServiceTableTest, AReplacedServiceKeepsItsOtherInstances) {
    mTable.add({kV1, kBase}, "default", mFirst, 1);
    mTable.add({kV1, kBase}, "second", mFirst, 1);
    mTable.add({kV1, kBase}, "default", mSecond, 2);
    EXPECT_EQ(mFirst, mTable.get(kV1, "second"));
}

TEST_F(ServiceTableTest, ServicesOfDifferentInterfacesLeaveEachOtherAlone) {
    mTable.add({kV2, kV1, kBase}, "default", mFirst, 1);
    mTable.add({kOther, kBase}, "default", mSecond, 2);
    EXPECT_EQ(mFirst, mTable.get(kV2, "default"));
    EXPECT_EQ(mFirst, mTable.get(kV1, "default"));
    EXPECT_EQ(mSecond, mTable.get(kOther, "default"));
}

TEST_F(ServiceTableTest, TakesTheSameServiceAgain) {
    mTable.add({kV1, kBase}, "default", mFirst, 1);
    mTable.add({kV1, kBase}, "default", mFirst, 1);
    EXPECT_EQ(mFirst, mTable.get(kV1, "default"));
}

TEST_F(ServiceTableTest, RemovesAServiceFromEveryName) {
    mTable.add({kV2, kV1, kBase}, "default", mFirst, 1);
    mTable.add({kV1, kBase}, "second", mFirst, 1);
    mTable.add({kOther, kBase}, "third", mSecond, 2);
    mTable.remove(mFirst);
    EXPECT_EQ(nullptr, mTable.get(kV2, "default"));
    EXPECT_EQ(nullptr, mTable.get(kV1, "second"));
    EXPECT_EQ(2u, mTable.entries().size());
    EXPECT_EQ(mSecond, mTable.get(kOther, "third"));
}

TEST_F(ServiceTableTest, ListsTheInstancesOfOneInterface) {
    mTable.add({kV1, kBase}, "b", mFirst, 1);
    mTable.add({kV1, kBase}, "a", mSecond, 1);
    mTable.add({kV2, kBase}, "c", new StubDesktop(), 1);
    EXPECT_EQ((Names{"a", "b"}), mTable.instancesOf(kV1));
    EXPECT_EQ((Names{}), mTable.instancesOf(kOther));
}

TEST_F(ServiceTableTest, HasAServiceAsLongAsItStandsAnywhere) {
    EXPECT_FALSE(mTable.has(mFirst));
    mTable.add({kV2, kV1, kBase}, "default", mFirst, 1);
    mTable.add({kV2, kV1, kBase}, "second", mFirst, 1);
    EXPECT_TRUE(mTable.has(mFirst));
    mTable.add({kV2, kV1, kBase}, "default", mSecond, 2);
    EXPECT_TRUE(mTable.has(mFirst));
    mTable.add({kV2, kV1, kBase}, "second", mSecond, 2);
    EXPECT_FALSE(mTable.has(mFirst));
    mTable.remove(mSecond);
    EXPECT_FALSE(mTable.has(mSecond));
    EXPECT_TRUE(mTable.entries().empty());
}

TEST_F(ServiceTableTest, AServiceMayTakeItsOwnPlace) {
    mTable.add({kV2, kV1, kBase}, "default", mFirst, 1);
    mTable.add({kV2, kV1, kBase}, "default", mFirst, 2);
    EXPECT_EQ(mFirst, mTable.get(kV1, "default"));
    EXPECT_EQ(2, mTable.entries().at({kV1, "default"}).pid);
    mTable.remove(mFirst);
    EXPECT_TRUE(mTable.entries().empty());
}

// A link to a death ends with the proxy that it was made through.
TEST_F(ServiceTableTest, KeepsTheFirstProxyOfAServiceThatComesAgain) {
    const sp<hardware::IBinder> binder = hardware::getOrCreateCachedBinder(mFirst.get());
    const auto makeProxy = [&] { return new hidl::base::V1_0::BpHwBase(binder); };
    ServiceTable::Service first = makeProxy();
    const wp<hidl::base::V1_0::IBase> weak = first;
    mTable.add({kV1, kBase}, "default", first, 1);
    first = nullptr;
    EXPECT_TRUE(mTable.has(makeProxy()));
    mTable.add({kV1, kBase}, "default", makeProxy(), 1);
    EXPECT_NE(nullptr, weak.promote());
    mTable.remove(makeProxy());
    EXPECT_EQ(nullptr, weak.promote());
    EXPECT_TRUE(mTable.entries().empty());
}

}  // namespace
}  // namespace android
