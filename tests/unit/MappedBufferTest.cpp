// SPDX-License-Identifier: Apache-2.0
#include "uvc/MappedBuffer.h"

#include <fstream>
#include <optional>
#include <string>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

constexpr uint32_t kLength = 8192;

class MappedBufferTest : public testing::Test {
  protected:
    MappedBufferTest() : mFd(memfd_create("mapped-buffer", MFD_CLOEXEC)) {
        EXPECT_EQ(0, ftruncate(mFd, 2 * kLength));
    }
    ~MappedBufferTest() override { close(mFd); }

    // How often the file is mapped in this process.
    static int mappings() {
        std::ifstream maps("/proc/self/maps");
        int count = 0;
        for (std::string line; std::getline(maps, line);) {
            if (line.find("mapped-buffer") != std::string::npos) ++count;
        }
        return count;
    }

    const int mFd;
};

TEST_F(MappedBufferTest, IsEmptyAtFirst) {
    const MappedBuffer buffer;
    EXPECT_FALSE(buffer.isMapped());
    EXPECT_EQ(nullptr, buffer.data());
    EXPECT_EQ(0u, buffer.length());
}

TEST_F(MappedBufferTest, MapsThatPartOfTheFileUntilItGoes) {
    {
        MappedBuffer buffer;
        ASSERT_TRUE(buffer.map(mFd, kLength, kLength));
        EXPECT_EQ(kLength, buffer.length());
        EXPECT_EQ(1, mappings());
        buffer.data()[0] = 'x';
        char byte = 0;
        EXPECT_EQ(1, pread(mFd, &byte, 1, kLength));
        EXPECT_EQ('x', byte);
    }
    EXPECT_EQ(0, mappings());
}

TEST_F(MappedBufferTest, IsEmptyWhenThereIsNothingToMap) {
    MappedBuffer buffer;
    EXPECT_FALSE(buffer.map(-1, 0, kLength));
    EXPECT_FALSE(buffer.isMapped());
    EXPECT_EQ(0u, buffer.length());
}

TEST_F(MappedBufferTest, MovesItsMemory) {
    std::optional<MappedBuffer> first(std::in_place);
    ASSERT_TRUE(first->map(mFd, 0, kLength));
    const uint8_t* const memory = first->data();
    const MappedBuffer second = std::move(*first);
    EXPECT_FALSE(first->isMapped());
    EXPECT_EQ(0u, first->length());
    first.reset();
    EXPECT_EQ(memory, second.data());
    EXPECT_EQ(kLength, second.length());
    EXPECT_EQ(1, mappings());
}

TEST_F(MappedBufferTest, LeavesItsMemoryMapped) {
    MappedBuffer buffer;
    ASSERT_TRUE(buffer.map(mFd, 0, kLength));
    uint8_t* const memory = buffer.data();
    buffer.leave();
    EXPECT_FALSE(buffer.isMapped());
    EXPECT_EQ(0u, buffer.length());
    EXPECT_EQ(1, mappings());
    munmap(memory, kLength);
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
