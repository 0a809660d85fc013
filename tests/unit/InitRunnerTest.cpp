// SPDX-License-Identifier: Apache-2.0
#include "support/init/InitRunner.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <stdlib.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace korvane::test {
namespace {

namespace fs = std::filesystem;

class InitRunnerTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "initXXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern.data()));
        mFolder = pattern;
    }
    void TearDown() override { fs::remove_all(mFolder); }

    // A runner for a file in whose text each @ is the test's folder.
    InitRunner runner(std::string text) const {
        for (size_t at; (at = text.find('@')) != std::string::npos;) {
            text.replace(at, 1, mFolder);
        }
        return InitRunner(parseInit(text));
    }

    std::string contentOf(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(mFolder + "/" + name).rdbuf();
        return text.str();
    }

    void makeFile(const std::string& name, const std::string& text = "") const {
        std::ofstream(mFolder + "/" + name) << text;
    }

    mode_t modeOf(const std::string& name) const {
        struct stat status = {};
        EXPECT_EQ(0, stat((mFolder + "/" + name).c_str(), &status));
        return status.st_mode & 07777;
    }

    static std::string errorOf(InitRunner runner) {
        try {
            runner.raise("boot");
        } catch (const InitError& error) {
            return error.what();
        }
        return "none";
    }

    std::string mFolder;
};

TEST_F(InitRunnerTest, RunsTheCommandsOfAnEventInTheirOrder) {
    makeFile("file");
    InitRunner init =
            runner("on boot\n"
                   "    mkdir @/a\n"
                   "    mkdir @/a/b\n"
                   "    write @/file 1\\n2\\n\n"
                   "    symlink @/file @/a/link\n"
                   "on shutdown\n"
                   "    mkdir @/c\n");
    init.raise("boot");
    EXPECT_TRUE(fs::is_directory(mFolder + "/a/b"));
    EXPECT_EQ("1\n2\n", contentOf("file"));
    EXPECT_EQ(mFolder + "/file", fs::read_symlink(mFolder + "/a/link"));
    EXPECT_FALSE(fs::exists(mFolder + "/c"));
    EXPECT_EQ((std::vector<int>{2, 3, 4, 5}), init.ran());
}

TEST_F(InitRunnerTest, MakesFoldersWithTheirModeWhateverTheMaskOfTheProcess) {
    const mode_t mask = umask(0077);
    InitRunner init = runner(
            "on boot\n    mkdir @/a\n    mkdir @/b 0770\n    mkdir @/c 0770\n    chmod 0771 @/c\n");
    init.raise("boot");
    umask(mask);
    EXPECT_EQ(0755u, modeOf("a"));
    EXPECT_EQ(0770u, modeOf("b"));
    EXPECT_EQ(0771u, modeOf("c"));
}

TEST_F(InitRunnerTest, RemovesLinks) {
    makeFile("file");
    runner("on boot\n    symlink @/file @/link\n    rm @/link\n").raise("boot");
    EXPECT_FALSE(fs::exists(fs::symlink_status(mFolder + "/link")));
    EXPECT_TRUE(fs::exists(mFolder + "/file"));
}

TEST_F(InitRunnerTest, LooksAtTheConditionsOfAnEventBeforeAnyOfItsCommandsHasRun) {
    InitRunner init =
            runner("on boot\n    setprop configfs 1\n"
                   "on boot && property:configfs=1\n    mkdir @/late\n");
    init.raise("boot");
    EXPECT_EQ("1", init.property("configfs"));
    EXPECT_FALSE(fs::exists(mFolder + "/late"));
    init.raise("boot");
    EXPECT_TRUE(fs::exists(mFolder + "/late"));
}

TEST_F(InitRunnerTest, StartsActionsWithPropertiesAloneWhenAllHaveBecomeTrue) {
    const std::string text =
            "on property:a=1 && property:b=1\n    mkdir @/both\n"
            "on boot\n    setprop b 1\n    mkdir @/after\n";
    InitRunner init = runner(text);
    init.setProperty("a", "1");
    EXPECT_FALSE(fs::exists(mFolder + "/both"));
    init.raise("boot");
    EXPECT_TRUE(fs::exists(mFolder + "/both"));
    EXPECT_EQ((std::vector<int>{4, 5, 2}), init.ran());
}

TEST_F(InitRunnerTest, StartsThemAgainOnlyWhenTheyBecomeTrueAgain) {
    InitRunner init = runner("on property:a=1\n    setprop seen 1\n");
    init.setProperty("a", "1");
    init.setProperty("a", "1");
    init.setProperty("b", "1");
    EXPECT_EQ(1u, init.ran().size());
    init.setProperty("a", "0");
    init.setProperty("a", "1");
    EXPECT_EQ(2u, init.ran().size());
}

TEST_F(InitRunnerTest, PutsInTheValuesOfProperties) {
    makeFile("file");
    InitRunner init = runner("on boot\n    write @/file <${x.y}${z}>\n");
    init.setProperty("x.y", "u");
    init.setProperty("z", "v");
    init.raise("boot");
    EXPECT_EQ("<uv>", contentOf("file"));
}

TEST_F(InitRunnerTest, SaysWhichCommandFailedAndWhy) {
    EXPECT_EQ("line 2: mkdir " + mFolder + ": File exists",
              errorOf(runner("on boot\n    mkdir @\n")));
    EXPECT_EQ("line 3: write " + mFolder + "/no: No such file or directory",
              errorOf(runner("on boot\n\n    write @/no 1\n")));
    EXPECT_EQ("line 2: write /dev/full: No space left on device",
              errorOf(runner("on boot\n    write /dev/full 1\n")));
    EXPECT_EQ("line 2: mkdir " + mFolder + "/a: Invalid argument",
              errorOf(runner("on boot\n    mkdir @/a 0770 no-such-user\n")));
    EXPECT_EQ("line 2: no such property: ${a.b}",
              errorOf(runner("on boot\n    write @/f ${a.b}\n")));
}

}  // namespace
}  // namespace korvane::test
