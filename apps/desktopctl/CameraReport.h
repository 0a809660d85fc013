// SPDX-License-Identifier: Apache-2.0
// What the camera says of itself.
#pragma once

#include <optional>
#include <string>

#include "Status.h"

namespace korvane::ctl {

/**
 * Read from the file that desktop-camera keeps: neither the camera nor the service is asked, so
 * that it holds up nobody and says the same of a camera that doesn't answer.
 */
struct CameraReport {
    std::string json;      // an object in one line, as the camera wrote it
    std::string sentence;  // the same for people: what the host sees, and how it came about
};

/** Nothing unless the file is that of one of the status's cameras. */
std::optional<CameraReport> readCameraReport(const std::string& path, const Status& status);

/** The service's page with the camera's line under that of the surface. */
std::string pageWith(const CameraReport& camera, const std::string& page);

/** The service's JSON with one member more, "camera". */
std::string jsonWith(const CameraReport& camera, const std::string& json);

}  // namespace korvane::ctl
