// SPDX-License-Identifier: Apache-2.0
// Parcels that a broken or hostile process might send: each is refused, and nothing outside is
// read.
#include <cstddef>
#include <cstring>
#include <functional>
#include <random>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <hwbinder/Binder.h>
#include <hwbinder/Parcel.h>

#include "support/ReceivedBytes.h"

namespace korvane::test {
namespace {

using android::BAD_TYPE;
using android::BAD_VALUE;
using android::NOT_ENOUGH_DATA;
using android::OK;
using android::sp;
using android::status_t;
using android::hardware::BHwBinder;
using android::hardware::IBinder;
using android::hardware::Parcel;

/** A struct with a text and a native handle in it, sent with everything else that parcels carry. */
struct Record {
    const char* text;
    const native_handle_t* handle;
    const void* nothing;
};

constexpr char kText[] = "sixteen and more";
constexpr char kToken[] = "test@1.0::ITest";

// The objects of the sample by index.
enum Object : size_t { RECORD, TEXT, HANDLE_IN_RECORD, FDS_IN_RECORD, HANDLE, FDS, BINDER, COUNT };

class Sample {
  public:
    Sample() : mHandle(native_handle_create(2, 1)), mBinder(new BHwBinder) {
        mHandle->data[0] = STDIN_FILENO;
        mHandle->data[1] = STDERR_FILENO;
        mHandle->data[2] = 7;
        mRecord = {kText, mHandle, nullptr};
        size_t parent = 0;
        mParcel.writeInterfaceToken(kToken);
        mParcel.writeInt32(42);
        mParcel.writeBuffer(&mRecord, sizeof(mRecord), &parent);
        mParcel.writeEmbeddedBuffer(kText, sizeof(kText), nullptr, parent, offsetof(Record, text));
        mParcel.writeEmbeddedNativeHandle(mHandle, parent, offsetof(Record, handle));
        mParcel.writeEmbeddedBuffer(nullptr, 0, nullptr, parent, offsetof(Record, nothing));
        mParcel.writeNativeHandleNoDup(mHandle);
        mParcel.writeStrongBinder(mBinder);
        mParcel.writeStrongBinder(nullptr);
        mParcel.writeInt64(-1);
    }
    ~Sample() { native_handle_delete(mHandle); }

    const Parcel& parcel() const { return mParcel; }

