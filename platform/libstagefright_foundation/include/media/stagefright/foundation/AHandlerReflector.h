// SPDX-License-Identifier: Apache-2.0
// Lets a class receive messages without being a handler itself.
#pragma once

#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>

namespace android {

/**
 * Forwards every message to `T::onMessageReceived`, which has to be accessible to it. It holds its
 * target weakly: once that is gone, messages are dropped silently. T derives from RefBase.
 */
template <class T>
struct AHandlerReflector : public AHandler {
    explicit AHandlerReflector(T* target) : mTarget(target) {}

  protected:
    void onMessageReceived(const sp<AMessage>& msg) override {
        const sp<T> target = mTarget.promote();
        if (target != nullptr) target->onMessageReceived(msg);
    }

  private:
    wp<T> mTarget;
};

}  // namespace android
