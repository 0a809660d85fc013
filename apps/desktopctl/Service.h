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

/** A service that answers. Calls wait for it; a Deadline bounds that. */
class Service {
  public:
    using ICameraDesktop = ::korvane::hardware::camera::desktop::V2_0::ICameraDesktop;

    /** The service if it is there now; nothing without binder, a service manager or a service. */
    static std::optional<Service> find();

    explicit Service(const ::android::sp<ICameraDesktop>& service) : mService(service) {}

    /**
     * The service's answer to debug(), nothing when the call failed. `file` goes with it, unless
     * negative.
     */
    std::optional<std::string> debug(const std::vector<std::string>& options, int file = -1) const;

    /** Its status; nothing when it could not be asked, or answers something else. */
    std::optional<Status> status() const;

    /** The reply of the client of a kind from 0 to 7, nothing when the call failed. */
    std::optional<std::string> send(unsigned kind, const std::string& text) const;

  private:
    ::android::sp<ICameraDesktop> mService;
};

}  // namespace korvane::ctl
