// SPDX-License-Identifier: Apache-2.0
// The files through which the kernel is queried and controlled: sysfs, configfs.
#pragma once

#include <string>
#include <vector>

namespace korvane::gadget {

/** The content of a small file without the newline at its end; empty if there is none. */
std::string readText(const std::string& path);

/** The names in a folder, sorted; none if the folder doesn't exist. */
std::vector<std::string> namesIn(const std::string& folder);

bool exists(const std::string& path);

/** Whether the kernel lets the owner write a file; root may open others for writing anyway. */
bool isWritable(const std::string& path);

/**
 * Writes bytes to an existing file in one piece, as the kernel's lists require.
 *
 * @return an empty text, or one line that says what the kernel refused
 */
std::string writeBytes(const std::string& path, const std::string& bytes);

/** The same for a value, followed by a newline. */
std::string writeValue(const std::string& path, const std::string& value);

/** Makes a folder whose parent exists; the result is as for writeBytes(). */
std::string makeFolder(const std::string& path);

/** Makes `path` a link to `target`; the result is as for writeBytes(). */
std::string makeLink(const std::string& target, const std::string& path);

}  // namespace korvane::gadget
