// SPDX-License-Identifier: Apache-2.0
// A client's callback that does what a scenario tells it to.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include <korvane/hardware/camera/desktop/1.0/ICameraDesktopCallback.h>

namespace korvane::hostile {

class Callback : public ::korvane::hardware::camera::desktop::V1_0::ICameraDesktopCallback {
  public:
    using Answer = std::function<std::string(const std::string& command)>;

    explicit Callback(Answer answer) : mAnswer(std::move(answer)) {}

    android::hardware::Return<void> onCommand(const android::hardware::hidl_string& command,
                                              onCommand_cb reply) override {
        reply(mAnswer(command));
        return android::hardware::Void();
    }

  private:
    const Answer mAnswer;
};

}  // namespace korvane::hostile
