// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <hidl/HidlBinderSupport.h>

namespace android {
namespace hardware {
namespace {

/** What any process can put where a string, a sequence or a handle is expected. */
struct RawValue {
    const void* pointer;
    uint32_t size;
    uint32_t flags;
};
static_assert(sizeof(RawValue) == sizeof(hidl_string), "same layout");
static_assert(sizeof(RawValue) == sizeof(hidl_vec<int>), "same layout");
static_assert(sizeof(RawValue) == sizeof(hidl_handle), "same layout");

/** A parcel with one value, as the receiver finds it. */
class HidlParcelTest : public testing::Test {
  protected:
    template <typename T>
    void writeValue(const T& value) {
        ASSERT_EQ(OK, mParcel.writeBuffer(&value, sizeof(value), &mParent));
    }
    template <typename T>
    const T& readValue() {
        const void* value = nullptr;
        EXPECT_EQ(OK, mParcel.readBuffer(sizeof(T), &mParent, &value));
        return *static_cast<const T*>(value);
    }

    status_t readString() {
        return readEmbeddedFromParcel(readValue<hidl_string>(), mParcel, mParent, 0);
    }
    status_t readVec() {
        size_t child;
        return readEmbeddedFromParcel(readValue<hidl_vec<int>>(), mParcel, mParent, 0, &child);
    }
    status_t readHandle() {
        return readEmbeddedFromParcel(readValue<hidl_handle>(), mParcel, mParent, 0);
    }

