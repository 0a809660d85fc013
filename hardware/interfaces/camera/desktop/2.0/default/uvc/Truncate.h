// SPDX-License-Identifier: Apache-2.0
// What C++ leaves undefined: a float beyond the integers.
#pragma once

#include <limits>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Truncates towards 0. Beyond either end of the range it saturates, as the phone's processor does;
 * what is not a number becomes the lower end.
 */
template <typename Integer>
Integer truncateTo(float value) {
    using Limits = std::numeric_limits<Integer>;
    if (!(value > static_cast<float>(Limits::min()))) return Limits::min();
    // As a float the upper end is the first number beyond it.
    return value < static_cast<float>(Limits::max()) ? static_cast<Integer>(value) : Limits::max();
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
