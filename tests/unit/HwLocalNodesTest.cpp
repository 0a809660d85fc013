// SPDX-License-Identifier: Apache-2.0
// How long an object keeps the name by which the driver knows it, and is kept alive by it.
#include <set>

#include <gtest/gtest.h>

#include "../../platform/libhidlbase/hwbinder/LocalNodes.h"

namespace korvane::test {
namespace {

using android::sp;
using android::wp;
using android::hardware::BHwBinder;
using android::hardware::LocalNodes;

/** An object that asks the table while it is destroyed, which deadlocks if the table is locked. */
class Asking : public BHwBinder {
  public:
    explicit Asking(const LocalNodes& nodes) : mNodes(nodes) {}

  protected:
    ~Asking() override { mNodes.size(); }

  private:
    const LocalNodes& mNodes;
};

TEST(HwLocalNodesTest, AnObjectHasOneNameWhileItIsPublished) {
    LocalNodes nodes;
    const sp<BHwBinder> object = new BHwBinder;
    const sp<BHwBinder> other = new BHwBinder;
    const uint64_t name = nodes.publish(object);
    EXPECT_NE(0u, name);
    EXPECT_EQ(name, nodes.publish(object));
    EXPECT_NE(name, nodes.publish(other));
    EXPECT_EQ(object, nodes.find(name));
    EXPECT_EQ(2u, nodes.size());
}

TEST(HwLocalNodesTest, ANameIsNotUsedAgain) {
    LocalNodes nodes;
    std::set<uint64_t> names;
    const sp<BHwBinder> object = new BHwBinder;
    for (int i = 0; i < 10; i++) {
        const uint64_t name = nodes.publish(object);
        EXPECT_TRUE(names.insert(name).second);
        nodes.withdraw(name);
        EXPECT_EQ(nullptr, nodes.find(name));
    }
    EXPECT_EQ(0u, nodes.size());
}

TEST(HwLocalNodesTest, AStrongReferenceKeepsTheObjectAlive) {
    LocalNodes nodes;
    sp<BHwBinder> object = new Asking(nodes);
    const wp<BHwBinder> watched = object;
    const uint64_t name = nodes.publish(object);
    EXPECT_TRUE(nodes.incWeak(name));
    EXPECT_TRUE(nodes.incStrong(name));
    nodes.withdraw(name);
    object = nullptr;
    EXPECT_NE(nullptr, watched.promote());
    EXPECT_EQ(watched.promote(), nodes.find(name));
    nodes.decStrong(name);
    EXPECT_EQ(nullptr, watched.promote());
    EXPECT_EQ(nullptr, nodes.find(name));
    EXPECT_EQ(1u, nodes.size());
    nodes.decWeak(name);
    EXPECT_EQ(0u, nodes.size());
}

TEST(HwLocalNodesTest, AReleaseHandledAfterTheNextAcquisitionReleasesNothing) {
    LocalNodes nodes;
    sp<BHwBinder> object = new BHwBinder;
    const wp<BHwBinder> watched = object;
    const uint64_t name = nodes.publish(object);
    nodes.incStrong(name);
    nodes.incStrong(name);
    object = nullptr;
    nodes.decStrong(name);
    EXPECT_NE(nullptr, watched.promote());
    nodes.decStrong(name);
    EXPECT_EQ(nullptr, watched.promote());
}

TEST(HwLocalNodesTest, AWeakReferenceDoesNotKeepTheObjectAlive) {
    LocalNodes nodes;
    sp<BHwBinder> object = new BHwBinder;
    const uint64_t name = nodes.publish(object);
    nodes.incWeak(name);
    nodes.withdraw(name);
    object = nullptr;
    EXPECT_EQ(nullptr, nodes.find(name));
    EXPECT_FALSE(nodes.incStrong(name));
    nodes.decStrong(name);
    nodes.decWeak(name);
    EXPECT_EQ(0u, nodes.size());
}

TEST(HwLocalNodesTest, ReferencesOfNoObjectAreRefused) {
    LocalNodes nodes;
    EXPECT_FALSE(nodes.incWeak(1));
    EXPECT_FALSE(nodes.incStrong(0));
    nodes.decWeak(1);
    nodes.decStrong(1);
    nodes.withdraw(1);
    EXPECT_EQ(nullptr, nodes.find(1));
    EXPECT_EQ(0u, nodes.size());
}

}  // namespace
}  // namespace korvane::test