  private:
    native_handle_t* const mHandle;
    const sp<IBinder> mBinder;
    Record mRecord;
    Parcel mParcel;
};

/** Uses every byte that it was promised, for AddressSanitizer to see. */
size_t touch(const void* bytes, size_t size) {
    size_t sum = 0;
    for (size_t i = 0; i < size; i++) sum += static_cast<const volatile uint8_t*>(bytes)[i];
    return sum;
}

void touch(const native_handle_t* handle) {
    if (handle == nullptr) return;
    touch(handle->data, (handle->numFds + handle->numInts) * sizeof(int));
}

status_t readRecord(const Parcel& parcel) {
    size_t parent;
    const void* buffer;
    status_t status = parcel.readBuffer(sizeof(Record), &parent, &buffer);
    if (status != OK) return status;
    touch(buffer, sizeof(Record));
    status = parcel.readEmbeddedBuffer(sizeof(kText), nullptr, parent, offsetof(Record, text),
                                       &buffer);
    if (status != OK) return status;
    touch(buffer, sizeof(kText));
    const native_handle_t* handle;
    status = parcel.readEmbeddedNativeHandle(parent, offsetof(Record, handle), &handle);
    if (status != OK) return status;
    touch(handle);
    return parcel.readNullableEmbeddedBuffer(0, nullptr, parent, offsetof(Record, nothing),
                                             &buffer);
}

/** Reads as a stub would: in order, to the first failure. */
status_t readSample(const Parcel& parcel) {
    if (!parcel.enforceInterface(kToken)) return BAD_TYPE;
    int32_t number;
    status_t status = parcel.readInt32(&number);
    if (status != OK) return status;
    status = readRecord(parcel);
    if (status != OK) return status;
    const native_handle_t* handle;
    status = parcel.readNullableNativeHandleNoDup(&handle);
    if (status != OK) return status;
    touch(handle);
    sp<IBinder> binder;
    status = parcel.readStrongBinder(&binder);
    if (status != OK) return status;
    status = parcel.readNullableStrongBinder(&binder);
    if (status != OK) return status;
    int64_t last;
    return parcel.readInt64(&last);
}

status_t deliverAndRead(ReceivedBytes& bytes) {
    Parcel received;
    const status_t status = bytes.deliver(&received);
    return status != OK ? status : readSample(received);
}

TEST(HwDamagedParcelTest, TheSampleIsSound) {
    const Sample sample;
    ReceivedBytes bytes(sample.parcel());
    ASSERT_EQ(static_cast<size_t>(COUNT), bytes.objectCount());
    EXPECT_EQ(OK, deliverAndRead(bytes));
    EXPECT_EQ(1, bytes.releases());
}

struct Damage {
    const char* name;
    std::function<void(ReceivedBytes&)> apply;
    status_t expected;
};

void PrintTo(const Damage& damage, std::ostream* out) {
    *out << damage.name;
}

template <typename Change>
Damage inBuffer(const char* name, size_t object, Change change) {
    return {name, [=](ReceivedBytes& bytes) { bytes.change<binder_buffer_object>(object, change); },
            BAD_VALUE};
}

template <typename Change>
Damage inDescriptors(const char* name, size_t object, Change change) {
    return {name,
            [=](ReceivedBytes& bytes) { bytes.change<binder_fd_array_object>(object, change); },
            BAD_VALUE};
}

template <typename Change>
Damage inHandle(const char* name, size_t object, Change change) {
    return {name,
            [=](ReceivedBytes& bytes) {
                change(*reinterpret_cast<native_handle_t*>(bytes.buffer(object)));
            },
            BAD_VALUE};
}

Damage inOffset(const char* name, size_t object, std::function<uint64_t(uint64_t)> change,
                status_t expected = BAD_VALUE) {
    return {name,
            [=](ReceivedBytes& bytes) { bytes.setOffset(object, change(bytes.offset(object))); },
            expected};
}

Damage ofType(const char* name, size_t object, uint32_t type, status_t expected = BAD_VALUE) {
    return {name,
            [=](ReceivedBytes& bytes) {
                bytes.change<binder_object_header>(
                        object, [=](binder_object_header& header) { header.type = type; });
            },
            expected};
}

class HwDamagedParcelTableTest : public testing::TestWithParam<Damage> {};

TEST_P(HwDamagedParcelTableTest, IsRefusedAndGivenBack) {
    const Sample sample;
    ReceivedBytes bytes(sample.parcel());
    GetParam().apply(bytes);
    EXPECT_EQ(GetParam().expected, deliverAndRead(bytes));
    EXPECT_EQ(1, bytes.releases());
}

std::string nameOf(const testing::TestParamInfo<Damage>& info) {
    return info.param.name;
}

const auto cast = [](auto* pointer) { return reinterpret_cast<uintptr_t>(pointer); };

INSTANTIATE_TEST_SUITE_P(
        Offsets, HwDamagedParcelTableTest,
        testing::Values(
                inOffset("Unaligned", TEXT, [](uint64_t offset) { return offset + 2; }),
                inOffset("Descending", TEXT, [](uint64_t) { return 0; }),
                inOffset("Overlapping", TEXT, [](uint64_t offset) { return offset - 4; }),
                inOffset("AtTheEnd", BINDER, [](uint64_t) { return 1u << 20; }),
                inOffset("JustPastTheEnd", BINDER, [](uint64_t offset) { return offset + 56; }),
                inOffset("Huge", BINDER, [](uint64_t) { return UINT64_MAX - 3; }),
                inOffset(
                        "AtBytesThatAreNoObject", RECORD, [](uint64_t) { return 0; }, BAD_TYPE),
                Damage{"CutInsideAnObject",
                       [](ReceivedBytes& bytes) { bytes.setDataSize(bytes.offset(BINDER) + 20); },
                       BAD_VALUE},
                Damage{"CutInsideAHeader",
                       [](ReceivedBytes& bytes) { bytes.setDataSize(bytes.offset(BINDER) + 2); },
                       BAD_VALUE},
                Damage{"CutBeforeTheLastScalar",
                       [](ReceivedBytes& bytes) { bytes.setDataSize(bytes.dataSize() - 4); },
                       NOT_ENOUGH_DATA},
                Damage{"ObjectsNotEntered", [](ReceivedBytes& bytes) { bytes.setObjectCount(0); },
                       BAD_VALUE},
                Damage{"LastObjectNotEntered",
                       [](ReceivedBytes& bytes) { bytes.setObjectCount(BINDER); }, BAD_TYPE}),
        nameOf);

INSTANTIATE_TEST_SUITE_P(
        Types, HwDamagedParcelTableTest,
        testing::Values(ofType("Unknown", TEXT, 0x12345678, BAD_TYPE),
                        ofType("BinderForABuffer", TEXT, BINDER_TYPE_BINDER),
                        ofType("BufferForABinder", BINDER, BINDER_TYPE_WEAK_BINDER, BAD_TYPE),
                        ofType("WeakHandleForABinder", BINDER, BINDER_TYPE_WEAK_HANDLE, BAD_TYPE),
                        ofType("BinderForDescriptors", FDS, BINDER_TYPE_BINDER),
                        Damage{"NullBinderOfAnotherType",
                               [](ReceivedBytes& bytes) {
                                   const uint32_t type = BINDER_TYPE_HANDLE;
                                   memcpy(bytes.data() + bytes.offset(BINDER) +
                                                  sizeof(flat_binder_object),
                                          &type, sizeof(type));
                               },
                               BAD_TYPE}),
        nameOf);

INSTANTIATE_TEST_SUITE_P(
        Buffers, HwDamagedParcelTableTest,
        testing::Values(
                inBuffer("TooLong", TEXT, [](auto& buffer) { buffer.length++; }),
                inBuffer("TooShort", TEXT, [](auto& buffer) { buffer.length--; }),
                inBuffer("RootWithParent", RECORD,
                         [](auto& buffer) { buffer.flags = BINDER_BUFFER_FLAG_HAS_PARENT; }),
                inBuffer("ChildWithoutParent", TEXT, [](auto& buffer) { buffer.flags = 0; }),
                inBuffer("ParentIsItself", TEXT, [](auto& buffer) { buffer.parent = TEXT; }),
                inBuffer("ParentIsNoObject", TEXT, [](auto& buffer) { buffer.parent = 1 << 20; }),
                inBuffer("ParentOffsetElsewhere", TEXT,
                         [](auto& buffer) { buffer.parent_offset = offsetof(Record, nothing); }),
                inBuffer("ParentOffsetHuge", TEXT,
                         [](auto& buffer) { buffer.parent_offset = UINT64_MAX - 7; }),
                inBuffer("ChildElsewhereThanItsParentSays", TEXT,
                         [](auto& buffer) { buffer.buffer += 8; }),
                inBuffer("RootBeforeTheArea", RECORD, [](auto& buffer) { buffer.buffer = 8; }),
                inBuffer("RootUnaligned", RECORD, [](auto& buffer) { buffer.buffer += 4; }),
                inBuffer("RootNull", RECORD, [](auto& buffer) { buffer.buffer = 0; }),
                inBuffer("RootHigh", RECORD, [](auto& buffer) { buffer.buffer = UINT64_MAX - 15; }),
                Damage{"RootInTheData",
                       [](ReceivedBytes& bytes) {
                           const uint64_t address = cast(bytes.data());
                           bytes.change<binder_buffer_object>(
                                   RECORD, [=](auto& buffer) { buffer.buffer = address; });
                       },
                       BAD_VALUE},
                Damage{"RootPartlyPastTheArea",
                       [](ReceivedBytes& bytes) {
                           const uint64_t address = bytes.end() - 16;
                           bytes.change<binder_buffer_object>(
                                   RECORD, [=](auto& buffer) { buffer.buffer = address; });
                       },
                       BAD_VALUE},
                Damage{"RootAtTheEndOfTheArea",
                       [](ReceivedBytes& bytes) {
                           const uint64_t address = bytes.end();
                           bytes.change<binder_buffer_object>(
                                   RECORD, [=](auto& buffer) { buffer.buffer = address; });
                       },
                       BAD_VALUE},
                Damage{"AddressInTheParentElsewhere",
                       [](ReceivedBytes& bytes) {
                           memset(bytes.buffer(RECORD) + offsetof(Record, text), 0x41, 8);
                       },
                       BAD_VALUE},
                Damage{"NullWithAnAddressInTheParent",
                       [](ReceivedBytes& bytes) {
                           memset(bytes.buffer(RECORD) + offsetof(Record, nothing), 0x41, 8);
                       },
                       BAD_VALUE},
                Damage{"NullWithALength",
                       [](ReceivedBytes& bytes) {
                           // The null buffer stands, not entered, before the second handle's size.
                           const uint64_t place = bytes.offset(HANDLE) - sizeof(uint64_t) -
                                                  sizeof(binder_buffer_object);
                           const uint64_t length = 1;
                           memcpy(bytes.data() + place + offsetof(binder_buffer_object, length),
                                  &length, sizeof(length));
                       },
                       BAD_VALUE}),
        nameOf);

INSTANTIATE_TEST_SUITE_P(
        Handles, HwDamagedParcelTableTest,
        testing::Values(
                inHandle("NegativeDescriptors", HANDLE, [](auto& handle) { handle.numFds = -1; }),
                inHandle("NegativeInts", HANDLE, [](auto& handle) { handle.numInts = -1; }),
                inHandle("TooManyDescriptors", HANDLE, [](auto& handle) { handle.numFds = 1025; }),
                inHandle("MoreIntsThanSent", HANDLE, [](auto& handle) { handle.numInts = 2; }),
                inHandle("CountsThatCancelOut", HANDLE,
                         [](auto& handle) {
                             handle.numFds = INT32_MAX;
                             handle.numInts = INT32_MIN;
                         }),
                inHandle("IntsMadeDescriptors", HANDLE,
                         [](auto& handle) {
                             handle.numFds = 3;
                             handle.numInts = 0;
                         }),
                inHandle("AnotherVersion", HANDLE, [](auto& handle) { handle.version = 24; }),
                inHandle("EmbeddedTooMany", HANDLE_IN_RECORD,
                         [](auto& handle) { handle.numFds = 1024; }),
                inDescriptors("FewerDescriptors", FDS, [](auto& array) { array.num_fds = 1; }),
                inDescriptors("MoreDescriptors", FDS, [](auto& array) { array.num_fds = 3; }),
                inDescriptors("OfAnotherHandle", FDS,
                              [](auto& array) { array.parent = HANDLE_IN_RECORD; }),
                inDescriptors("OfNoObject", FDS, [](auto& array) { array.parent = 999; }),
                inDescriptors("OverTheInts", FDS, [](auto& array) { array.parent_offset += 4; }),
                Damage{"SizeTooSmall",
                       [](ReceivedBytes& bytes) {
                           const uint64_t size = 11;
                           memcpy(bytes.data() + bytes.offset(HANDLE) - 8, &size, sizeof(size));
                       },
                       BAD_VALUE},
                Damage{"SizeTooLarge",
                       [](ReceivedBytes& bytes) {
                           const uint64_t size = UINT64_MAX;
                           memcpy(bytes.data() + bytes.offset(HANDLE) - 8, &size, sizeof(size));
                       },
                       BAD_VALUE}),
        nameOf);

INSTANTIATE_TEST_SUITE_P(
        Binders, HwDamagedParcelTableTest,
        testing::Values(Damage{"NameOfNoObject",
                               [](ReceivedBytes& bytes) {
                                   bytes.change<flat_binder_object>(BINDER, [](auto& object) {
                                       object.binder = object.cookie = 0x4141414141414141;
                                   });
                               },
                               BAD_VALUE},
                        Damage{"CookieOfAnother",
                               [](ReceivedBytes& bytes) {
                                   bytes.change<flat_binder_object>(
                                           BINDER, [](auto& object) { object.cookie++; });
                               },
                               BAD_VALUE},
                        Damage{"EnteredButNull",
                               [](ReceivedBytes& bytes) {
                                   bytes.change<flat_binder_object>(BINDER, [](auto& object) {
                                       object.binder = object.cookie = 0;
                                   });
                               },
                               BAD_VALUE}),
        nameOf);

TEST(HwDamagedParcelTest, ABufferThatIsNotAlignedIsRefused) {
    const uint64_t numbers[2] = {1, 2};
    Parcel written;
    written.writeBuffer(numbers, sizeof(numbers), nullptr);
    written.writeBuffer(numbers, sizeof(numbers), nullptr);
    ReceivedBytes bytes(written);
    bytes.change<binder_buffer_object>(0, [](auto& buffer) { buffer.buffer += 4; });
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    const void* buffer;
    EXPECT_EQ(BAD_VALUE, received.readBuffer(sizeof(numbers), nullptr, &buffer));
}

TEST(HwDamagedParcelTest, ANullInsideAStructThatClaimsBytesIsRefused) {
    const Record record{};
    Parcel written;
    size_t parent;
    written.writeBuffer(&record, sizeof(record), &parent);
    written.writeEmbeddedBuffer(nullptr, 16, nullptr, parent, 0);
    ReceivedBytes bytes(written);
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    const void* buffer;
    ASSERT_EQ(OK, received.readBuffer(sizeof(record), &parent, &buffer));
    EXPECT_EQ(BAD_VALUE, received.readNullableEmbeddedBuffer(16, nullptr, parent, 0, &buffer));
}

TEST(HwDamagedParcelTest, AParentWithoutRoomForAnAddressIsRefused) {
    const Record record{kText, nullptr, nullptr};
    Parcel written;
    size_t parent;
    written.writeBuffer(&record, sizeof(record), &parent);
    written.writeEmbeddedBuffer(kText, sizeof(kText), nullptr, parent, 0);
    ReceivedBytes bytes(written);
    bytes.change<binder_buffer_object>(0, [](auto& buffer) { buffer.length = 4; });
    Parcel received;
    ASSERT_EQ(OK, bytes.deliver(&received));
    const void* buffer;
    ASSERT_EQ(OK, received.readBuffer(4, &parent, &buffer));
    EXPECT_EQ(BAD_VALUE, received.readEmbeddedBuffer(sizeof(kText), nullptr, parent, 0, &buffer));
}

TEST(HwDamagedParcelTest, ASingleDescriptorNobodyAskedForIsClosed) {
    const Sample sample;
    ReceivedBytes bytes(sample.parcel());
    const int descriptor = dup(STDERR_FILENO);
    bytes.change<binder_fd_object>(BINDER, [=](binder_fd_object& object) {
        object.hdr.type = BINDER_TYPE_FD;
        object.fd = descriptor;
    });
    EXPECT_EQ(BAD_TYPE, deliverAndRead(bytes));
    EXPECT_EQ(-1, fcntl(descriptor, F_GETFD));
}

TEST(HwDamagedParcelTest, AnyChangedByteIsSurvived) {
    const Sample sample;
    const size_t size = ReceivedBytes(sample.parcel()).size();
    for (size_t i = 0; i < size; i++) {
        for (const uint8_t change : {0x01, 0x04, 0x80, 0xff}) {
            ReceivedBytes bytes(sample.parcel());
            bytes.data()[i] ^= change;
            deliverAndRead(bytes);
            EXPECT_EQ(1, bytes.releases());
        }
    }
}

TEST(HwDamagedParcelTest, SeveralChangedBytesAreSurvived) {
    const Sample sample;
    std::mt19937 random(20240607);
    for (int round = 0; round < 3000; round++) {
        ReceivedBytes bytes(sample.parcel());
        for (int changes = 1 + random() % 8; changes > 0; changes--) {
            bytes.data()[random() % bytes.size()] = random();
        }
        deliverAndRead(bytes);
        EXPECT_EQ(1, bytes.releases());
    }
}

TEST(HwDamagedParcelTest, BytesOfAnyKindAreSurvived) {
    std::mt19937 random(7062024);
    for (int round = 0; round < 3000; round++) {
        Parcel written;
        for (int words = random() % 40; words > 0; words--) written.writeUint32(random());
        ReceivedBytes bytes(written);
        Parcel received;
        ASSERT_EQ(OK, bytes.deliver(&received));
        received.setDataPosition(random() % 8);
        readRecord(received);
        received.setDataPosition(random() % 8);
        const native_handle_t* handle;
        received.readNullableNativeHandleNoDup(&handle);
        android::String16 string;
        received.readString16(&string);
        sp<IBinder> binder;
        received.readNullableStrongBinder(&binder);
        received.readCString();
    }
}

}  // namespace
}  // namespace korvane::test
