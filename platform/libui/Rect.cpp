// SPDX-License-Identifier: Apache-2.0
#include "ui/Rect.h"

#include <algorithm>

namespace android {

const Rect Rect::INVALID_RECT{0, 0, -1, -1};
const Rect Rect::EMPTY_RECT{0, 0, 0, 0};

bool Rect::intersect(const Rect& with, Rect* result) const {
    result->left = std::max(left, with.left);
    result->top = std::max(top, with.top);
    result->right = std::min(right, with.right);
    result->bottom = std::min(bottom, with.bottom);
    return !result->isEmpty();
}

}  // namespace android
