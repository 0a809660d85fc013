// SPDX-License-Identifier: Apache-2.0
#include "ServiceNames.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <android/hidl/base/1.0/IBase.h>

namespace android {

namespace {

// Longer than any name in use; it bounds what one registration can make the register keep.
constexpr size_t kMaxLength = 255;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isWordStart(char c) {
    return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isWord(std::string_view text) {
    const auto isPart = [](char c) { return isWordStart(c) || isDigit(c); };
    return !text.empty() && isWordStart(text.front()) &&
           std::all_of(text.begin(), text.end(), isPart);
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

/** Words with dots between them. */
bool isPackage(std::string_view text) {
    const size_t dot = text.find('.');
    if (dot == text.npos) return isWord(text);
    return isWord(text.substr(0, dot)) && isPackage(text.substr(dot + 1));
}

bool isVersion(std::string_view text) {
    const size_t dot = text.find('.');
    return dot != text.npos && isNumber(text.substr(0, dot)) && isNumber(text.substr(dot + 1));
}

bool isInterface(std::string_view text) {
    return text.size() > 1 && text.front() == 'I' && isWord(text);
}

}  // namespace

bool isValidFqName(const std::string& name) {
    const std::string_view text = name;
    const size_t at = text.find('@');
    const size_t colons = text.find("::");
    if (text.size() > kMaxLength || at == text.npos || colons == text.npos || colons < at) {
        return false;
    }
    return isPackage(text.substr(0, at)) && isVersion(text.substr(at + 1, colons - at - 1)) &&
           isInterface(text.substr(colons + 2));
}

bool isValidInstance(const std::string& name) {
    const auto isGraphic = [](unsigned char c) { return c > ' ' && c < 0x7f; };
    return !name.empty() && name.size() <= kMaxLength &&
           std::all_of(name.begin(), name.end(), isGraphic);
}

bool isValidChain(const std::vector<std::string>& chain) {
    return chain.size() > 1 && chain.back() == hidl::base::V1_0::IBase::descriptor &&
           std::all_of(chain.begin(), chain.end(), isValidFqName);
}

}  // namespace android
