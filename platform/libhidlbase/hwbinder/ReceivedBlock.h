// SPDX-License-Identifier: Apache-2.0
// The bytes of a received parcel, until they are given back.
#pragma once

#include <cstddef>
#include <cstdint>

#include <hwbinder/Parcel.h>

#include "ObjectTable.h"

namespace android {
namespace hardware {

/**
 * Owns a block that the driver filled. Destruction gives it back, and the driver then closes the
 * descriptors in its arrays; single descriptors are ours to close and are closed first.
 */
class ReceivedBlock {
  public:
    ReceivedBlock(const ParcelView& view, Parcel::ReleaseFunction release);
    ~ReceivedBlock();
    ReceivedBlock(const ReceivedBlock&) = delete;
    ReceivedBlock& operator=(const ReceivedBlock&) = delete;

    /**
     * Checks all that can be checked before it is known what will be read; see
     * ObjectTable::check().
     */
    status_t check();

    const ParcelView& view() const { return mView; }

  private:
    void closeDescriptors() const;

    const ParcelView mView;
    const Parcel::ReleaseFunction mRelease;
    bool mIsSound = false;
};

}  // namespace hardware
}  // namespace android
