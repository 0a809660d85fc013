// SPDX-License-Identifier: Apache-2.0
// The mapping of a captured file: what it holds, which files it refuses, and that it goes.
#include "testcard/MappedFile.h"

#include <cstdint>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/TemporaryFolder.h"

namespace korvane::test {
namespace {

using testcard::MappedFile;

class MappedFileTest : public testing::Test {
  protected:
    std::string write(const std::string& name, const std::string& text) {
        return mFolder.write(name, {text.begin(), text.end()});
    }
    static std::string textOf(const MappedFile& file) {
        return {reinterpret_cast<const char*>(file.data()), file.size()};
    }
    static bool isMapped(const uint8_t* data) {
        const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        unsigned char resident = 0;
        return mincore(reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(data) / page * page), 1,
                       &resident) == 0;
    }

    const TemporaryFolder mFolder;
};

TEST_F(MappedFileTest, HasAFilesBytes) {
    MappedFile file;
    EXPECT_EQ("", file.map(write("a", "some text")));
    EXPECT_EQ("some text", textOf(file));
}

TEST_F(MappedFileTest, IsUnmappedWithTheObject) {
    const uint8_t* data = nullptr;
    {
        MappedFile file;
        ASSERT_EQ("", file.map(write("a", "some text")));
        data = file.data();
        ASSERT_TRUE(isMapped(data));
    }
    EXPECT_FALSE(isMapped(data));
}

TEST_F(MappedFileTest, TakesAnotherFileInPlaceOfTheFirst) {
    MappedFile file;
    ASSERT_EQ("", file.map(write("a", "some text")));
    EXPECT_EQ("", file.map(write("b", "another")));
    EXPECT_EQ("another", textOf(file));
}

TEST_F(MappedFileTest, HasNothingOfTheFirstFileWhenTheNextIsRefused) {
    MappedFile file;
    ASSERT_EQ("", file.map(write("a", "some text")));
    const uint8_t* const first = file.data();
    EXPECT_EQ("it is empty", file.map(write("b", "")));
    EXPECT_EQ(0u, file.size());
    EXPECT_FALSE(isMapped(first));
}

TEST_F(MappedFileTest, RefusesAFileThatIsNotThere) {
    MappedFile file;
    EXPECT_EQ("No such file or directory", file.map(mFolder.path("none")));
    EXPECT_EQ(0u, file.size());
}

TEST_F(MappedFileTest, RefusesAFolder) {
    MappedFile file;
    EXPECT_EQ("it is not a file", file.map(mFolder.path("")));
}

}  // namespace
}  // namespace korvane::test
