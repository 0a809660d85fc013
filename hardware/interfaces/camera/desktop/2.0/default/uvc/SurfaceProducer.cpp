// SPDX-License-Identifier: Apache-2.0
#include "uvc/SurfaceProducer.h"

#include <system/window.h>

namespace android {

using hardware::Return;
using hardware::Void;

namespace {

// A client's listener that may be dead: calls reach it or are lost, and its one answer is given
// from memory.
class ClientListener : public HProducerListener {
  public:
    explicit ClientListener(const sp<HProducerListener>& client)
        : mClient(client), mNeedsReleaseNotify(client->needsReleaseNotify().withDefault(false)) {}

    Return<void> onBufferReleased() override {
        (void)mClient->onBufferReleased().isOk();
        return Void();
    }

    Return<bool> needsReleaseNotify() override { return mNeedsReleaseNotify; }

  private:
    const sp<HProducerListener> mClient;
    const bool mNeedsReleaseNotify;
};

int32_t queueApi(int32_t clientApi) {
    return clientApi == NATIVE_WINDOW_API_EGL ? NATIVE_WINDOW_API_CAMERA : clientApi;
}

}  // namespace

SurfaceProducer::SurfaceProducer(const sp<BGraphicBufferProducer>& producer) : Base(producer) {
    producer->setDequeueTimeout(kMaxDequeueWaitNs);
}

Return<void> SurfaceProducer::connect(const sp<HProducerListener>& listener, int32_t api,
                                      bool producerControlledByApp, connect_cb reply) {
    sp<HProducerListener> wrapped;
    if (listener != nullptr) wrapped = new ClientListener(listener);
    return Base::connect(wrapped, queueApi(api), producerControlledByApp, reply);
}

Return<int32_t> SurfaceProducer::disconnect(int32_t api, DisconnectMode mode) {
    return Base::disconnect(queueApi(api), mode);
}

Return<int32_t> SurfaceProducer::setDequeueTimeout(int64_t timeoutNs) {
    const bool tooLong = timeoutNs < 0 || timeoutNs > kMaxDequeueWaitNs;
    return Base::setDequeueTimeout(tooLong ? kMaxDequeueWaitNs : timeoutNs);
}

}  // namespace android
