// SPDX-License-Identifier: Apache-2.0
#include "options/Options.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace korvane::options {
namespace {

class OptionsTest : public testing::Test {
  protected:
    std::string mColour;
    bool mFast = false;
    std::string mFile;

    Options make(bool withOperand = true) {
        const auto colour = [this](const std::string& value) -> std::string {
            mColour = value;
            return value == "red" ? "" : "red";
        };
        const auto fast = [this](const std::string&) -> std::string {
            mFast = true;
            return "";
        };
        const auto file = [this](const std::string& value) -> std::string {
            mFile = value;
            return "";
        };
        return Options("paint", "Paints.",
                       {{"--colour", "COLOUR", "Which.", colour}, {"--fast", "", "Soon.", fast}},
                       withOperand ? "FILE" : "", file);
    }

    std::string read(const std::vector<std::string>& arguments, bool withOperand = true) {
        return make(withOperand).read(arguments);
    }
};

TEST_F(OptionsTest, TakesValuesAfterASpaceOrAnEqualsSign) {
    EXPECT_EQ("", read({"--colour", "red", "wall"}));
    EXPECT_EQ("red", mColour);
    EXPECT_EQ("wall", mFile);
    mColour.clear();
    EXPECT_EQ("", read({"--fast", "wall", "--colour=red"}));
    EXPECT_EQ("red", mColour);
    EXPECT_TRUE(mFast);
}

TEST_F(OptionsTest, SaysWhatIsWrongAndWhatIsAccepted) {
    EXPECT_EQ("paint: unknown option '--color'; accepted: --colour, --fast, --help",
              read({"--color", "red"}));
    EXPECT_EQ("paint: unknown option '-c'; accepted: --colour, --fast, --help", read({"-c"}));
    EXPECT_EQ("paint: --colour needs a value: COLOUR", read({"--colour"}));
    EXPECT_EQ("paint: --colour is 'blue', but red is needed", read({"--colour=blue"}));
    EXPECT_EQ("paint: --colour is '', but red is needed", read({"--colour="}));
    EXPECT_EQ("paint: --fast takes no value", read({"--fast=1"}));
    EXPECT_EQ("paint: FILE is missing", read({"--fast"}));
    EXPECT_EQ("paint: more than one FILE: 'door'", read({"wall", "door"}));
    EXPECT_EQ("paint: unexpected argument 'wall'; accepted: --colour, --fast, --help",
              read({"wall"}, false));
}

TEST_F(OptionsTest, AsksForHelpBeforeAnythingIsMissing) {
    Options options = make();
    EXPECT_EQ("", options.read({"--help"}));
    EXPECT_TRUE(options.wantsHelp());
    for (const char* part : {"paint [OPTION...] FILE", "Paints.", "--colour COLOUR", "Soon."}) {
        EXPECT_NE(std::string::npos, options.help().find(part)) << part;
    }
}

TEST_F(OptionsTest, TellsTheVersionWithoutItsOperand) {
    Options options = make();
    EXPECT_EQ("", options.read({"--fast", "--version", "--nonsense"}));
    EXPECT_TRUE(options.wantsHelp());
    EXPECT_EQ("paint " + version() + "\n", options.help());
    EXPECT_EQ(std::string::npos, version().find_first_not_of("0123456789."));
    EXPECT_NE(std::string::npos, make().help().find("--version"));
}

TEST(NumberFromTest, TakesWholeNumbersWithinTheBoundsOnly) {
    unsigned long number = 0;
    EXPECT_TRUE(numberFrom("42", 1, 42, &number));
    EXPECT_EQ(42u, number);
    for (const char* text : {"", "0", "43", "-1", "+1", " 1", "1x", "99999999999999999999"}) {
        EXPECT_FALSE(numberFrom(text, 1, 42, &number)) << text;
    }
}

TEST(SizeFromTest, TakesTwoNumbersJoinedByAnX) {
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_TRUE(sizeFrom("1280x720", &width, &height));
    EXPECT_EQ(1280u, width);
    EXPECT_EQ(720u, height);
    for (const char* text :
         {"", "x", "1280", "1280x", "x720", "1280x720x2", "1280 x 720", "0x720"}) {
        EXPECT_FALSE(sizeFrom(text, &width, &height)) << text;
    }
}

}  // namespace
}  // namespace korvane::options
