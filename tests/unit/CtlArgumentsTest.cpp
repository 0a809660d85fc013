// SPDX-License-Identifier: Apache-2.0
// The command line of desktopctl: every command, its operands, its options, and what is none.

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "desktopctl/Arguments.h"

namespace korvane::ctl {
namespace {

using testing::HasSubstr;

class CtlArgumentsTest : public testing::Test {
  protected:
    std::string read(const std::vector<std::string>& arguments) {
        mArguments = Arguments();
        return mArguments.read(arguments);
    }

    Arguments mArguments;
};

TEST_F(CtlArgumentsTest, EveryCommandHasItsOperands) {
    EXPECT_EQ("", read({"status"}));
    EXPECT_EQ(Arguments::STATUS, mArguments.command);
    EXPECT_FALSE(mArguments.json);
    EXPECT_EQ("", read({"watch"}));
    EXPECT_EQ(Arguments::WATCH, mArguments.command);
    EXPECT_EQ("", read({"clients"}));
    EXPECT_EQ(Arguments::CLIENTS, mArguments.command);
    EXPECT_EQ("", read({"send", "3", "{\"a\":1}"}));
    EXPECT_EQ(Arguments::SEND, mArguments.command);
    EXPECT_EQ(3u, mArguments.kind);
    EXPECT_EQ("{\"a\":1}", mArguments.text);
    EXPECT_EQ("", read({"suspend"}));
    EXPECT_EQ(Arguments::SUSPEND, mArguments.command);
    EXPECT_EQ("", read({"resume"}));
    EXPECT_EQ(Arguments::RESUME, mArguments.command);
    EXPECT_EQ("", read({"snapshot", "a.png"}));
    EXPECT_EQ(Arguments::SNAPSHOT, mArguments.command);
    EXPECT_EQ("a.png", mArguments.file);
    EXPECT_EQ("", read({"dump", "frames"}));
    EXPECT_EQ(Arguments::DUMP, mArguments.command);
    EXPECT_EQ(10.0, mArguments.seconds);
    EXPECT_EQ("", read({"doctor"}));
    EXPECT_EQ(Arguments::DOCTOR, mArguments.command);
    EXPECT_EQ("", read({"--version"}));
    EXPECT_EQ(Arguments::VERSION, mArguments.command);
}

TEST_F(CtlArgumentsTest, OptionsBelongToTheirCommands) {
    EXPECT_EQ("", read({"status", "--json"}));
    EXPECT_TRUE(mArguments.json);
    EXPECT_EQ("", read({"doctor", "--json"}));
    EXPECT_TRUE(mArguments.json);
    EXPECT_EQ("", read({"dump", "--seconds", "2.5", "frames"}));
    EXPECT_EQ(2.5, mArguments.seconds);
    EXPECT_EQ("frames", mArguments.file);
    EXPECT_EQ("", read({"watch", "--interval", "0.5", "--count", "3"}));
    EXPECT_EQ(0.5, mArguments.interval);
    EXPECT_EQ(3u, mArguments.screens);
    EXPECT_EQ("usage: desktopctl clients", read({"clients", "--json"}));
    EXPECT_EQ("usage: desktopctl watch [--interval SECONDS] [--count N]",
              read({"watch", "--seconds", "1"}));
}

TEST_F(CtlArgumentsTest, WhatIsWrongIsSaidInALine) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                      {"stat"},
                                                      {"status", "all"},
                                                      {"send", "3"},
                                                      {"send", "8", "text"},
                                                      {"send", "-1", "text"},
                                                      {"send", "three", "text"},
                                                      {"snapshot"},
                                                      {"snapshot", "a.png", "b.png"},
                                                      {"dump"},
                                                      {"dump", "a", "--seconds"},
                                                      {"dump", "a", "--seconds", "0"},
                                                      {"dump", "a", "--seconds", "ten"},
                                                      {"dump", "a", "--seconds", "inf"},
                                                      {"watch", "--count", "0"},
                                                      {"watch", "--interval", "-1"},
                                                      {"--status"}}) {
        const std::string wrong = read(arguments);
        EXPECT_FALSE(wrong.empty());
        EXPECT_EQ(std::string::npos, wrong.find('\n'));
        EXPECT_EQ(Arguments::HELP, mArguments.command) << wrong;
    }
    EXPECT_EQ("KIND is '8', but a number from 0 to 7 is needed", read({"send", "8", "text"}));
}

TEST_F(CtlArgumentsTest, HelpIsOneScreenWithEveryCommand) {
    EXPECT_EQ("", read({"dump", "--help"}));
    EXPECT_EQ(Arguments::HELP, mArguments.command);
    const std::string help = helpText();
    EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 24);
    for (const char* command : {"status", "watch", "clients", "send", "suspend", "resume",
                                "snapshot", "dump", "doctor"}) {
        EXPECT_THAT(help, HasSubstr(std::string(" ") + command));
    }
}

TEST_F(CtlArgumentsTest, ManualAndCompletionKnowEveryCommandAndOption) {
    for (const char* file : {MANUAL, COMPLETION}) {
        std::ifstream stream(file);
        std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        // The manual writes a dash that is to stay one with a backslash.
        text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
        for (const char* word :
             {"status", "watch", "clients", "send", "suspend", "resume", "snapshot", "dump",
              "doctor", "--json", "--interval", "--count", "--seconds"}) {
            EXPECT_THAT(text, HasSubstr(word)) << file;
        }
    }
}

}  // namespace
}  // namespace korvane::ctl
