// SPDX-License-Identifier: Apache-2.0
// What a parcel that is being written holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <linux/android/binder.h>

#include <hwbinder/IBinder.h>

#include "InlineVector.h"
#include "ObjectTable.h"

namespace android {
namespace hardware {

/**
 * The growing bytes and object offsets of a parcel, the room that its buffers will need, and the
 * binders that must live until it is sent. A call that fails writes nothing. Allocates only for
 * binders, or for more than the usual call carries.
 */
class ParcelWriter {
  public:
    ParcelWriter() = default;
    ~ParcelWriter();
    ParcelWriter(const ParcelWriter&) = delete;
    ParcelWriter& operator=(const ParcelWriter&) = delete;

    /** Appends bytes and pads with zeros to a multiple of four. NO_MEMORY past 2 GiB. */
    status_t write(const void* bytes, size_t size);

    /** Appends an object and enters it in the table; its index goes to index if that isn't null. */
    template <typename T>
    status_t writeObject(const T& object, size_t* index = nullptr) {
        return writeObject(&object, sizeof(object), index);
    }

    /** Appends a buffer; one without address is not entered in the table. */
    status_t writeBuffer(const binder_buffer_object& buffer, size_t* index);

    /** Appends a binder, which may be null, and keeps it alive. */
    status_t writeBinder(const sp<IBinder>& binder);

    ParcelView view() const;

    /** Room for all buffers, each rounded up to eight bytes as the driver does. */
    size_t buffersSize() const { return mBuffersSize; }

  private:
    status_t writeObject(const void* object, size_t size, size_t* index);
    status_t writeLocal(const sp<IBinder>& binder);
    status_t writeRemote(const sp<IBinder>& binder);

    // Nearly every call and reply stays within these.
    static constexpr size_t kUsualSize = 512;
    static constexpr size_t kUsualObjects = 16;

    InlineVector<uint8_t, kUsualSize> mBytes;
    InlineVector<uint64_t, kUsualObjects> mObjects;
    size_t mBuffersSize = 0;
    std::vector<sp<IBinder>> mBinders;
    std::vector<uint64_t> mPublished;  // names of local objects, to be withdrawn
};

}  // namespace hardware
}  // namespace android
