// SPDX-License-Identifier: Apache-2.0
// The string type of the media foundation.
#pragma once

#include <cstddef>
#include <string>

#include <sys/types.h>

#include <utils/String8.h>

namespace android {

/** A string of bytes. Copies are deep; not thread-safe. */
struct AString {
    AString() = default;
    /** A null pointer makes an empty string and a warning in the log. */
    AString(const char* s);  // NOLINT: implicit on the platform
    AString(const char* s, size_t size);
    AString(const String8& from);  // NOLINT: implicit on the platform

    size_t size() const { return mText.size(); }
    const char* c_str() const { return mText.c_str(); }
    bool empty() const { return mText.empty(); }
    void clear() { mText.clear(); }

    void append(const char* s) { mText.append(s); }
    void append(const char* s, size_t size) { mText.append(s, size); }
    void append(const AString& from) { mText.append(from.mText); }
    void append(int x) { mText.append(std::to_string(x)); }
    void append(unsigned x) { mText.append(std::to_string(x)); }
    void append(long x) { mText.append(std::to_string(x)); }
    void append(unsigned long x) { mText.append(std::to_string(x)); }
    void append(long long x) { mText.append(std::to_string(x)); }
    void append(unsigned long long x) { mText.append(std::to_string(x)); }
    void append(float x);
    void append(double x);
    void append(void* x);

    /** Where the substring first begins at or after `start`, -1 if nowhere. */
    ssize_t find(const char* substring, size_t start = 0) const;
    bool startsWith(const char* prefix) const;
    bool endsWith(const char* suffix) const;

    /** As strcmp. */
    int compare(const AString& other) const { return mText.compare(other.mText); }
    bool operator==(const AString& other) const { return mText == other.mText; }
    bool operator!=(const AString& other) const { return mText != other.mText; }
    bool operator<(const AString& other) const { return mText < other.mText; }
    bool operator>(const AString& other) const { return mText > other.mText; }

  private:
    std::string mText;
};

/** Formats as printf. */
AString AStringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace android
