// SPDX-License-Identifier: Apache-2.0
// Attributes of configfs: one file, one value.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** Every byte of the attribute; empty when it cannot be read. */
std::string readAttribute(const std::string& path);

// Numbers are decimal and end at the first character that is no digit; 32 bits of them are kept.
// What doesn't begin with a number is logged with its path and content, and then the conversion's
// exception (std::invalid_argument or std::out_of_range) is the caller's.

uint32_t readUnsignedAttribute(const std::string& path);
int readIntAttribute(const std::string& path);
/** One number for each line; a last line without its newline counts. */
std::vector<uint32_t> readUnsignedLines(const std::string& path);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
