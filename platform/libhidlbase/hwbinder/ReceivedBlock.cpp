// SPDX-License-Identifier: Apache-2.0
#include "ReceivedBlock.h"

#include <utility>

#include <android-base/unique_fd.h>

namespace android {
namespace hardware {

ReceivedBlock::ReceivedBlock(const ParcelView& view, Parcel::ReleaseFunction release)
    : mView(view), mRelease(std::move(release)) {}

ReceivedBlock::~ReceivedBlock() {
    if (mIsSound) closeDescriptors();
    if (mRelease != nullptr) mRelease(mView.data);
}

status_t ReceivedBlock::check() {
    const status_t status = ObjectTable(mView).check();
    mIsSound = status == OK;
    return status;
}

void ReceivedBlock::closeDescriptors() const {
    const ObjectTable objects(mView);
    for (size_t i = 0; i < objects.count(); i++) {
        binder_fd_object descriptor;
        if (!objects.get(i, BINDER_TYPE_FD, &descriptor)) continue;
        // Nobody has taken it: close it here.
        const base::unique_fd ours(static_cast<int>(descriptor.fd));
    }
}

}  // namespace hardware
}  // namespace android
