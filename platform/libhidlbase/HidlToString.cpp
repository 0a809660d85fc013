// SPDX-License-Identifier: Apache-2.0
#include "hidl/HidlToString.h"

#include <cinttypes>
#include <cstdio>

#include <hidl/HidlSupport.h>

namespace android {
namespace hardware {

namespace details {

std::string toHexDigits(uint64_t value, bool prefix) {
    char digits[24];
    snprintf(digits, sizeof(digits), "%s%" PRIx64, prefix ? "0x" : "", value);
    return digits;
}

}  // namespace details

std::string toString(const void* pointer) {
    return details::toHexDigits(reinterpret_cast<uintptr_t>(pointer), true);
}

std::string toString(const hidl_string& string) {
    return "\"" + std::string(string) + "\"";
}

std::string toString(const hidl_handle& handle) {
    if (handle.getNativeHandle() == nullptr) return "nullptr";
    return "handle with " + std::to_string(handle->numFds) + " fds, " +
           std::to_string(handle->numInts) + " ints";
}

std::string toString(const hidl_memory& /*memory*/) {
    return "memory";
}

std::string toString(const sp<hidl_death_recipient>& recipient) {
    return recipient == nullptr ? "nullptr" : "death recipient";
}

}  // namespace hardware
}  // namespace android
