// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/FileWatch.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "desktop-camera/StreamDemand.h"
#include "support/TemporaryFolder.h"

namespace {

int looks = 0;

}  // namespace

// Counts who looks at the disk.
extern "C" int __real_lstat(const char* path, struct stat* status);
extern "C" int __wrap_lstat(const char* path, struct stat* status);
extern "C" int __wrap_lstat(const char* path, struct stat* status) {
    ++looks;
    return __real_lstat(path, status);
}

namespace korvane::camera {
namespace {

namespace fs = std::filesystem;

class FileWatchTest : public testing::Test {
  protected:
    void SetUp() override { looks = 0; }

    std::string path() const { return mFolder.path("covered"); }
    void make() const { std::ofstream(path()) << "x"; }

    test::TemporaryFolder mFolder;
};

TEST_F(FileWatchTest, TellsAtOnceThatTheFileComesAndGoes) {
    FileWatch watch(path());
    EXPECT_FALSE(watch.exists());
    for (int i = 0; i < 3; ++i) {
        make();
        EXPECT_TRUE(watch.exists());
        fs::remove(path());
        EXPECT_FALSE(watch.exists());
    }
}

TEST_F(FileWatchTest, FindsAFileThatWasThereBefore) {
    make();
    EXPECT_TRUE(FileWatch(path()).exists());
}

TEST_F(FileWatchTest, TellsOfFilesThatAreMovedAndOfLinksAndFolders) {
    FileWatch watch(path());
    EXPECT_FALSE(watch.exists());
    std::ofstream(mFolder.path("other")) << "x";
    fs::rename(mFolder.path("other"), path());
    EXPECT_TRUE(watch.exists());
    fs::rename(path(), mFolder.path("other"));
    EXPECT_FALSE(watch.exists());
    fs::create_symlink("/nowhere", path());
    EXPECT_TRUE(watch.exists());
    fs::remove(path());
    fs::create_directory(path());
    EXPECT_TRUE(watch.exists());
}

TEST_F(FileWatchTest, LooksAtTheDiskOnlyWhenSomethingHappens) {
    FileWatch watch(path());
    watch.exists();
    const int before = looks;
    for (int i = 0; i < 1000; ++i) EXPECT_FALSE(watch.exists());
    EXPECT_EQ(before, looks);
    make();
    EXPECT_TRUE(watch.exists());
    EXPECT_EQ(before + 1, looks);
}

TEST_F(FileWatchTest, FindsAFolderThatComesLaterOrComesAgain) {
    const std::string folder = mFolder.path("run");
    FileWatch watch(folder + "/covered");
    EXPECT_FALSE(watch.exists());
    const auto appears = [&] {
        const int64_t end = monotonicNs() + 10'000'000'000;
        while (!watch.exists()) {
            if (monotonicNs() > end) return false;
        }
        return true;
    };
    for (int i = 0; i < 2; ++i) {
        fs::create_directory(folder);
        std::ofstream(folder + "/covered") << "x";
        EXPECT_TRUE(appears());
        fs::remove_all(folder);
        EXPECT_FALSE(watch.exists());
    }
    EXPECT_LT(looks, 20);
}

TEST_F(FileWatchTest, HasNothingToFollowWithoutAPath) {
    FileWatch watch("");
    EXPECT_FALSE(watch.exists());
    EXPECT_EQ(0, looks);
}

}  // namespace
}  // namespace korvane::camera
