// SPDX-License-Identifier: Apache-2.0
#include "ParcelWriter.h"

#include <cstdint>

#include <hwbinder/ProcessState.h>
#include <hwbinder/BpHwBinder.h>

#include "LocalNodes.h"

namespace android {
namespace hardware {
namespace {

constexpr size_t kMaxSize = INT32_MAX & ~7;  // so that padding never exceeds it

constexpr size_t padded(size_t size, size_t unit) {
    return (size + unit - 1) / unit * unit;
}

}  // namespace

ParcelWriter::~ParcelWriter() {
    for (const uint64_t name : mPublished) ProcessState::self()->localNodes().withdraw(name);
}

status_t ParcelWriter::write(const void* bytes, size_t size) {
    if (size > kMaxSize - mBytes.size()) return NO_MEMORY;
    mBytes.append(static_cast<const uint8_t*>(bytes), size,
                  padded(mBytes.size() + size, sizeof(uint32_t)));
    return OK;
}

status_t ParcelWriter::writeObject(const void* object, size_t size, size_t* index) {
    const size_t offset = mBytes.size();
    const status_t status = write(object, size);
    if (status != OK) return status;
    if (index != nullptr) *index = mObjects.size();
    mObjects.push_back(offset);
    return OK;
}

status_t ParcelWriter::writeBuffer(const binder_buffer_object& buffer, size_t* index) {
    if (buffer.buffer == 0) return write(&buffer, sizeof(buffer));
    if (buffer.length > kMaxSize - mBuffersSize) return NO_MEMORY;
    const status_t status = writeObject(buffer, index);
    if (status == OK) mBuffersSize += padded(buffer.length, sizeof(uint64_t));
    return status;
}

status_t ParcelWriter::writeBinder(const sp<IBinder>& binder) {
    if (binder == nullptr) {
        flat_binder_object none{};
        none.hdr.type = BINDER_TYPE_BINDER;
        return write(&none, sizeof(none));
    }
    const status_t status =
            binder->localBinder() != nullptr ? writeLocal(binder) : writeRemote(binder);
    if (status == OK) mBinders.push_back(binder);
    return status;
}

status_t ParcelWriter::writeLocal(const sp<IBinder>& binder) {
    const uint64_t name = ProcessState::self()->localNodes().publish(binder->localBinder());
    mPublished.push_back(name);
    flat_binder_object object{};
    object.hdr.type = BINDER_TYPE_BINDER;
    object.flags = FLAT_BINDER_FLAG_ACCEPTS_FDS;
    object.binder = name;
    object.cookie = name;
    return writeObject(object);
}

status_t ParcelWriter::writeRemote(const sp<IBinder>& binder) {
    if (binder->remoteBinder() == nullptr) return BAD_TYPE;
    flat_binder_object object{};
    object.hdr.type = BINDER_TYPE_HANDLE;
    object.handle = binder->remoteBinder()->handle();
    return writeObject(object);
}

ParcelView ParcelWriter::view() const {
    ParcelView view;
    view.data = mBytes.data();
    view.size = mBytes.size();
    view.objects = mObjects.data();
    view.objectCount = mObjects.size();
    return view;
}

}  // namespace hardware
}  // namespace android
