// SPDX-License-Identifier: Apache-2.0
// What a parcel carries, from being written to being read where it was received.
#include <cstddef>
#include <limits>
#include <memory>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <hwbinder/Binder.h>
#include <hwbinder/Parcel.h>

#include "support/ReceivedBytes.h"

namespace korvane::test {
namespace {

using android::BAD_VALUE;
using android::NOT_ENOUGH_DATA;
using android::OK;
using android::sp;
using android::status_t;
using android::String16;
using android::UNEXPECTED_NULL;
using android::hardware::BHwBinder;
using android::hardware::IBinder;
using android::hardware::Parcel;

struct Outer {
    const void* inner;
    uint64_t number;
};

struct NativeHandle {
    NativeHandle(int fds, int ints) : handle(native_handle_create(fds, ints)) {}
    ~NativeHandle() { native_handle_delete(handle); }
    native_handle_t* const handle;
};

TEST(HwParcelTest, EveryScalarComesBackWithItsExtremes) {
    Parcel written;
    EXPECT_EQ(OK, written.writeBool(true));
    EXPECT_EQ(OK, written.writeBool(false));
    EXPECT_EQ(OK, written.writeInt8(-128));
    EXPECT_EQ(OK, written.writeUint8(255));
    EXPECT_EQ(OK, written.writeInt16(-32768));
    EXPECT_EQ(OK, written.writeUint16(65535));
    EXPECT_EQ(OK, written.writeInt32(std::numeric_limits<int32_t>::min()));
    EXPECT_EQ(OK, written.writeUint32(std::numeric_limits<uint32_t>::max()));
    EXPECT_EQ(OK, written.writeInt64(std::numeric_limits<int64_t>::min()));
    EXPECT_EQ(OK, written.writeUint64(std::numeric_limits<uint64_t>::max()));
    EXPECT_EQ(OK, written.writeFloat(1.5f));
    EXPECT_EQ(OK, written.writeDouble(-2.25));
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    bool yes = false, no = true;
    int8_t i8;
    uint8_t u8;
    int16_t i16;
    uint16_t u16;
    int32_t i32;
    uint32_t u32;
    int64_t i64;
    uint64_t u64;
    float f;
    double d;
    EXPECT_EQ(OK, received.readBool(&yes));
    EXPECT_EQ(OK, received.readBool(&no));
    EXPECT_EQ(OK, received.readInt8(&i8));
    EXPECT_EQ(OK, received.readUint8(&u8));
    EXPECT_EQ(OK, received.readInt16(&i16));
    EXPECT_EQ(OK, received.readUint16(&u16));
    EXPECT_EQ(OK, received.readInt32(&i32));
    EXPECT_EQ(OK, received.readUint32(&u32));
    EXPECT_EQ(OK, received.readInt64(&i64));
    EXPECT_EQ(OK, received.readUint64(&u64));
    EXPECT_EQ(OK, received.readFloat(&f));
    EXPECT_EQ(OK, received.readDouble(&d));
    EXPECT_TRUE(yes);
    EXPECT_FALSE(no);
    EXPECT_EQ(-128, i8);
    EXPECT_EQ(255, u8);
    EXPECT_EQ(-32768, i16);
    EXPECT_EQ(65535, u16);
    EXPECT_EQ(std::numeric_limits<int32_t>::min(), i32);
    EXPECT_EQ(std::numeric_limits<uint32_t>::max(), u32);
    EXPECT_EQ(std::numeric_limits<int64_t>::min(), i64);
    EXPECT_EQ(std::numeric_limits<uint64_t>::max(), u64);
    EXPECT_EQ(1.5f, f);
    EXPECT_EQ(-2.25, d);
    EXPECT_EQ(0u, received.dataAvail());
}

TEST(HwParcelTest, EverythingTakesAMultipleOfFourBytes) {
    Parcel parcel;
    parcel.writeBool(true);
    EXPECT_EQ(4u, parcel.dataSize());
    parcel.writeUint8(1);
    EXPECT_EQ(8u, parcel.dataSize());
    parcel.writeUint64(1);
    EXPECT_EQ(16u, parcel.dataSize());
    parcel.writeCString("four");
    EXPECT_EQ(24u, parcel.dataSize());
}

TEST(HwParcelTest, AnyByteButZeroIsTrue) {
    Parcel parcel;
    parcel.writeUint8(0x80);
    bool value = false;
    EXPECT_EQ(OK, parcel.readBool(&value));
    EXPECT_TRUE(value);
}

TEST(HwParcelTest, ReadingPastTheEndGivesNothingAndStaysThere) {
    Parcel parcel;
    parcel.writeInt32(1);
    int64_t value = 77;
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readInt64(&value));
    EXPECT_EQ(77, value);
    EXPECT_EQ(0u, parcel.dataPosition());
    int32_t small;
    EXPECT_EQ(OK, parcel.readInt32(&small));
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readInt32(&small));
    size_t handle;
    const void* buffer;
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readBuffer(4, &handle, &buffer));
    sp<IBinder> binder;
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readNullableStrongBinder(&binder));
    const native_handle_t* native;
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readNullableNativeHandleNoDup(&native));
    String16 string;
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readString16(&string));
    EXPECT_EQ(nullptr, parcel.readCString());
}

