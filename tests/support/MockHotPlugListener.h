// SPDX-License-Identifier: Apache-2.0
// The hot-plug monitor's listener, with expectations.
#pragma once

#include <cstdint>

#include <gmock/gmock.h>

#include "uvc/HotPlugCtrl.h"

namespace korvane::test {

class MockHotPlugListener
    : public hardware::camera::desktop::V2_0::implementation::HotPlugCtrl::EventListener {
  public:
    MOCK_METHOD(int32_t, onUvcV4l2Added, (const char* devPath), (override));
    MOCK_METHOD(int32_t, onV4l2Removed, (const char* devName), (override));
    MOCK_METHOD(int32_t, onUsbDisconnected, (), (override));
};

}  // namespace korvane::test
