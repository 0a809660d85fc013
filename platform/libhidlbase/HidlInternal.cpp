// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "HidlSupport"

#include "hidl/HidlInternal.h"

#include <hidl/HidlSupport.h>
#include <log/log.h>

namespace android {
namespace hardware {
namespace details {

void logAlwaysFatal(const char* message) {
    LOG_ALWAYS_FATAL("%s", message);
}

HidlInstrumentor::HidlInstrumentor(const std::string& /*package*/,
                                   const std::string& /*interface*/) {}

HidlInstrumentor::~HidlInstrumentor() = default;

void HidlInstrumentor::configureInstrumentation(bool /*log*/) {}

bool debuggable() {
    return false;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
