// SPDX-License-Identifier: Apache-2.0
// Keeps objects alive until the process ends, like the daemon's, without being reported as leaks.
#pragma once

#include <vector>

#include <utils/StrongPointer.h>

namespace korvane::test {

/** From one thread at a time. Returns its argument. */
template <typename T>
::android::sp<T> keepForGood(const ::android::sp<T>& object) {
    static auto* sKept = new std::vector<::android::sp<T>>;
    sKept->push_back(object);
    return object;
}

}  // namespace korvane::test
