// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "HidlBinderSupport"

#include "hidl/HidlBinderSupport.h"

#include <mutex>
#include <string>

#include <hidl/Static.h>
#include <hwbinder/IPCThreadState.h>
#include <log/log.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <android/hidl/base/1.0/BnHwBase.h>

namespace android {
namespace hardware {

using hidl::base::V1_0::BnHwBase;
using hidl::base::V1_0::IBase;

hidl_binder_death_recipient::hidl_binder_death_recipient(const sp<hidl_death_recipient>& recipient,
                                                         uint64_t cookie, const sp<IBase>& base)
    : mRecipient(recipient), mCookie(cookie), mBase(base) {}

void hidl_binder_death_recipient::binderDied(const wp<IBinder>& /*who*/) {
    const sp<hidl_death_recipient> recipient = mRecipient.promote();
    if (recipient != nullptr) recipient->serviceDied(mCookie, mBase);
}

namespace {

sp<BHwBinder> makeBinder(IBase* implementation) {
    const std::string descriptor = details::getDescriptor(implementation);
    const auto construct = details::getBnConstructorMap().get(descriptor, nullptr);
    if (construct == nullptr) {
        ALOGE("No way to make a binder object of %s", descriptor.c_str());
        return nullptr;
    }
    const sp<IBinder> binder = construct(implementation);
    return binder->localBinder();
}

}  // namespace

sp<IBinder> getOrCreateCachedBinder(IBase* interface) {
    if (auto* proxy = dynamic_cast<BpHwRefBase*>(interface)) return proxy->remote();

    // Two threads that both send an implementation for the first time must send the same object.
    static std::mutex& lock = *new std::mutex();
    std::lock_guard<std::mutex> guard(lock);
    sp<BHwBinder> binder = details::gBnMap->get(interface, nullptr).promote();
    if (binder == nullptr) {
        binder = makeBinder(interface);
        if (binder != nullptr) details::gBnMap->set(interface, binder);
    }
    return binder;
}

namespace details {

sp<IBase> getLocalInterface(const sp<IBinder>& binder) {
    auto* stub = dynamic_cast<BnHwBase*>(binder->localBinder());
    return stub == nullptr ? nullptr : stub->getImpl();
}

}  // namespace details

status_t checkArgumentsEnd(const Parcel& call) {
    if (call.isEveryObjectRead()) return OK;
    ALOGE("A call of process %d brings objects that its method doesn't ask for",
          IPCThreadState::self()->getCallingPid());
    return BAD_VALUE;
}

status_t readFromParcel(Status* status, const Parcel& parcel) {
    int32_t exception;
    status_t error = parcel.readInt32(&exception);
    String16 message;
    if (error == OK && exception != Status::EX_NONE) error = parcel.readString16(&message);
    if (error == OK) {
        status->setException(exception, String8(message).c_str());
    } else {
        status->setFromStatusT(error);
    }
    return error;
}

status_t writeToParcel(const Status& status, Parcel* parcel) {
    if (status.exceptionCode() == Status::EX_TRANSACTION_FAILED) return status.transactionError();
    const status_t error = parcel->writeInt32(status.exceptionCode());
    if (error != OK || status.isOk()) return error;
    return parcel->writeString16(String16(status.exceptionMessage()));
}

status_t readEmbeddedFromParcel(const hidl_string& string, const Parcel& parcel,
                                size_t parentHandle, size_t parentOffset) {
    const void* text = nullptr;
    size_t handle;
    const status_t status =
            parcel.readEmbeddedBuffer(string.size() + 1, &handle, parentHandle,
                                      parentOffset + hidl_string::kOffsetOfBuffer, &text);
    if (status != OK) return status;
    if (static_cast<const char*>(text)[string.size()] != '\0') {
        ALOGE("A received string has no NUL at its end");
        return BAD_VALUE;
    }
    return OK;
}

status_t writeEmbeddedToParcel(const hidl_string& string, Parcel* parcel, size_t parentHandle,
                               size_t parentOffset) {
    size_t handle;
    return parcel->writeEmbeddedBuffer(string.c_str(), string.size() + 1, &handle, parentHandle,
                                       parentOffset + hidl_string::kOffsetOfBuffer);
}

status_t readEmbeddedFromParcel(const hidl_handle& /*handle*/, const Parcel& parcel,
                                size_t parentHandle, size_t parentOffset) {
    const native_handle_t* native;
    return parcel.readNullableEmbeddedNativeHandle(
            parentHandle, parentOffset + hidl_handle::kOffsetOfNativeHandle, &native);
}

status_t writeEmbeddedToParcel(const hidl_handle& handle, Parcel* parcel, size_t parentHandle,
                               size_t parentOffset) {
    return parcel->writeEmbeddedNativeHandle(handle, parentHandle,
                                             parentOffset + hidl_handle::kOffsetOfNativeHandle);
}

}  // namespace hardware
}  // namespace android
