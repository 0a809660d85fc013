// SPDX-License-Identifier: Apache-2.0
// What `watch` and `clients` show.
#pragma once

#include <cstdint>
#include <string>

#include "Status.h"

namespace korvane::ctl {

/**
 * One screen of the current state; rates are computed against `before`, taken `seconds` earlier,
 * and left out if that is null.
 */
std::string watchScreen(const Status& now, const Status* before, double seconds);

/** A line for each client: kind, name, process and its name, for how long. */
std::string clientList(const Status& status);

/**
 * The bound, in microseconds, below which this share (0 to 1) of the stream's times lies; 0 if
 * there are none, UINT64_MAX beyond the last bound.
 */
uint64_t boundOf(const Status& status, const Latency& latency, double part);

/** The name of a process, or "?". */
std::string processName(int pid);

}  // namespace korvane::ctl
