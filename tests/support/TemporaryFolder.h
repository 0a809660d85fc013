// SPDX-License-Identifier: Apache-2.0
// A folder for a test's files.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace korvane::test {

/** An empty folder of the test's own, removed with everything in it. */
class TemporaryFolder {
  public:
    TemporaryFolder() {
        char name[] = "/tmp/korvane-test-XXXXXX";
        mFolder = mkdtemp(name);
    }
    ~TemporaryFolder() { std::filesystem::remove_all(mFolder); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path(const std::string& name) const { return mFolder + "/" + name; }

    /** Creates or replaces a file; returns its path. */
    std::string write(const std::string& name, const std::vector<uint8_t>& bytes) const {
        std::ofstream(path(name), std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::streamsize>(bytes.size()));
        return path(name);
    }

    /** A file's content; nothing if it doesn't exist. */
    std::string read(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(path(name)).rdbuf();
        return text.str();
    }

  private:
    std::string mFolder;
};

}  // namespace korvane::test
