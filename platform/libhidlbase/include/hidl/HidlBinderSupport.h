// SPDX-License-Identifier: Apache-2.0
// Conversions between interfaces and binder objects, and between values and parcels.
#pragma once

#include <cstddef>
#include <cstdint>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/HidlTransportUtils.h>
#include <hidl/Status.h>
#include <hwbinder/Binder.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/IInterface.h>
#include <hwbinder/Parcel.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {
namespace hardware {

/** Tells a recipient of a binder's death; owned by the proxy that the link was made through. */
struct hidl_binder_death_recipient : IBinder::DeathRecipient {
    hidl_binder_death_recipient(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
                                const sp<hidl::base::V1_0::IBase>& base);

    void binderDied(const wp<IBinder>& who) override;
    wp<hidl_death_recipient> getRecipient() const { return mRecipient; }

  private:
    const wp<hidl_death_recipient> mRecipient;
    const uint64_t mCookie;
    const wp<hidl::base::V1_0::IBase> mBase;  // not strong: it owns this object
};

/**
 * The binder object of an interface object: a proxy's own, or the only one of an implementation,
 * made when first asked for and kept while another process holds it. Null if the implementation's
 * most derived interface isn't known.
 */
sp<IBinder> getOrCreateCachedBinder(hidl::base::V1_0::IBase* interface);

namespace details {

/** The implementation behind a binder object of this process; null for any other. */
sp<hidl::base::V1_0::IBase> getLocalInterface(const sp<IBinder>& binder);

}  // namespace details

/**
 * The interface object of a binder object: the implementation itself if it lives in this process,
 * else a new proxy. Null for null and for an implementation of something else.
 */
template <typename IType, typename ProxyType, typename StubType>
sp<IType> fromBinder(const sp<IBinder>& binder) {
    if (binder == nullptr) return nullptr;
    const sp<hidl::base::V1_0::IBase> local = details::getLocalInterface(binder);
    if (local == nullptr) return new ProxyType(binder);
    if (!details::canCastInterface(local.get(), IType::descriptor)) return nullptr;
    return static_cast<IType*>(local.get());
}

/**
 * Every stub checks this before it calls its method: BAD_VALUE if the call carries descriptors,
 * objects or buffers that aren't arguments of the method. They would be held for as long as the
 * method runs.
 */
status_t checkArgumentsEnd(const Parcel& call);

// The outcome of a call, first in every reply. A failed transaction isn't written; it becomes the
// result.
status_t readFromParcel(Status* status, const Parcel& parcel);
status_t writeToParcel(const Status& status, Parcel* parcel);

// What a value refers to. The value itself is in the parcel's buffer parentHandle, at parentOffset.
// Reading leaves it as it is: the driver has already put the new address into it. The parcel
// refuses (BAD_VALUE) a value that points anywhere else or whose size isn't the buffer's.

status_t readEmbeddedFromParcel(const hidl_string& string, const Parcel& parcel,
                                size_t parentHandle, size_t parentOffset);
status_t writeEmbeddedToParcel(const hidl_string& string, Parcel* parcel, size_t parentHandle,
                               size_t parentOffset);

status_t readEmbeddedFromParcel(const hidl_handle& handle, const Parcel& parcel,
                                size_t parentHandle, size_t parentOffset);
status_t writeEmbeddedToParcel(const hidl_handle& handle, Parcel* parcel, size_t parentHandle,
                               size_t parentOffset);

/** The elements, but not what they refer to; *childHandle is theirs, unless there are none. */
template <typename T>
status_t readEmbeddedFromParcel(const hidl_vec<T>& vec, const Parcel& parcel, size_t parentHandle,
                                size_t parentOffset, size_t* childHandle) {
    const void* elements;
    return parcel.readNullableEmbeddedBuffer(vec.size() * sizeof(T), childHandle, parentHandle,
                                             parentOffset + hidl_vec<T>::kOffsetOfBuffer,
                                             &elements);
}

template <typename T>
status_t writeEmbeddedToParcel(const hidl_vec<T>& vec, Parcel* parcel, size_t parentHandle,
                               size_t parentOffset, size_t* childHandle) {
    return parcel->writeEmbeddedBuffer(vec.data(), vec.size() * sizeof(T), childHandle,
                                       parentHandle, parentOffset + hidl_vec<T>::kOffsetOfBuffer);
}

}  // namespace hardware
}  // namespace android
