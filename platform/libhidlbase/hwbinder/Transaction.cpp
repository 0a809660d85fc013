// SPDX-License-Identifier: Apache-2.0
#include "Transaction.h"

#include <cstring>

#include <hwbinder/IPCThreadState.h>
#include <hwbinder/Parcel.h>
#include <hwbinder/ProcessState.h>

#include "BinderDriver.h"
#include "DriverChannel.h"

namespace android {
namespace hardware {
namespace {

binder_transaction_data_sg describe(const Parcel& parcel) {
    binder_transaction_data_sg sent{};
    sent.transaction_data.data_size = parcel.dataSize();
    sent.transaction_data.data.ptr.buffer = reinterpret_cast<uintptr_t>(parcel.data());
    sent.transaction_data.offsets_size = parcel.ipcObjectsCount() * sizeof(binder_size_t);
    sent.transaction_data.data.ptr.offsets = reinterpret_cast<uintptr_t>(parcel.ipcObjects());
    sent.buffers_size = parcel.ipcBufferSize();
    return sent;
}

template <typename T>
const T* pointerTo(binder_uintptr_t address) {
    return reinterpret_cast<const T*>(address);
}

void giveBack(const uint8_t* bytes) {
    IPCThreadState::self()->freeBuffer(bytes);
}

}  // namespace

void writeCall(CommandWriter& out, uint32_t handle, uint32_t code, uint32_t flags,
               const Parcel& data) {
    binder_transaction_data_sg sent = describe(data);
    sent.transaction_data.target.handle = handle;
    sent.transaction_data.code = code;
    sent.transaction_data.flags = flags | TF_ACCEPT_FDS;
    out.write(BC_TRANSACTION_SG, sent);
}

void writeReply(CommandWriter& out, const Parcel& reply) {
    out.write(BC_REPLY_SG, describe(reply));
}

void writeStatusReply(CommandWriter& out, const status_t* status) {
    binder_transaction_data sent{};
    sent.flags = TF_STATUS_CODE;
    sent.data_size = sizeof(*status);
    sent.data.ptr.buffer = reinterpret_cast<uintptr_t>(status);
    out.write(BC_REPLY, sent);
}

status_t receiveParcel(const binder_transaction_data& received, Parcel* parcel) {
    return parcel->ipcSetDataReference(pointerTo<uint8_t>(received.data.ptr.buffer),
                                       received.data_size,
                                       pointerTo<uint64_t>(received.data.ptr.offsets),
                                       received.offsets_size / sizeof(binder_size_t),
                                       ProcessState::self()->driver().areaEnd(), giveBack);
}

status_t receiveStatus(const binder_transaction_data& received) {
    const auto* bytes = pointerTo<uint8_t>(received.data.ptr.buffer);
    status_t status = BAD_VALUE;
    if (received.data_size == sizeof(status)) memcpy(&status, bytes, sizeof(status));
    giveBack(bytes);
    // A failed call must not look like one with contents.
    return status != OK ? status : BAD_VALUE;
}

}  // namespace hardware
}  // namespace android
