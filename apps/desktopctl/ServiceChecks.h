// SPDX-License-Identifier: Apache-2.0
// The programs and the stream: what the service says about itself, judged.
#pragma once

#include "Finding.h"
#include "Status.h"

namespace korvane::ctl {

/** The service manager: whether it answers. */
Findings checkManager(bool answers);

/** The service if it can't be found: whether it runs at all. */
Findings checkMissingService();

/**
 * A service that answers: its node, its camera, the stream. `later` was taken `seconds` after
 * `status`.
 */
Findings checkStatus(const Status& status, const Status& later, double seconds);

}  // namespace korvane::ctl
