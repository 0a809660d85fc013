// SPDX-License-Identifier: Apache-2.0
// Reads a settings file.
#pragma once

#include <functional>
#include <string>

namespace korvane::options {

/**
 * Reads a file of lines "KEY = VALUE"; spaces around either don't count, nor do empty lines and
 * those that begin with '#'. `take` is given each pair in the file's order and returns what is
 * wrong with it, or an empty text; reading stops at the first error.
 *
 * @return an empty text, or one line that begins with the file and the line's number
 */
std::string readConfigFile(
        const std::string& path,
        const std::function<std::string(const std::string& key, const std::string& value)>& take);

}  // namespace korvane::options
