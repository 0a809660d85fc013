// SPDX-License-Identifier: Apache-2.0
#include "hidl/HidlHandle.h"

#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace android {
namespace hardware {
namespace {

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

/** One descriptor and one integer, to be closed and deleted by whoever owns it. */
native_handle_t* makeHandle() {
    native_handle_t* handle = native_handle_create(1, 1);
    handle->data[0] = open("/dev/null", O_RDWR | O_CLOEXEC);
    handle->data[1] = 42;
    return handle;
}

void destroy(native_handle_t* handle) {
    native_handle_close(handle);
    native_handle_delete(handle);
}

TEST(HidlHandleTest, MayBeNull) {
    const hidl_handle handle;
    EXPECT_EQ(nullptr, handle.getNativeHandle());
    const hidl_handle copy(handle);
    EXPECT_EQ(nullptr, copy.getNativeHandle());
}

TEST(HidlHandleTest, BorrowsWhatItIsMadeFrom) {
    native_handle_t* const native = makeHandle();
    {
        const hidl_handle made(native);
        hidl_handle assigned;
        assigned = native;
        EXPECT_EQ(native, made.getNativeHandle());
        EXPECT_EQ(native, static_cast<const native_handle_t*>(assigned));
    }
    EXPECT_TRUE(isOpen(native->data[0]));
    destroy(native);
}

TEST(HidlHandleTest, CopyDuplicatesTheDescriptorsAndOwnsThem) {
    native_handle_t* const native = makeHandle();
    int duplicate;
    {
        const hidl_handle borrowed(native);
        const hidl_handle copy(borrowed);
        duplicate = copy->data[0];
        EXPECT_NE(native->data[0], duplicate);
        EXPECT_TRUE(isOpen(duplicate));
        EXPECT_EQ(42, copy->data[1]);
    }
    EXPECT_FALSE(isOpen(duplicate));
    EXPECT_TRUE(isOpen(native->data[0]));
    destroy(native);
}

TEST(HidlHandleTest, AssignmentClosesWhatItOwned) {
    hidl_handle handle;
    handle.setTo(makeHandle(), true /* shouldOwn */);
    const int fd = handle->data[0];
    hidl_handle other;
    other.setTo(makeHandle(), true);
    handle = other;
    EXPECT_FALSE(isOpen(fd));
    EXPECT_NE(other->data[0], handle->data[0]);
    EXPECT_TRUE(isOpen(other->data[0]));
}

TEST(HidlHandleTest, SurvivesAssignmentToItself) {
    hidl_handle handle;
    handle.setTo(makeHandle(), true);
    const int fd = handle->data[0];
    const hidl_handle& alias = handle;
    handle = alias;
    EXPECT_EQ(fd, handle->data[0]);
    EXPECT_TRUE(isOpen(fd));
}

TEST(HidlHandleTest, MoveTransfersOwnership) {
    hidl_handle source;
    source.setTo(makeHandle(), true);
    const int fd = source->data[0];
    {
        const hidl_handle target(std::move(source));
        EXPECT_EQ(nullptr, source.getNativeHandle());  // NOLINT: what is left behind is the test
        EXPECT_EQ(fd, target->data[0]);
        EXPECT_TRUE(isOpen(fd));
    }
    EXPECT_FALSE(isOpen(fd));
}

TEST(HidlHandleTest, MoveAssignmentClosesWhatItOwnedAndLeavesNothingBehind) {
    hidl_handle source;
    source.setTo(makeHandle(), true);
    const int moved = source->data[0];
    hidl_handle target;
    target.setTo(makeHandle(), true);
    const int closed = target->data[0];
    target = std::move(source);
    EXPECT_FALSE(isOpen(closed));
    EXPECT_EQ(moved, target->data[0]);
    EXPECT_EQ(nullptr, source.getNativeHandle());  // NOLINT: what is left behind is the test
    hidl_handle& alias = target;
    target = std::move(alias);
    EXPECT_EQ(moved, target->data[0]);
    EXPECT_TRUE(isOpen(moved));
}

TEST(HidlHandleTest, AnOwnedNullIsNothingToClose) {
    hidl_handle handle;
    handle.setTo(nullptr, true);
    handle.setTo(nullptr, true);
    EXPECT_EQ(nullptr, handle.getNativeHandle());
}

TEST(HidlHandleTest, ClosesOnlyWhatItIsToldToOwn) {
    native_handle_t* const kept = makeHandle();
    hidl_handle handle;
    handle.setTo(kept);
    handle.setTo(makeHandle(), true);
    EXPECT_TRUE(isOpen(kept->data[0]));
    const int fd = handle->data[0];
    handle.setTo(nullptr);
    EXPECT_FALSE(isOpen(fd));
    destroy(kept);
}

TEST(HidlHandleDeathTest, CopyOfABadDescriptorIsFatal) {
    native_handle_t* const native = native_handle_create(1, 0);
    native->data[0] = -1;
    const hidl_handle handle(native);
    EXPECT_DEATH(hidl_handle copy(handle), "clone");
    native_handle_delete(native);
}

}  // namespace
}  // namespace hardware
}  // namespace android
