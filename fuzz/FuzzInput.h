// SPDX-License-Identifier: Apache-2.0
// Takes a fuzzer's input apart; whatever is missing at its end reads as zeros.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace korvane::fuzz {

class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    bool empty() const { return mSize == 0; }

    /** A number in the machine's byte order. */
    template <typename T>
    T take() {
        T value = {};
        const size_t count = std::min(sizeof(value), mSize);
        if (count > 0) memcpy(&value, mData, count);
        skip(count);
        return value;
    }

    /** The next bytes, or as many of those wanted as there are. */
    std::vector<uint8_t> bytes(size_t wanted) {
        const size_t count = std::min(wanted, mSize);
        std::vector<uint8_t> bytes(mData, mData + count);
        skip(count);
        return bytes;
    }

    /** A byte with the length, then the text. */
    std::string text() {
        const std::vector<uint8_t> characters = bytes(take<uint8_t>());
        return {characters.begin(), characters.end()};
    }

    std::vector<uint8_t> rest() { return bytes(mSize); }

  private:
    void skip(size_t count) {
        mData += count;
        mSize -= count;
    }

    const uint8_t* mData;
    size_t mSize;
};

}  // namespace korvane::fuzz
