// SPDX-License-Identifier: Apache-2.0
#include "hidl/HidlString.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

namespace android {
namespace hardware {

namespace {

const char* const kEmpty = "";

uint32_t checkedSize(size_t length) {
    if (length >= std::numeric_limits<uint32_t>::max()) {
        details::logAlwaysFatal("hidl_string can't hold 4 GiB or more.");
    }
    return static_cast<uint32_t>(length);
}

}  // namespace

hidl_string::hidl_string() : mBuffer(kEmpty) {}

hidl_string::~hidl_string() {
    clear();
}

hidl_string::hidl_string(const hidl_string& other) : hidl_string(other.c_str(), other.size()) {}

hidl_string::hidl_string(hidl_string&& other) noexcept : hidl_string() {
    moveFrom(other);
}

hidl_string::hidl_string(const char* text)
    : hidl_string(text, text == nullptr ? 0 : strlen(text)) {}

hidl_string::hidl_string(const std::string& text) : hidl_string(text.c_str(), text.size()) {}

hidl_string::hidl_string(const char* text, size_t length) : hidl_string() {
    copyFrom(text, length);
}

hidl_string& hidl_string::operator=(const hidl_string& other) {
    if (this != &other) *this = hidl_string(other);
    return *this;
}

hidl_string& hidl_string::operator=(hidl_string&& other) noexcept {
    if (this != &other) {
        clear();
        moveFrom(other);
    }
    return *this;
}

// Through a temporary, as the text may be part of this string.
hidl_string& hidl_string::operator=(const char* text) {
    return *this = hidl_string(text);
}

hidl_string& hidl_string::operator=(const std::string& text) {
    return *this = hidl_string(text);
}

void hidl_string::clear() {
    if (mOwnsBuffer) free(const_cast<char*>(c_str()));
    mBuffer = kEmpty;
    mSize = 0;
    mOwnsBuffer = false;
}

void hidl_string::setToExternal(const char* text, size_t length) {
    const uint32_t size = checkedSize(length);
    if (text[length] != '\0') {
        details::logAlwaysFatal("hidl_string can't borrow text without a NUL at its end.");
    }
    clear();
    mBuffer = text;
    mSize = size;
}

void hidl_string::copyFrom(const char* text, size_t length) {
    const uint32_t size = checkedSize(length);
    if (size == 0) return;
    auto* copy = static_cast<char*>(malloc(length + 1));
    if (copy == nullptr) details::logAlwaysFatal("No memory for a hidl_string.");
    memcpy(copy, text, length);
    copy[length] = '\0';
    mBuffer = copy;
    mSize = size;
    mOwnsBuffer = true;
}

void hidl_string::moveFrom(hidl_string& other) {
    mBuffer = other.mBuffer;
    mSize = std::exchange(other.mSize, 0);
    mOwnsBuffer = std::exchange(other.mOwnsBuffer, false);
    other.mBuffer = kEmpty;
}

bool operator==(const hidl_string& left, const hidl_string& right) {
    return strcmp(left.c_str(), right.c_str()) == 0;
}
bool operator!=(const hidl_string& left, const hidl_string& right) {
    return !(left == right);
}
bool operator<(const hidl_string& left, const hidl_string& right) {
    return strcmp(left.c_str(), right.c_str()) < 0;
}
bool operator<=(const hidl_string& left, const hidl_string& right) {
    return !(right < left);
}
bool operator>(const hidl_string& left, const hidl_string& right) {
    return right < left;
}
bool operator>=(const hidl_string& left, const hidl_string& right) {
    return !(left < right);
}

bool operator==(const hidl_string& left, const char* right) {
    return right != nullptr && strcmp(left.c_str(), right) == 0;
}
bool operator==(const char* left, const hidl_string& right) {
    return right == left;
}
bool operator!=(const hidl_string& left, const char* right) {
    return !(left == right);
}
bool operator!=(const char* left, const hidl_string& right) {
    return !(right == left);
}

}  // namespace hardware
}  // namespace android
