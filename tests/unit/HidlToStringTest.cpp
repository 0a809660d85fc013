// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include <android/hardware/graphics/bufferqueue/1.0/IGraphicBufferProducer.h>
#include <gtest/gtest.h>
#include <hidl/HidlSupport.h>
#include <korvane/hardware/camera/desktop/2.0/types.h>

namespace android {
namespace hardware {
namespace {

using graphics::bufferqueue::V1_0::IGraphicBufferProducer;
using ::korvane::hardware::camera::desktop::V2_0::ClientType;

TEST(HidlToStringTest, WritesScalars) {
    EXPECT_EQ("true", toString(true));
    EXPECT_EQ("200", toString(uint8_t(200)));
    EXPECT_EQ("-5", toString(int64_t(-5)));
    EXPECT_EQ("1.5", toString(1.5f));
    EXPECT_EQ("0xff", details::toHexString(int8_t(-1)));
    EXPECT_EQ("ff", details::toHexString(uint32_t(255), false));
}

TEST(HidlToStringTest, WritesContainersWithTheirElements) {
    EXPECT_EQ("[2]{\"a\", \"b\"}", toString(hidl_vec<hidl_string>{"a", "b"}));
    EXPECT_EQ("[0]{}", toString(hidl_vec<int32_t>()));
    EXPECT_EQ("[2]{1, 2}", toString(hidl_array<int, 2>(std::array<int, 2>{1, 2})));
}

TEST(HidlToStringTest, WritesHandles) {
    EXPECT_EQ("nullptr", toString(hidl_handle()));
    native_handle_t* const native = native_handle_create(0, 3);
    EXPECT_EQ("handle with 0 fds, 3 ints", toString(hidl_handle(native)));
    native_handle_delete(native);
}

struct SilentRecipient : hidl_death_recipient {
    void serviceDied(uint64_t, const wp<hidl::base::V1_0::IBase>&) override {}
};

TEST(HidlToStringTest, WritesWhatHasNoTextOfItsOwn) {
    EXPECT_EQ("0x1f", toString(reinterpret_cast<const void*>(0x1f)));
    EXPECT_EQ("memory", toString(hidl_memory()));
    EXPECT_EQ("nullptr", toString(sp<hidl_death_recipient>()));
    EXPECT_EQ("death recipient", toString(sp<hidl_death_recipient>(new SilentRecipient())));
}

TEST(HidlToStringTest, WritesEnumsByNameAndUnknownValuesInHex) {
    using ::korvane::hardware::camera::desktop::V2_0::toString;
    EXPECT_EQ("WEBCAM_CONTROLLER", toString(ClientType::WEBCAM_CONTROLLER));
    EXPECT_EQ("0x63", toString(static_cast<ClientType>(99)));
}

TEST(HidlToStringTest, WritesNestedStructs) {
    IGraphicBufferProducer::FrameEventHistoryDelta delta{};
    delta.deltas.resize(1);
    delta.compositorTiming.intervalNs = 16666667;
    const std::string text = toString(delta);
    EXPECT_NE(std::string::npos, text.find(".deltas = [1]{{.index = 0")) << text;
    EXPECT_NE(std::string::npos, text.find(".intervalNs = 16666667")) << text;
}

TEST(HidlEnumRangeTest, VisitsEveryValueInOrder) {
    std::vector<int> values;
    for (const ClientType type : hidl_enum_range<ClientType>()) {
        values.push_back(static_cast<int>(type));
    }
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}), values);
}

}  // namespace
}  // namespace hardware
}  // namespace android