TEST(HwParcelTest, APositionPastTheEndIsTheEnd) {
    Parcel parcel;
    parcel.writeInt32(1);
    parcel.setDataPosition(4000);
    EXPECT_EQ(4u, parcel.dataPosition());
    EXPECT_EQ(0u, parcel.dataAvail());
}

TEST(HwParcelTest, OnlyTheInterfaceCalledIsAccepted) {
    Parcel written;
    written.writeInterfaceToken("a.b@1.0::IFoo");
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    EXPECT_FALSE(received.enforceInterface("a.b@1.0::IBar"));
    received.setDataPosition(0);
    EXPECT_TRUE(received.enforceInterface("a.b@1.0::IFoo"));
}

TEST(HwParcelTest, ATokenWithoutItsEndIsRefused) {
    Parcel written;
    written.writeInterfaceToken("IFoo1234567");
    ReceivedBytes bytes(written);
    bytes.setDataSize(8);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    EXPECT_FALSE(received.enforceInterface("IFoo1234"));
    EXPECT_FALSE(received.enforceInterface("IFoo1234567"));
}

TEST(HwParcelTest, StringsComeBackWithWhateverTheyContain) {
    const char16_t text[] = u"caf\u00e9 \U0001f4f7 a\0b";
    const String16 sent(text, std::size(text) - 1);
    Parcel written;
    written.writeString16(sent);
    written.writeString16(String16());
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    String16 first;
    String16 second(u"old");
    EXPECT_EQ(OK, received.readString16(&first));
    EXPECT_EQ(OK, received.readString16(&second));
    EXPECT_EQ(sent, first);
    EXPECT_EQ(0u, second.size());
}

TEST(HwParcelTest, AStringThatDoesNotFitOrEndIsRefused) {
    for (const uint32_t length : {0u, 1u, 3u, 6u, 0x7fffffffu, 0xffffffffu}) {
        Parcel written;
        written.writeString16(String16(u"four"));
        ReceivedBytes bytes(written);
        memcpy(bytes.data(), &length, sizeof(length));
        Parcel received;
        ASSERT_EQ(OK, bytes.deliver(&received));
        String16 string;
        EXPECT_NE(OK, received.readString16(&string)) << length;
        EXPECT_EQ(0u, received.dataPosition());
    }
}

TEST(HwParcelTest, BuffersAreCopiedWhenSentAndNotBefore) {
    char text[8] = "before";
    Parcel written;
    size_t handle = 99;
    ASSERT_EQ(OK, written.writeBuffer(text, sizeof(text), &handle));
    EXPECT_EQ(0u, handle);
    strcpy(text, "after");
    ReceivedBytes bytes(written);
    strcpy(text, "late");
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    const void* buffer;
    ASSERT_EQ(OK, received.readBuffer(sizeof(text), &handle, &buffer));
    EXPECT_STREQ("after", static_cast<const char*>(buffer));
}