    Parcel mParcel;
    size_t mParent = 0;
};

TEST_F(HidlParcelTest, BringsAString) {
    const hidl_string text("a\0b", 3);
    writeValue(text);
    ASSERT_EQ(OK, writeEmbeddedToParcel(text, &mParcel, mParent, 0));

    const auto& received = readValue<hidl_string>();
    ASSERT_EQ(OK, readEmbeddedFromParcel(received, mParcel, mParent, 0));
    EXPECT_EQ(std::string(text), std::string(received));
}

TEST_F(HidlParcelTest, BringsAnEmptyString) {
    const hidl_string text;
    writeValue(text);
    ASSERT_EQ(OK, writeEmbeddedToParcel(text, &mParcel, mParent, 0));
    EXPECT_EQ(OK, readString());
}

TEST_F(HidlParcelTest, RefusesAStringWithoutItsNul) {
    const char text[] = "text";
    const RawValue value{text, 3, 0};
    writeValue(value);
    ASSERT_EQ(OK, mParcel.writeEmbeddedBuffer(text, 4, nullptr, mParent, 0));
    EXPECT_EQ(BAD_VALUE, readString());
}

TEST_F(HidlParcelTest, RefusesAStringLongerThanItsBuffer) {
    const char text[] = "text";
    const RawValue value{text, 100, 0};
    writeValue(value);
    ASSERT_EQ(OK, mParcel.writeEmbeddedBuffer(text, 5, nullptr, mParent, 0));
    EXPECT_EQ(BAD_VALUE, readString());
}

TEST_F(HidlParcelTest, RefusesAStringWithoutABuffer) {
    const RawValue value{nullptr, 0, 0};
    writeValue(value);
    ASSERT_EQ(OK, mParcel.writeEmbeddedBuffer(nullptr, 1, nullptr, mParent, 0));
    EXPECT_EQ(BAD_VALUE, readString());
}

TEST_F(HidlParcelTest, RefusesAStringThatPointsElsewhere) {
    const char text[] = "text";
    const RawValue value{"elsewhere", 4, 0};
    writeValue(value);
    mParcel.writeEmbeddedBuffer(text, 5, nullptr, mParent, 0);
    EXPECT_EQ(BAD_VALUE, readString());
}

TEST_F(HidlParcelTest, RefusesAStringThatIsMissing) {
    const RawValue value{"text", 4, 0};
    writeValue(value);
    EXPECT_NE(OK, readString());
}

TEST_F(HidlParcelTest, BringsASequence) {
    const hidl_vec<int> numbers{1, 2, 3};
    writeValue(numbers);
    size_t child;
    ASSERT_EQ(OK, writeEmbeddedToParcel(numbers, &mParcel, mParent, 0, &child));

    const auto& received = readValue<hidl_vec<int>>();
    ASSERT_EQ(OK, readEmbeddedFromParcel(received, mParcel, mParent, 0, &child));
    EXPECT_EQ(numbers, received);
}

TEST_F(HidlParcelTest, BringsAnEmptySequence) {
    const hidl_vec<int> numbers;
    writeValue(numbers);
    size_t child;
    ASSERT_EQ(OK, writeEmbeddedToParcel(numbers, &mParcel, mParent, 0, &child));
    EXPECT_EQ(OK, readVec());
}

TEST_F(HidlParcelTest, RefusesASequenceWithoutItsElements) {
    const RawValue value{nullptr, 3, 0};
    writeValue(value);
    ASSERT_EQ(OK, mParcel.writeEmbeddedBuffer(nullptr, 12, nullptr, mParent, 0));
    EXPECT_EQ(BAD_VALUE, readVec());
}

TEST_F(HidlParcelTest, RefusesASequenceOfAnotherSize) {
    const int numbers[] = {1, 2, 3};
    const RawValue value{numbers, 0x40000001, 0};  // 4 bytes, if sizes were of 32 bits
    writeValue(value);
    ASSERT_EQ(OK, mParcel.writeEmbeddedBuffer(numbers, 4, nullptr, mParent, 0));
    EXPECT_EQ(BAD_VALUE, readVec());
}

TEST_F(HidlParcelTest, RefusesAnEmptySequenceThatPointsSomewhere) {
    const RawValue value{reinterpret_cast<void*>(0x1000), 0, 0};
    writeValue(value);
    ASSERT_EQ(OK, mParcel.writeEmbeddedBuffer(nullptr, 0, nullptr, mParent, 0));
    EXPECT_EQ(BAD_VALUE, readVec());
}

TEST_F(HidlParcelTest, BringsANullHandle) {
    const hidl_handle handle;
    writeValue(handle);
    ASSERT_EQ(OK, writeEmbeddedToParcel(handle, &mParcel, mParent, 0));
    EXPECT_EQ(OK, readHandle());
}

TEST_F(HidlParcelTest, BringsAHandlesIntegers) {
    native_handle_t* const native = native_handle_create(0, 2);
    native->data[0] = 7;
    native->data[1] = 8;
    const hidl_handle handle(native);
    writeValue(handle);
    ASSERT_EQ(OK, writeEmbeddedToParcel(handle, &mParcel, mParent, 0));

    const auto& received = readValue<hidl_handle>();
    ASSERT_EQ(OK, readEmbeddedFromParcel(received, mParcel, mParent, 0));
    EXPECT_EQ(8, received->data[1]);
    native_handle_delete(native);
}

TEST_F(HidlParcelTest, RefusesANullHandleThatPointsSomewhere) {
    const RawValue value{reinterpret_cast<void*>(0x1000), 0, 0};
    writeValue(value);
    ASSERT_EQ(OK, writeEmbeddedToParcel(hidl_handle(), &mParcel, mParent, 0));
    EXPECT_EQ(BAD_VALUE, readHandle());
}

TEST_F(HidlParcelTest, BringsAnException) {
    ASSERT_EQ(OK, writeToParcel(Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "not now"),
                                &mParcel));
    Status status;
    ASSERT_EQ(OK, readFromParcel(&status, mParcel));
    EXPECT_EQ(Status::EX_ILLEGAL_STATE, status.exceptionCode());
    EXPECT_STREQ("not now", status.exceptionMessage());
}

TEST_F(HidlParcelTest, SaysOkInFourBytes) {
    ASSERT_EQ(OK, writeToParcel(Status::ok(), &mParcel));
    EXPECT_EQ(4u, mParcel.dataSize());
    Status status = Status::fromStatusT(BAD_VALUE);
    EXPECT_EQ(OK, readFromParcel(&status, mParcel));
    EXPECT_TRUE(status.isOk());
}

TEST_F(HidlParcelTest, DoesNotWriteAFailedTransaction) {
    EXPECT_EQ(DEAD_OBJECT, writeToParcel(Status::fromStatusT(DEAD_OBJECT), &mParcel));
    EXPECT_EQ(0u, mParcel.dataSize());
}

TEST_F(HidlParcelTest, AReplyWithoutAStatusFailed) {
    Status status;
    EXPECT_EQ(NOT_ENOUGH_DATA, readFromParcel(&status, mParcel));
    EXPECT_EQ(NOT_ENOUGH_DATA, status.transactionError());
}

}  // namespace
}  // namespace hardware
}  // namespace android
