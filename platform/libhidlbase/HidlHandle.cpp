// SPDX-License-Identifier: Apache-2.0
#include "hidl/HidlHandle.h"

#include <utility>

namespace android {
namespace hardware {

namespace {

native_handle_t* duplicate(const native_handle_t* handle) {
    if (handle == nullptr) return nullptr;
    native_handle_t* copy = native_handle_clone(handle);
    if (copy == nullptr) details::logAlwaysFatal("Failed to clone a native_handle in hidl_handle.");
    return copy;
}

}  // namespace

hidl_handle::~hidl_handle() {
    freeHandle();
}

hidl_handle::hidl_handle(const native_handle_t* handle) : mHandle(handle) {}

hidl_handle::hidl_handle(const hidl_handle& other) {
    *this = other;
}

hidl_handle::hidl_handle(hidl_handle&& other) noexcept {
    moveFrom(other);
}

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this != &other) setTo(duplicate(other.mHandle), other.mHandle != nullptr);
    return *this;
}

hidl_handle& hidl_handle::operator=(hidl_handle&& other) noexcept {
    if (this != &other) {
        freeHandle();
        moveFrom(other);
    }
    return *this;
}

hidl_handle& hidl_handle::operator=(const native_handle_t* handle) {
    freeHandle();
    mHandle = handle;
    return *this;
}

void hidl_handle::setTo(native_handle_t* handle, bool shouldOwn) {
    freeHandle();
    mHandle = handle;
    mOwnsHandle = shouldOwn;
}

void hidl_handle::freeHandle() {
    if (mOwnsHandle && mHandle != nullptr) {
        auto* owned = const_cast<native_handle_t*>(getNativeHandle());
        native_handle_close(owned);
        native_handle_delete(owned);
    }
    mHandle = nullptr;
    mOwnsHandle = false;
}

void hidl_handle::moveFrom(hidl_handle& other) {
    mHandle = other.mHandle;
    mOwnsHandle = std::exchange(other.mOwnsHandle, false);
    other.mHandle = nullptr;
}

}  // namespace hardware
}  // namespace android
