// SPDX-License-Identifier: Apache-2.0
// Looks at everything that must be right for a picture.
#pragma once

#include <string>

#include "Finding.h"

namespace korvane::ctl {

/** One line for each finding, and below it what mends it. */
std::string findingsAsText(const Findings& findings);

/** An array of objects "what", "state" ("right", "note", "wrong"), "says", "mend". */
std::string findingsAsJson(const Findings& findings);

/**
 * Looks and prints, in the order in which things come about, so that the first that is wrong is the
 * first to mend. Returns the exit status: 0 when nothing is wrong, else 1. Takes a second when a
 * service runs.
 */
int runDoctor(bool json);

}  // namespace korvane::ctl