TEST(HwParcelTest, AnEmbeddedBufferIsFoundThroughItsParent) {
    const char text[] = "inside";
    const Outer outer{text, 5};
    Parcel written;
    size_t parent;
    ASSERT_EQ(OK, written.writeBuffer(&outer, sizeof(outer), &parent));
    ASSERT_EQ(OK, written.writeEmbeddedBuffer(text, sizeof(text), nullptr, parent, 0));
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    const void* read;
    const void* inner;
    size_t child = 99;
    ASSERT_EQ(OK, received.readBuffer(sizeof(outer), &parent, &read));
    ASSERT_EQ(OK, received.readEmbeddedBuffer(sizeof(text), &child, parent, 0, &inner));
    EXPECT_EQ(1u, child);
    EXPECT_NE(text, inner);
    EXPECT_EQ(inner, static_cast<const Outer*>(read)->inner);
    EXPECT_STREQ("inside", static_cast<const char*>(inner));
    EXPECT_EQ(5u, static_cast<const Outer*>(read)->number);
}

TEST(HwParcelTest, AWrittenParcelCanBeReadInPlace) {
    const char text[] = "inside";
    const Outer outer{text, 5};
    Parcel parcel;
    size_t parent;
    ASSERT_EQ(OK, parcel.writeBuffer(&outer, sizeof(outer), &parent));
    ASSERT_EQ(OK, parcel.writeEmbeddedBuffer(text, sizeof(text), nullptr, parent, 0));
    const void* read;
    const void* inner;
    ASSERT_EQ(OK, parcel.readBuffer(sizeof(outer), &parent, &read));
    ASSERT_EQ(OK, parcel.readEmbeddedBuffer(sizeof(text), nullptr, parent, 0, &inner));
    EXPECT_EQ(&outer, read);
    EXPECT_EQ(text, inner);
}

TEST(HwParcelTest, ABufferOfNoBytesIsNotANullBuffer) {
    const char empty = 0;
    Parcel written;
    size_t handle = 99;
    ASSERT_EQ(OK, written.writeBuffer(&empty, 0, &handle));
    EXPECT_EQ(0u, handle);
    size_t nullHandle = 99;
    ASSERT_EQ(OK, written.writeBuffer(nullptr, 0, &nullHandle));
    EXPECT_EQ(99u, nullHandle);
    size_t last = 99;
    ASSERT_EQ(OK, written.writeBuffer(&empty, 1, &last));
    EXPECT_EQ(1u, last);
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    const void* buffer;
    EXPECT_EQ(OK, received.readBuffer(0, nullptr, &buffer));
    EXPECT_NE(nullptr, buffer);
    EXPECT_EQ(OK, received.readNullableBuffer(0, nullptr, &buffer));
    EXPECT_EQ(nullptr, buffer);
    EXPECT_EQ(OK, received.readBuffer(1, nullptr, &buffer));
}

TEST(HwParcelTest, NullIsRefusedWhereItIsNotAllowed) {
    const Outer outer{nullptr, 0};
    Parcel parcel;
    size_t parent;
    parcel.writeBuffer(nullptr, 0, nullptr);
    parcel.writeStrongBinder(nullptr);
    parcel.writeNativeHandleNoDup(nullptr);
    parcel.writeBuffer(&outer, sizeof(outer), &parent);
    parcel.writeEmbeddedBuffer(nullptr, 0, nullptr, parent, 0);
    const void* buffer;
    sp<IBinder> binder;
    const native_handle_t* handle;
    EXPECT_EQ(UNEXPECTED_NULL, parcel.readBuffer(0, nullptr, &buffer));
    EXPECT_EQ(UNEXPECTED_NULL, parcel.readStrongBinder(&binder));
    EXPECT_EQ(UNEXPECTED_NULL, parcel.readNativeHandleNoDup(&handle));
    EXPECT_EQ(OK, parcel.readBuffer(sizeof(outer), &parent, &buffer));
    EXPECT_EQ(UNEXPECTED_NULL, parcel.readEmbeddedBuffer(0, nullptr, parent, 0, &buffer));
}

