// SPDX-License-Identifier: Apache-2.0
// Writing to other processes' descriptors without being held up by them.
#pragma once

#include <string>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Whether writing to the descriptor never waits for a program: it is a regular file, of a file
 * system that the kernel serves itself.
 */
bool isPlainFile(int fd);

/**
 * Writes as much of the text as a pipe or a socket takes at once; to a plain file all of it; to
 * anything else nothing. Raises no SIGPIPE. The descriptor stays the caller's and as it is.
 */
void writeAtOnce(int fd, const std::string& text);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
