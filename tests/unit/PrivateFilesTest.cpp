// SPDX-License-Identifier: Apache-2.0
#include "support/PrivateFiles.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using korvane::test::PrivateFiles;

// Opened before any test has left the machine's mount namespace, it keeps leading there.
const int sMachineRoot = open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);

std::string read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

class PrivateFilesTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
    }

    PrivateFiles mFiles;
};

TEST_F(PrivateFilesTest, StartsWithEmptyFoldersAndTheUsualNodes) {
    EXPECT_TRUE(fs::is_empty("/config"));
    EXPECT_TRUE(fs::is_empty("/sys/class"));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_TRUE(fs::is_character_file("/dev/urandom"));
    EXPECT_TRUE(fs::is_directory("/dev/shm"));
    EXPECT_FALSE(fs::exists("/dev/video0"));
}

TEST_F(PrivateFilesTest, KeepsEveryByteOfAFile) {
    const std::string bytes("a\0\n\xff", 4);
    mFiles.write("/config/usb_gadget/g1/file", bytes);
    EXPECT_EQ(bytes, read("/config/usb_gadget/g1/file"));
}

TEST_F(PrivateFilesTest, ForgetsAllWhenTheNextOneIsMade) {
    mFiles.addVideoDevice("video7", "msm\n");
    EXPECT_TRUE(fs::exists("/dev/video7"));
    EXPECT_EQ("msm\n", read("/sys/class/video4linux/video7/name"));

    const PrivateFiles next;
    EXPECT_FALSE(fs::exists("/dev/video7"));
    EXPECT_FALSE(fs::exists("/sys/class/video4linux"));
    EXPECT_TRUE(fs::exists("/dev/null"));
}

TEST_F(PrivateFilesTest, RefusesTheMachinesOwnPaths) {
    EXPECT_THROW(mFiles.write("/etc/private", ""), std::runtime_error);
    EXPECT_THROW(mFiles.makeDirectory("/configuration"), std::runtime_error);
    EXPECT_THROW(mFiles.remove("/tmp"), std::runtime_error);
    EXPECT_FALSE(fs::exists("/etc/private"));
}

TEST_F(PrivateFilesTest, LeavesTheMachineAlone) {
    for (const char* path : {"config/mine", "dev/mine", "sys/class/mine"}) {
        mFiles.write(std::string("/") + path, "");
        EXPECT_EQ(-1, faccessat(sMachineRoot, path, F_OK, 0)) << path;
    }
    EXPECT_EQ(0, faccessat(sMachineRoot, "sys/class/net", F_OK, 0));
    EXPECT_EQ(-1, faccessat(sMachineRoot, "mnt/config", F_OK, 0));
}

}  // namespace
