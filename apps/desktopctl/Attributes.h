// SPDX-License-Identifier: Apache-2.0
// Reading the kernel's folders of small files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace korvane::ctl {

/** A file's text without the newline at its end; empty if it can't be read. */
std::string attribute(const std::string& path);

/** The decimal number at a file's start, as the service reads it; nothing if there is none. */
std::optional<uint32_t> numberIn(const std::string& path);

/** The names in a folder, sorted; none if it can't be read. */
std::vector<std::string> entriesOf(const std::string& folder);

/** The folders among them, without links to folders. */
std::vector<std::string> foldersIn(const std::string& folder);

}  // namespace korvane::ctl
