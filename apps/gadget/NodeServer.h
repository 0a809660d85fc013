// SPDX-License-Identifier: Apache-2.0
// Who serves a video node: the process that has it open for reading and writing.
#pragma once

#include <string>

#include <sys/types.h>

namespace korvane::gadget {

/** The process that has /dev/`node` open for reading and writing; 0 if none has. Needs root. */
pid_t serverOf(const std::string& node);

/** Whether a process is gone, or about to be. */
bool hasDied(pid_t process);

}  // namespace korvane::gadget
