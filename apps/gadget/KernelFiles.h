// SPDX-License-Identifier: Apache-2.0
// The files by which the kernel is asked and told: sysfs, configfs.
#pragma once

#include <string>
#include <vector>

namespace korvane::gadget {

/** The content of a small file without the newline at its end; empty where there is none. */
std::string readText(const std::string& path);

/** The names in a folder, sorted; none where there is no folder. */
std::vector<std::string> namesIn(const std::string& folder);

bool exists(const std::string& path);

/** Whether the kernel lets its owner write a file; root may open others for writing all the same.
 */
bool isWritable(const std::string& path);

/**
 * Writes bytes to a file that is there, in one piece, as the kernel's lists need it.
 *
 * @return an empty text, or one line that says what the kernel refused
 */
std::string writeBytes(const std::string& path, const std::string& bytes);

/** The same for a value, with the newline that ends it. */
std::string writeValue(const std::string& path, const std::string& value);

/** Makes a folder whose parent is there; the result is as for writeBytes(). */
std::string makeFolder(const std::string& path);

/** Makes `path` a link to `target`; the result is as for writeBytes(). */
std::string makeLink(const std::string& target, const std::string& path);

}  // namespace korvane::gadget
