// SPDX-License-Identifier: Apache-2.0
// Turns parcels into the driver's commands for calls and replies, and back.
#pragma once

#include <cstdint>

#include <linux/android/binder.h>

#include <utils/Errors.h>

namespace android {
namespace hardware {

class CommandWriter;
class Parcel;

// The commands written refer to the parcel or the status, which must live until they are handed
// over.

void writeCall(CommandWriter& out, uint32_t handle, uint32_t code, uint32_t flags,
               const Parcel& data);
void writeReply(CommandWriter& out, const Parcel& reply);
/** A reply without contents that gives the caller this status. */
void writeStatusReply(CommandWriter& out, const status_t* status);

/**
 * Makes parcel the contents of a received call or reply; when freed, it gives its bytes back to the
 * driver. Fails if they are malformed (see Parcel::ipcSetDataReference()), giving them back at
 * once.
 */
status_t receiveParcel(const binder_transaction_data& received, Parcel* parcel);

/** The status that a reply carries instead of contents; gives its bytes back. */
status_t receiveStatus(const binder_transaction_data& received);

}  // namespace hardware
}  // namespace android
