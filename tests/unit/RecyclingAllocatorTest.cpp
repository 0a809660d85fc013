// SPDX-License-Identifier: Apache-2.0
#include "uvc/RecyclingAllocator.h"

#include <memory>
#include <optional>

#include <gtest/gtest.h>

using android::RecyclingAllocator;

namespace {

struct Frame {
    explicit Frame(int number) : number(number) {}
    const int number;
};

TEST(RecyclingAllocatorTest, ANewObjectTakesTheMemoryOfOneThatHasGone) {
    const RecyclingAllocator<Frame> allocator;
    auto frame = std::allocate_shared<Frame>(allocator, 1);
    const void* const memory = frame.get();
    frame.reset();
    frame = std::allocate_shared<Frame>(allocator, 2);
    EXPECT_EQ(memory, frame.get());
    EXPECT_EQ(2, frame->number);
}

TEST(RecyclingAllocatorTest, ObjectsOfTheSameTimeHaveMemoryOfTheirOwn) {
    const RecyclingAllocator<Frame> allocator;
    const auto first = std::allocate_shared<Frame>(allocator, 1);
    const auto second = std::allocate_shared<Frame>(allocator, 2);
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(1, first->number);
    EXPECT_EQ(2, second->number);
}

// A sanitizer sees memory that is used after, or never, given back.
TEST(RecyclingAllocatorTest, AnObjectMayOutliveTheAllocator) {
    std::optional<RecyclingAllocator<Frame>> allocator(std::in_place);
    auto first = std::allocate_shared<Frame>(*allocator, 1);
    auto second = std::allocate_shared<Frame>(*allocator, 2);
    first.reset();
    allocator.reset();
    EXPECT_EQ(2, second->number);
    second.reset();
}

TEST(RecyclingAllocatorTest, CopiesShareTheirMemoryAndOthersDont) {
    const RecyclingAllocator<Frame> allocator;
    EXPECT_TRUE(allocator == RecyclingAllocator<int>(allocator));
    EXPECT_TRUE(allocator != RecyclingAllocator<Frame>());
}

}  // namespace
