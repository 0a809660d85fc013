// SPDX-License-Identifier: Apache-2.0
#include "Attributes.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace korvane::ctl {

namespace fs = std::filesystem;

std::string attribute(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::optional<uint32_t> numberIn(const std::string& path) {
    const std::string text = attribute(path);
    if (text.empty() || isdigit(static_cast<unsigned char>(text[0])) == 0) return std::nullopt;
    return static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 10));
}

std::vector<std::string> entriesOf(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(folder, none)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> foldersIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const std::string& name : entriesOf(folder)) {
        std::error_code none;
        if (fs::symlink_status(fs::path(folder) / name, none).type() == fs::file_type::directory) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace korvane::ctl
