// SPDX-License-Identifier: Apache-2.0
// The string of an interface, in the layout in which it travels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <hidl/HidlInternal.h>

namespace android {
namespace hardware {

/**
 * A NUL-terminated string of bytes, UTF-8 by convention. It owns a copy of what it was made from,
 * except after setToExternal(). A moved-from string is empty. Text of 4 GiB or more is fatal.
 */
struct hidl_string {
    hidl_string();
    ~hidl_string();

    hidl_string(const hidl_string& other);
    hidl_string(hidl_string&& other) noexcept;
    /** A null pointer makes an empty string. */
    hidl_string(const char* text);         // NOLINT: meant to convert
    hidl_string(const std::string& text);  // NOLINT: meant to convert
    /** The first length bytes of text, which may hold NULs. */
    hidl_string(const char* text, size_t length);

    hidl_string& operator=(const hidl_string& other);
    hidl_string& operator=(hidl_string&& other) noexcept;
    hidl_string& operator=(const char* text);
    hidl_string& operator=(const std::string& text);

    /** Keeps NULs within the text. */
    operator std::string() const { return std::string(mBuffer, mSize); }  // NOLINT

    const char* c_str() const { return mBuffer; }
    /** In bytes, without the terminating NUL. */
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    void clear();

    /**
     * Borrows text, which must outlive this string and its use. text[length] must be NUL; anything
     * else is fatal.
     */
    void setToExternal(const char* text, size_t length);

    /** Where the pointer to the text is in the message. */
    static constexpr size_t kOffsetOfBuffer = 0;

  private:
    void copyFrom(const char* text, size_t length);
    void moveFrom(hidl_string& other);

    details::hidl_pointer<const char> mBuffer;  // never null
    uint32_t mSize = 0;
    bool mOwnsBuffer = false;
    [[maybe_unused]] uint8_t mPad[3] = {};  // sent along, so never garbage
};

// Comparisons end at the first NUL.
bool operator==(const hidl_string& left, const hidl_string& right);
bool operator!=(const hidl_string& left, const hidl_string& right);
bool operator<(const hidl_string& left, const hidl_string& right);
bool operator<=(const hidl_string& left, const hidl_string& right);
bool operator>(const hidl_string& left, const hidl_string& right);
bool operator>=(const hidl_string& left, const hidl_string& right);

// A null pointer equals no string.
bool operator==(const hidl_string& left, const char* right);
bool operator==(const char* left, const hidl_string& right);
bool operator!=(const hidl_string& left, const char* right);
bool operator!=(const char* left, const hidl_string& right);

}  // namespace hardware
}  // namespace android