TEST(HwParcelTest, AnEmbeddedBufferNeedsAParentWithRoomForItsAddress) {
    const char text[] = "inside";
    Parcel parcel;
    size_t parent;
    ASSERT_EQ(OK, parcel.writeBuffer(text, 7, &parent));
    ASSERT_EQ(OK, parcel.writeStrongBinder(new BHwBinder));
    const size_t size = parcel.dataSize();
    EXPECT_EQ(BAD_VALUE, parcel.writeEmbeddedBuffer(text, 7, nullptr, parent, 0));
    EXPECT_EQ(BAD_VALUE, parcel.writeEmbeddedBuffer(text, 7, nullptr, 1, 0));
    EXPECT_EQ(BAD_VALUE, parcel.writeEmbeddedBuffer(text, 7, nullptr, 2, 0));
    EXPECT_EQ(BAD_VALUE, parcel.writeEmbeddedBuffer(text, 7, nullptr, SIZE_MAX, 0));
    EXPECT_EQ(size, parcel.dataSize());
    const Outer outer{text, 0};
    ASSERT_EQ(OK, parcel.writeBuffer(&outer, sizeof(outer), &parent));
    EXPECT_EQ(BAD_VALUE, parcel.writeEmbeddedBuffer(text, 7, nullptr, parent, 9));
    EXPECT_EQ(BAD_VALUE, parcel.writeEmbeddedBuffer(text, 7, nullptr, parent, SIZE_MAX - 3));
    EXPECT_EQ(OK, parcel.writeEmbeddedBuffer(text, 7, nullptr, parent, 8));
}

TEST(HwParcelTest, NothingPastTwoGigabytesIsTaken) {
    const char byte = 0;
    Parcel parcel;
    EXPECT_EQ(android::NO_MEMORY, parcel.writeBuffer(&byte, size_t{1} << 31, nullptr));
    EXPECT_EQ(OK, parcel.writeBuffer(&byte, (size_t{1} << 31) - 64, nullptr));
    EXPECT_EQ(android::NO_MEMORY, parcel.writeBuffer(&byte, 64, nullptr));
    EXPECT_EQ(1u, parcel.ipcObjectsCount());
}

TEST(HwParcelTest, RoomForBuffersIsRoundedUpToEightBytesEach) {
    const char bytes[16] = "";
    Parcel parcel;
    parcel.writeBuffer(bytes, 1, nullptr);
    EXPECT_EQ(8u, parcel.ipcBufferSize());
    parcel.writeBuffer(bytes, 16, nullptr);
    EXPECT_EQ(24u, parcel.ipcBufferSize());
    parcel.writeBuffer(nullptr, 16, nullptr);
    EXPECT_EQ(24u, parcel.ipcBufferSize());
}

TEST(HwParcelTest, ANativeHandleBringsDuplicatesOfItsDescriptors) {
    NativeHandle sent(1, 2);
    sent.handle->data[0] = STDERR_FILENO;
    sent.handle->data[1] = 11;
    sent.handle->data[2] = 22;
    Parcel written;
    ASSERT_EQ(OK, written.writeNativeHandleNoDup(sent.handle));
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    const native_handle_t* handle;
    ASSERT_EQ(OK, received.readNativeHandleNoDup(&handle));
    EXPECT_EQ(1, handle->numFds);
    EXPECT_EQ(2, handle->numInts);
    EXPECT_NE(STDERR_FILENO, handle->data[0]);
    EXPECT_NE(-1, fcntl(handle->data[0], F_GETFD));
    EXPECT_EQ(11, handle->data[1]);
    EXPECT_EQ(22, handle->data[2]);
    EXPECT_EQ(STDERR_FILENO, sent.handle->data[0]);
}

TEST(HwParcelTest, ANativeHandleMayStandInsideAStruct) {
    NativeHandle sent(1, 0);
    sent.handle->data[0] = STDERR_FILENO;
    const Outer outer{sent.handle, 0};
    Parcel written;
    size_t parent;
    ASSERT_EQ(OK, written.writeBuffer(&outer, sizeof(outer), &parent));
    ASSERT_EQ(OK, written.writeEmbeddedNativeHandle(sent.handle, parent, 0));
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    const void* read;
    const native_handle_t* handle;
    ASSERT_EQ(OK, received.readBuffer(sizeof(outer), &parent, &read));
    ASSERT_EQ(OK, received.readEmbeddedNativeHandle(parent, 0, &handle));
    EXPECT_EQ(handle, static_cast<const Outer*>(read)->inner);
}

