// SPDX-License-Identifier: Apache-2.0
// The handle of an interface: descriptors and integers, in the layout in which it travels.
#pragma once

#include <cstddef>
#include <cstdint>

#include <cutils/native_handle.h>
#include <hidl/HidlInternal.h>

namespace android {
namespace hardware {

/**
 * Holds a native handle, or null. It borrows what it is made from; a copy of it duplicates every
 * descriptor and owns the duplicates. It closes and deletes what it owns.
 */
struct hidl_handle {
    hidl_handle() = default;
    ~hidl_handle();

    /** Borrows handle. */
    hidl_handle(const native_handle_t* handle);  // NOLINT: meant to convert

    /** Duplicates; a descriptor that can't be duplicated is fatal. */
    hidl_handle(const hidl_handle& other);
    hidl_handle(hidl_handle&& other) noexcept;

    hidl_handle& operator=(const hidl_handle& other);
    hidl_handle& operator=(hidl_handle&& other) noexcept;
    /** Borrows handle. */
    hidl_handle& operator=(const native_handle_t* handle);

    /** Drops what it holds and holds handle; with shouldOwn it will close and delete it. */
    void setTo(native_handle_t* handle, bool shouldOwn = false);

    const native_handle_t* getNativeHandle() const { return mHandle; }
    const native_handle_t* operator->() const { return mHandle; }
    operator const native_handle_t*() const { return mHandle; }  // NOLINT: meant to convert

    /** Where the pointer to the handle is in the message. */
    static constexpr size_t kOffsetOfNativeHandle = 0;

  private:
    void freeHandle();
    void moveFrom(hidl_handle& other);

    details::hidl_pointer<const native_handle_t> mHandle;
    bool mOwnsHandle = false;
    [[maybe_unused]] uint8_t mPad[7] = {};  // sent along, so never garbage
};

}  // namespace hardware
}  // namespace android
