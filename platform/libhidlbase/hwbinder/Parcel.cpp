// SPDX-License-Identifier: Apache-2.0
#include "hwbinder/Parcel.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "ParcelReader.h"
#include "ParcelWriter.h"
#include "ReceivedBlock.h"

namespace android {
namespace hardware {

Parcel::Parcel() = default;

Parcel::~Parcel() = default;

ParcelView Parcel::view() const {
    if (!mBlock.isEmpty()) return mBlock->view();
    return !mWriter.isEmpty() ? mWriter->view() : ParcelView();
}

ParcelWriter& Parcel::writer() {
    return mWriter.isEmpty() ? mWriter.emplace() : *mWriter;
}

ParcelReader Parcel::reader() const {
    return ParcelReader(view(), &mPosition, &mObjectsRead);
}

const uint8_t* Parcel::data() const {
    return view().data;
}

size_t Parcel::dataSize() const {
    return view().size;
}

size_t Parcel::dataAvail() const {
    return dataSize() - mPosition;
}

size_t Parcel::dataPosition() const {
    return mPosition;
}

void Parcel::setDataPosition(size_t position) const {
    mPosition = std::min(position, dataSize());
    mObjectsRead = std::min(mObjectsRead, ObjectTable(view()).countBefore(mPosition));
}

void Parcel::freeData() {
    mBlock.reset();
    mWriter.reset();
    mPosition = 0;
    mObjectsRead = 0;
}

status_t Parcel::ipcSetDataReference(const uint8_t* data, size_t size, const uint64_t* objects,
                                     size_t objectCount, const uint8_t* areaEnd,
                                     ReleaseFunction release) {
    freeData();
    ParcelView view;
    view.data = data;
    view.size = size;
    view.objects = objects;
    view.objectCount = objectCount;
    view.buffersBegin = reinterpret_cast<const uint8_t*>(objects + objectCount);
    view.buffersEnd = areaEnd;
    const status_t status = mBlock.emplace(view, std::move(release)).check();
    if (status != OK) mBlock.reset();
    return status;
}

const uint64_t* Parcel::ipcObjects() const {
    return view().objects;
}

size_t Parcel::ipcObjectsCount() const {
    return view().objectCount;
}

size_t Parcel::ipcBufferSize() const {
    return !mWriter.isEmpty() ? mWriter->buffersSize() : 0;
}

bool Parcel::isEveryObjectRead() const {
    return mObjectsRead == ipcObjectsCount();
}

status_t Parcel::writeBytes(const void* bytes, size_t size) {
    if (!mBlock.isEmpty()) return INVALID_OPERATION;
    return writer().write(bytes, size);
}

template <typename T>
status_t Parcel::writeScalar(T value) {
    static_assert(std::is_arithmetic_v<T>);
    return writeBytes(&value, sizeof(value));
}

template <typename T>
status_t Parcel::readScalar(T* value) const {
    static_assert(std::is_arithmetic_v<T>);
    return reader().read(value, sizeof(*value));
}

status_t Parcel::writeInterfaceToken(const char* interface) {
    return writeCString(interface);
}

bool Parcel::enforceInterface(const char* interface) const {
    const char* token = readCString();
    return token != nullptr && strcmp(token, interface) == 0;
}

status_t Parcel::writeBool(bool value) {
    return writeScalar<uint8_t>(value ? 1 : 0);
}
status_t Parcel::writeInt8(int8_t value) {
    return writeScalar(value);
}
status_t Parcel::writeUint8(uint8_t value) {
    return writeScalar(value);
}
status_t Parcel::writeInt16(int16_t value) {
    return writeScalar(value);
}
status_t Parcel::writeUint16(uint16_t value) {
    return writeScalar(value);
}
status_t Parcel::writeInt32(int32_t value) {
    return writeScalar(value);
}
status_t Parcel::writeUint32(uint32_t value) {
    return writeScalar(value);
}
status_t Parcel::writeInt64(int64_t value) {
    return writeScalar(value);
}
status_t Parcel::writeUint64(uint64_t value) {
    return writeScalar(value);
}
status_t Parcel::writeFloat(float value) {
    return writeScalar(value);
}
status_t Parcel::writeDouble(double value) {
    return writeScalar(value);
}

status_t Parcel::readBool(bool* value) const {
    uint8_t byte;
    const status_t status = readScalar(&byte);
    if (status == OK) *value = byte != 0;
    return status;
}

status_t Parcel::readInt8(int8_t* value) const {
    return readScalar(value);
}
status_t Parcel::readUint8(uint8_t* value) const {
    return readScalar(value);
}
status_t Parcel::readInt16(int16_t* value) const {
    return readScalar(value);
}
status_t Parcel::readUint16(uint16_t* value) const {
    return readScalar(value);
}
status_t Parcel::readInt32(int32_t* value) const {
    return readScalar(value);
}
status_t Parcel::readUint32(uint32_t* value) const {
    return readScalar(value);
}
status_t Parcel::readInt64(int64_t* value) const {
    return readScalar(value);
}
status_t Parcel::readUint64(uint64_t* value) const {
    return readScalar(value);
}
status_t Parcel::readFloat(float* value) const {
    return readScalar(value);
}
status_t Parcel::readDouble(double* value) const {
    return readScalar(value);
}

status_t Parcel::writeCString(const char* string) {
    return writeBytes(string, strlen(string) + 1);
}

const char* Parcel::readCString() const {
    const ParcelView all = view();
    if (mPosition == all.size) return nullptr;
    const uint8_t* begin = all.data + mPosition;
    // Only an empty parcel has no data. NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker)
    const void* end = memchr(begin, 0, all.size - mPosition);
    if (end == nullptr) return nullptr;
    const size_t size = static_cast<const uint8_t*>(end) - begin + 1;
    return reinterpret_cast<const char*>(reader().take(size));
}

// The number of characters, then the characters with a terminating NUL.

status_t Parcel::writeString16(const String16& string) {
    const status_t status = writeUint32(string.size());
    if (status != OK) return status;
    return writeBytes(string.string(), (string.size() + 1) * sizeof(char16_t));
}

status_t Parcel::readString16(String16* string) const {
    const size_t start = mPosition;
    uint32_t length;
    const status_t status = readUint32(&length);
    if (status != OK) return status;
    const size_t size = (static_cast<size_t>(length) + 1) * sizeof(char16_t);
    const uint8_t* bytes = reader().take(size);
    if (bytes == nullptr) {
        mPosition = start;
        return NOT_ENOUGH_DATA;
    }
    std::u16string characters(length + 1, u'\0');
    memcpy(characters.data(), bytes, size);
    if (characters.back() != u'\0') {
        mPosition = start;
        return BAD_VALUE;
    }
    *string = String16(characters.data(), length);
    return OK;
}

}  // namespace hardware
}  // namespace android