TEST(HwParcelTest, ANullHandleInsideAStructIsNullThereToo) {
    const Outer outer{nullptr, 0};
    const Outer wild{&outer, 0};
    for (const auto& [sent, expected] : {std::pair(outer, OK), std::pair(wild, BAD_VALUE)}) {
        Parcel written;
        size_t parent;
        ASSERT_EQ(OK, written.writeBuffer(&sent, sizeof(sent), &parent));
        ASSERT_EQ(OK, written.writeEmbeddedNativeHandle(nullptr, parent, 0));
        ReceivedBytes bytes(written);
        Parcel received;
        ASSERT_EQ(OK, bytes.deliver(&received));
        const void* read;
        const native_handle_t* handle;
        ASSERT_EQ(OK, received.readBuffer(sizeof(outer), &parent, &read));
        EXPECT_EQ(expected, received.readNullableEmbeddedNativeHandle(parent, 0, &handle));
        EXPECT_EQ(nullptr, handle);
    }
}

TEST(HwParcelTest, ANativeHandleWithImpossibleCountsIsNotWritten) {
    struct {
        native_handle_t header;
        int data[4];
    } handle{};
    Parcel parcel;
    for (const auto& [version, fds, ints] :
         {std::tuple(12, -1, 0), std::tuple(12, 0, -1), std::tuple(12, 1025, 0),
          std::tuple(12, 0, 1025), std::tuple(11, 0, 0)}) {
        handle.header.version = version;
        handle.header.numFds = fds;
        handle.header.numInts = ints;
        EXPECT_EQ(BAD_VALUE, parcel.writeNativeHandleNoDup(&handle.header));
    }
    EXPECT_EQ(0u, parcel.dataSize());
}

TEST(HwParcelTest, AnObjectOfThisProcessComesBackAsItself) {
    const sp<IBinder> object = new BHwBinder;
    Parcel written;
    ASSERT_EQ(OK, written.writeStrongBinder(object));
    ASSERT_EQ(OK, written.writeStrongBinder(nullptr));
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    sp<IBinder> read;
    ASSERT_EQ(OK, received.readStrongBinder(&read));
    EXPECT_EQ(object, read);
    ASSERT_EQ(OK, received.readNullableStrongBinder(&read));
    EXPECT_EQ(nullptr, read);
}

TEST(HwParcelTest, AParcelKeepsItsObjectsAlive) {
    android::wp<IBinder> object;
    {
        Parcel parcel;
        {
            const sp<IBinder> written = new BHwBinder;
            object = written;
            parcel.writeStrongBinder(written);
        }
        EXPECT_NE(nullptr, object.promote());
    }
    EXPECT_EQ(nullptr, object.promote());
}

TEST(HwParcelTest, ReceivedBytesAreGivenBackOnce) {
    Parcel written;
    written.writeInt32(1);
    ReceivedBytes bytes(written);
    {
        Parcel received;
        ASSERT_EQ(OK, bytes.deliver(&received));
        EXPECT_EQ(0, bytes.releases());
        received.freeData();
        EXPECT_EQ(1, bytes.releases());
        EXPECT_EQ(0u, received.dataSize());
    }
    EXPECT_EQ(1, bytes.releases());
    {
        Parcel received;
        ASSERT_EQ(OK, bytes.deliver(&received));
    }
    EXPECT_EQ(2, bytes.releases());
}

TEST(HwParcelTest, AReceivedParcelCannotBeWritten) {
    Parcel written;
    written.writeInt32(1);
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    EXPECT_EQ(android::INVALID_OPERATION, received.writeInt32(2));
    EXPECT_EQ(android::INVALID_OPERATION, received.writeStrongBinder(nullptr));
    EXPECT_EQ(android::INVALID_OPERATION, received.writeBuffer("", 1, nullptr));
    EXPECT_EQ(android::INVALID_OPERATION, received.writeEmbeddedBuffer("", 1, nullptr, 0, 0));
    EXPECT_EQ(android::INVALID_OPERATION, received.writeNativeHandleNoDup(nullptr));
}

