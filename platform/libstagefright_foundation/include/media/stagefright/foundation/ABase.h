// SPDX-License-Identifier: Apache-2.0
// Small helpers that class declarations of the media foundation use.
#pragma once

#include <cstddef>

/** Forbids copying and assigning. Goes into the private part of a class. */
// The name is declared here, so it can't be in parentheses. NOLINTBEGIN(bugprone-macro-parentheses)
#define DISALLOW_EVIL_CONSTRUCTORS(name) \
    name(const name&) = delete;          \
    name& operator=(const name&) = delete
// NOLINTEND(bugprone-macro-parentheses)

namespace android {

/** The number of elements of an array; a pointer does not compile. */
template <typename T, size_t N>
constexpr size_t arraySize(const T (&)[N]) {
    return N;
}

}  // namespace android

#define ARRAY_SIZE(array) (::android::arraySize(array))
