// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "ServiceConnection.h"

#include <cinttypes>
#include <utility>

#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>
#include <log/log.h>

namespace korvane::camera {

using ::android::IGraphicBufferProducer;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;
using ::android::hidl::base::V1_0::IBase;
using HidlProducer = ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;

namespace {

constexpr int64_t kRetryIntervalNs = 500'000'000;

// HIDL requires every result to be checked; a failure is logged, and the caller goes on without.
bool succeeded(const char* what, const Return<void>& result) {
    if (result.isOk()) return true;
    ALOGE("cannot %s: %s", what, result.description().c_str());
    return false;
}

}  // namespace

/** Runs on the HIDL thread. */
class ServiceConnection::DeathListener : public hidl_death_recipient {
  public:
    explicit DeathListener(StreamDemand& demand) : mDemand(demand) {}

    void serviceDied(uint64_t /*cookie*/, const wp<IBase>& /*who*/) override {
        ALOGW("the desktop-camera service has died");
        mDemand.serviceDied();
    }

  private:
    StreamDemand& mDemand;
};

ServiceConnection::ServiceConnection(StreamDemand& demand, const CameraStatus& status,
                                     std::vector<ClientType> kinds)
    : mDemand(demand),
      mKinds(std::move(kinds)),
      mCallback(new CameraCallback(demand, status)),
      mDeathListener(new DeathListener(demand)) {}

bool ServiceConnection::connect() {
    mService = nullptr;
    ALOGI("looking for the desktop-camera service");
    for (;;) {
        const sp<ICameraDesktop> service = ICameraDesktop::tryGetService("default");
        if (service != nullptr && registerWith(service)) {
            mService = service;
            ALOGI("connected to the desktop-camera service");
            return true;
        }
        if (!mDemand.waitToRetry(monotonicNs() + kRetryIntervalNs)) return false;
    }
}

bool ServiceConnection::registerWith(const sp<ICameraDesktop>& service) {
    const Return<bool> linked = service->linkToDeath(mDeathListener, 0);
    if (!linked.isOk() || !linked) {
        ALOGE("cannot watch the desktop-camera service");
        return false;
    }
    for (ClientType kind : mKinds) {
        if (!succeeded("register", service->registerCallback(kind, mCallback))) return false;
    }
    return true;
}

std::optional<std::string> ServiceConnection::command(const std::string& text) {
    std::string reply;
    const auto copy = [&](const hidl_string& given) { reply = given; };
    if (!succeeded("send a command",
                   mService->sendCommand(ClientType::WEBCAM_CONTROLLER, text, copy))) {
        return std::nullopt;
    }
    return reply;
}

sp<IGraphicBufferProducer> ServiceConnection::surface() {
    const Return<sp<HidlProducer>> posted = mService->getSurface(ClientType::WEBCAM_CONTROLLER);
    if (!posted.isOk()) {
        ALOGE("cannot get the surface: %s", posted.description().c_str());
        return nullptr;
    }
    const sp<HidlProducer> producer = posted;
    if (producer == nullptr) return nullptr;
    return new H2BGraphicBufferProducer(producer);
}

}  // namespace korvane::camera
