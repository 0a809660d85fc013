// SPDX-License-Identifier: Apache-2.0
// The running service, as the commands need it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <utils/StrongPointer.h>

#include "Status.h"

namespace korvane::ctl {

/** A service that answers. Calls block until it does; a Deadline limits that. */
class Service {
  public:
    using ICameraDesktop = ::korvane::hardware::camera::desktop::V2_0::ICameraDesktop;

    /** The service if it is there now; nothing without binder, a service manager or a service. */
    static std::optional<Service> find();

    explicit Service(const ::android::sp<ICameraDesktop>& service) : mService(service) {}

    /**
     * The service's answer to debug(), nothing if the call failed. `file` is passed along unless
     * negative.
     */
    std::optional<std::string> debug(const std::vector<std::string>& options, int file = -1) const;

    /** Its status; nothing if it couldn't be asked, or answered something else. */
    std::optional<Status> status() const;

    /** The reply of the client of a kind from 0 to 7, nothing if the call failed. */
    std::optional<std::string> send(unsigned kind, const std::string& text) const;

  private:
    ::android::sp<ICameraDesktop> mService;
};

}  // namespace korvane::ctl
