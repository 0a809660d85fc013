// SPDX-License-Identifier: Apache-2.0
// Lets objects live until the process ends, as the daemon's do, without being taken for leaks.
#pragma once

#include <vector>

#include <utils/StrongPointer.h>

namespace korvane::test {

/** From one thread at a time. Returns what it was given. */
template <typename T>
::android::sp<T> keepForGood(const ::android::sp<T>& object) {
    static auto* sKept = new std::vector<::android::sp<T>>;
    sKept->push_back(object);
    return object;
}

}  // namespace korvane::test
