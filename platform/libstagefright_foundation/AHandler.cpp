// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/AHandler.h"

#include <media/stagefright/foundation/ALooper.h>

namespace android {

sp<ALooper> AHandler::looper() const {
    return mLooper.promote();
}

void AHandler::setRegistration(int32_t id, const wp<ALooper>& looper) {
    mId = id;
    mLooper = looper;
}

}  // namespace android
