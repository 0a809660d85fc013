// SPDX-License-Identifier: Apache-2.0
#include "hwbinder/Parcel.h"

#include <hwbinder/ProcessState.h>

#include "LocalNodes.h"
#include "ParcelReader.h"
#include "ParcelWriter.h"

namespace android {
namespace hardware {
namespace {

status_t resolveLocal(const flat_binder_object& object, sp<IBinder>* binder) {
    if (object.cookie != object.binder) return BAD_VALUE;
    *binder = ProcessState::self()->localNodes().find(object.binder);
    return *binder != nullptr ? OK : BAD_VALUE;
}

status_t resolveRemote(const flat_binder_object& object, sp<IBinder>* binder) {
    *binder = ProcessState::self()->getStrongProxyForHandle(object.handle);
    return *binder != nullptr ? OK : NO_INIT;
}

}  // namespace

status_t Parcel::writeStrongBinder(const sp<IBinder>& binder) {
    if (!mBlock.isEmpty()) return INVALID_OPERATION;
    return writer().writeBinder(binder);
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* binder) const {
    flat_binder_object object;
    const status_t status = reader().readBinder(&object);
    if (status != OK) return status;
    if (object.hdr.type == BINDER_TYPE_BINDER) return resolveLocal(object, binder);
    if (object.hdr.type == BINDER_TYPE_HANDLE) return resolveRemote(object, binder);
    *binder = nullptr;
    return OK;
}

status_t Parcel::readStrongBinder(sp<IBinder>* binder) const {
    const status_t status = readNullableStrongBinder(binder);
    if (status == OK && *binder == nullptr) return UNEXPECTED_NULL;
    return status;
}

}  // namespace hardware
}  // namespace android