// Whether a reader has asked for everything.

TEST(HwParcelObjectsTest, AParcelWithoutObjectsIsReadFromTheStart) {
    Parcel parcel;
    EXPECT_TRUE(parcel.isEveryObjectRead());
    ASSERT_EQ(OK, parcel.writeUint64(1));
    EXPECT_TRUE(parcel.isEveryObjectRead());
}

TEST(HwParcelObjectsTest, EachKindOfObjectCountsWhenItIsRead) {
    const NativeHandle native(0, 1);
    native.handle->data[0] = 7;
    const sp<BHwBinder> object = new BHwBinder();
    Parcel parcel;
    ASSERT_EQ(OK, parcel.writeBuffer("text", 5, nullptr));
    ASSERT_EQ(OK, parcel.writeNativeHandleNoDup(native.handle));
    ASSERT_EQ(OK, parcel.writeStrongBinder(object));
    EXPECT_FALSE(parcel.isEveryObjectRead());

    const void* buffer;
    EXPECT_EQ(OK, parcel.readBuffer(5, nullptr, &buffer));
    EXPECT_FALSE(parcel.isEveryObjectRead());
    const native_handle_t* handle;
    EXPECT_EQ(OK, parcel.readNativeHandleNoDup(&handle));
    EXPECT_FALSE(parcel.isEveryObjectRead());
    sp<IBinder> binder;
    EXPECT_EQ(OK, parcel.readStrongBinder(&binder));
    EXPECT_TRUE(parcel.isEveryObjectRead());
}

TEST(HwParcelObjectsTest, WhatIsReadAsNumbersOrPassedOverDoesNotCount) {
    const sp<BHwBinder> object = new BHwBinder();
    Parcel parcel;
    ASSERT_EQ(OK, parcel.writeStrongBinder(object));
    ASSERT_EQ(OK, parcel.writeStrongBinder(object));
    uint64_t number;
    for (int i = 0; i < 3; i++) ASSERT_EQ(OK, parcel.readUint64(&number));
    const size_t second = parcel.dataPosition();
    sp<IBinder> binder;
    for (int i = 0; i < 2; i++) {
        parcel.setDataPosition(second);
        EXPECT_EQ(OK, parcel.readStrongBinder(&binder));
        EXPECT_FALSE(parcel.isEveryObjectRead());
    }

    parcel.setDataPosition(0);
    EXPECT_EQ(OK, parcel.readStrongBinder(&binder));
    parcel.setDataPosition(parcel.dataSize());
    EXPECT_FALSE(parcel.isEveryObjectRead());
}

TEST(HwParcelObjectsTest, GoingBackForgetsWhatWasRead) {
    const sp<BHwBinder> object = new BHwBinder();
    Parcel parcel;
    ASSERT_EQ(OK, parcel.writeStrongBinder(object));
    sp<IBinder> binder;
    ASSERT_EQ(OK, parcel.readStrongBinder(&binder));
    EXPECT_TRUE(parcel.isEveryObjectRead());
    parcel.setDataPosition(0);
    EXPECT_FALSE(parcel.isEveryObjectRead());
}

TEST(HwParcelObjectsTest, AnArrayThatIsRefusedIsNotRead) {
    const NativeHandle native(0, 1);
    native.handle->data[0] = 7;
    Parcel written;
    ASSERT_EQ(OK, written.writeNativeHandleNoDup(native.handle));
    ReceivedBytes bytes(written);
    bytes.change<binder_fd_array_object>(1, [](auto& array) { array.parent_offset++; });
    Parcel parcel;
    ASSERT_EQ(OK, bytes.deliver(&parcel));
    const native_handle_t* handle;
    EXPECT_EQ(BAD_VALUE, parcel.readNativeHandleNoDup(&handle));
    EXPECT_FALSE(parcel.isEveryObjectRead());
}

}  // namespace
}  // namespace korvane::test
