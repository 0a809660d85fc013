// SPDX-License-Identifier: Apache-2.0
// Every program that takes arguments tells its version.
#include <string>

#include <gtest/gtest.h>

#include "options/Options.h"
#include "support/Program.h"

namespace korvane {
namespace {

TEST(VersionTest, EveryProgramTellsItInTheSameWay) {
    for (const std::string name :
         {"desktop-camera", "desktopctl", "korvane-gadget", "testcard-check"}) {
        const test::ProgramResult result = test::runProgram(name, {"--version"});
        EXPECT_EQ(0, result.status) << name;
        EXPECT_EQ(name + " " + options::version() + "\n", result.out);
        EXPECT_EQ("", result.err);
    }
}

}  // namespace
}  // namespace korvane
