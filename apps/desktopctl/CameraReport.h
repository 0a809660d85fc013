// SPDX-License-Identifier: Apache-2.0
// What the camera says about itself.
#pragma once

#include <optional>
#include <string>

#include "Status.h"

namespace korvane::ctl {

/**
 * Read from the file that desktop-camera keeps up to date: neither the camera nor the service is
 * asked, so this blocks nobody and works the same for a camera that doesn't answer.
 */
struct CameraReport {
    std::string json;      // an object on one line, as the camera wrote it
    std::string sentence;  // the same for people: what the host sees, and why
};

/** Nothing unless the file belongs to one of the status's cameras. */
std::optional<CameraReport> readCameraReport(const std::string& path, const Status& status);

/** The service's page with the camera's line below that of the surface. */
std::string pageWith(const CameraReport& camera, const std::string& page);

/** The service's JSON with one more member, "camera". */
std::string jsonWith(const CameraReport& camera, const std::string& json);

}  // namespace korvane::ctl
