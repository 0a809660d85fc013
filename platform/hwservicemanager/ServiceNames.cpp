// SPDX-License-Identifier: Apache-2.0
#include "ServiceNames.h"

#include <algorithm>
#include <cstddef>
#include <regex>

#include <android/hidl/base/1.0/IBase.h>

namespace android {

namespace {

// Longer than any name in use; it bounds what one registration can make the register keep.
constexpr size_t kMaxLength = 255;

}  // namespace

bool isValidFqName(const std::string& name) {
    static const std::regex pattern(
            "[A-Za-z_][A-Za-z0-9_]*([.][A-Za-z_][A-Za-z0-9_]*)*@[0-9]+[.][0-9]+::I[A-Za-z0-9_]+");
    return name.size() <= kMaxLength && std::regex_match(name, pattern);
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
