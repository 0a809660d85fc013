// SPDX-License-Identifier: Apache-2.0
// Checks everything that must be right for a picture.
#pragma once

#include <string>

#include "Finding.h"

namespace korvane::ctl {

/** One line for each finding, and below it how to fix it. */
std::string findingsAsText(const Findings& findings);

/** An array of objects "what", "state" ("right", "note", "wrong"), "says", "mend". */
std::string findingsAsJson(const Findings& findings);

/**
 * Checks and prints, in the order in which things come about, so that the first thing wrong is the
 * first to fix. Returns the exit status: 0 if nothing is wrong, otherwise 1. Takes a second if a
 * service is running.
 */
int runDoctor(bool json);

}  // namespace korvane::ctl
