// SPDX-License-Identifier: Apache-2.0
// The bytes of a file, without reading it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace korvane::testcard {

/** Maps a file for as long as this lives. Nobody may shorten the file meanwhile. */
class MappedFile {
  public:
    MappedFile() = default;
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    /** Maps that file in place of an earlier one. Empty, or why it can't be or holds nothing. */
    [[nodiscard]] std::string map(const std::string& path);

    const uint8_t* data() const { return mData; }
    size_t size() const { return mSize; }

  private:
    void unmap();

    uint8_t* mData = nullptr;
    size_t mSize = 0;
};

}  // namespace korvane::testcard
