// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/ColorUtils.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace {

using android::ColorUtils;

struct Result {
    bool pureAspects;
    int32_t dataSpace;
    bool operator==(const Result& other) const {
        return pureAspects == other.pureAspects && dataSpace == other.dataSpace;
    }
};

std::ostream& operator<<(std::ostream& out, const Result& result) {
    return out << result.pureAspects << " 0x" << std::hex << result.dataSpace;
}

Result converted(int32_t dataSpace) {
    auto value = static_cast<android_dataspace>(dataSpace);
    const bool pureAspects = ColorUtils::convertDataSpaceToV0(value);
    return {pureAspects, static_cast<int32_t>(value)};
}

TEST(ColorUtilsTest, ComposesTheDataspacesOfTheOlderNumbering) {
    EXPECT_EQ((Result{true, 0x08810000}), converted(0x201));  // SRGB
    EXPECT_EQ((Result{true, 0x10C10000}), converted(0x104));  // BT709
    EXPECT_EQ((Result{true, 0x08410000}), converted(0x200));  // SRGB_LINEAR
    EXPECT_EQ((Result{true, 0x10C40000}), converted(0x103));  // BT601_525
    EXPECT_EQ((Result{true, 0x10C20000}), converted(0x102));  // BT601_625
    EXPECT_EQ((Result{true, 0x08C20000}), converted(0x101));  // JFIF
}

TEST(ColorUtilsTest, AcceptsComposedDataspacesAsTheyAre) {
    for (int32_t dataSpace : {0, 0x08C20000, 0x10C60000, 0x08810000, 0x3FFF0000}) {
        EXPECT_EQ((Result{true, dataSpace}), converted(dataSpace));
    }
}

TEST(ColorUtilsTest, RefusesWhatAspectsDoNotDescribe) {
    for (int32_t dataSpace : {1, 0x1000, 0x1001, 0x105, 0x10C60001}) {
        EXPECT_EQ((Result{false, dataSpace}), converted(dataSpace));
    }
}

}  // namespace
