// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/AString.h"

#define LOG_TAG "AString"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <log/log.h>

namespace android {

AString::AString(const char* s) {
    if (s == nullptr) {
        ALOGW("ctor got NULL, using empty string instead");
        return;
    }
    mText = s;
}

AString::AString(const char* s, size_t size) : mText(s, size) {}

AString::AString(const String8& from) : mText(from.c_str(), from.length()) {}

void AString::append(float x) {
    append(static_cast<double>(x));
}

void AString::append(double x) {
    append(AStringPrintf("%f", x));
}

void AString::append(void* x) {
    append(AStringPrintf("%p", x));
}

ssize_t AString::find(const char* substring, size_t start) const {
    const size_t at = mText.find(substring, start);
    return at == std::string::npos ? -1 : static_cast<ssize_t>(at);
}

bool AString::startsWith(const char* prefix) const {
    return mText.compare(0, strlen(prefix), prefix) == 0;
}

bool AString::endsWith(const char* suffix) const {
    const size_t length = strlen(suffix);
    return length <= mText.size() && mText.compare(mText.size() - length, length, suffix) == 0;
}

AString AStringPrintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, args);
    va_end(args);
    if (length < 0) return AString();
    const std::unique_ptr<char, void (*)(void*)> owned(text, free);
    return AString(text, static_cast<size_t>(length));
}

}  // namespace android
