// SPDX-License-Identifier: Apache-2.0
#include "support/init/InitFile.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace korvane::test {
namespace {

using Words = std::vector<std::string>;
using Properties = std::vector<std::pair<std::string, std::string>>;

std::string errorOf(const std::string& text) {
    try {
        parseInit(text);
    } catch (const InitError& error) {
        return error.what();
    }
    return "none";
}

std::string errorOfAction(const std::string& command) {
    return errorOf("on boot\n    " + command + "\n");
}

std::string errorOfService(const std::string& options) {
    return errorOf("service cam /bin/cam\n" + options);
}

TEST(InitFileTest, ReadsActionsWithTheirTriggersAndCommands) {
    const InitFile file = parseInit(
            "on boot\n"
            "    mkdir /a 0771 root shell\n"
            "    write /a/b \"c d\"\n"
            "on post-fs && property:ro.a=1 && property:b.c=\n"
            "on property:x.y=u=v\n"
            "    chmod 0771 /a\n");
    ASSERT_EQ(3u, file.actions.size());
    EXPECT_EQ("boot", file.actions[0].event);
    EXPECT_TRUE(file.actions[0].properties.empty());
    ASSERT_EQ(2u, file.actions[0].commands.size());
    EXPECT_EQ((Words{"write", "/a/b", "c d"}), file.actions[0].commands[1].words);
    EXPECT_EQ(3, file.actions[0].commands[1].number);
    EXPECT_EQ("post-fs", file.actions[1].event);
    EXPECT_EQ((Properties{{"ro.a", "1"}, {"b.c", ""}}), file.actions[1].properties);
    EXPECT_TRUE(file.actions[1].commands.empty());
    EXPECT_EQ("", file.actions[2].event);
    EXPECT_EQ((Properties{{"x.y", "u=v"}}), file.actions[2].properties);
}

TEST(InitFileTest, ReadsServicesWithTheirOptions) {
    const InitFile file = parseInit(
            "service cam /vendor/bin/hw/cam@2.0 -v\n"
            "    interface a.b@1.0::ICam default\n"
            "    interface a.b@2.0::ICam default\n"
            "    class hal\n"
            "    user cameraserver\n"
            "    group camera\n"
            "    rlimit nofile 1024 1024\n");
    ASSERT_EQ(1u, file.services.size());
    EXPECT_EQ("cam", file.services[0].name);
    EXPECT_EQ((Words{"/vendor/bin/hw/cam@2.0", "-v"}), file.services[0].program);
    ASSERT_EQ(6u, file.services[0].options.size());
    EXPECT_EQ((Words{"rlimit", "nofile", "1024", "1024"}), file.services[0].options[5].words);
}

TEST(InitFileTest, RefusesInvalidTriggers) {
    EXPECT_EQ("line 1: a trigger is missing", errorOf("on\n"));
    EXPECT_EQ("line 1: a trigger is missing", errorOf("on boot &&\n"));
    EXPECT_EQ("line 1: && is wanted, not ||", errorOf("on boot || property:a=1\n"));
    EXPECT_EQ("line 1: a second event: fs", errorOf("on boot && fs\n"));
    EXPECT_EQ("line 1: no property:NAME=VALUE: property:a", errorOf("on property:a\n"));
    EXPECT_EQ("line 1: no property:NAME=VALUE: property:=1", errorOf("on property:=1\n"));
    EXPECT_EQ("line 1: no trigger: a=1", errorOf("on a=1\n"));
}

TEST(InitFileTest, RefusesCommandsThatItDoesNotKnow) {
    EXPECT_EQ("line 2: no command: mkdirs", errorOfAction("mkdirs /a"));
    EXPECT_EQ("line 2: no command: user", errorOfAction("user root"));
}

TEST(InitFileTest, RefusesArgumentsTooFewOrTooMany) {
    EXPECT_EQ("line 2: write with 1 arguments", errorOfAction("write /a"));
    EXPECT_EQ("line 2: write with 3 arguments", errorOfAction("write /a 1 2"));
    EXPECT_EQ("line 2: symlink with 1 arguments", errorOfAction("symlink /a"));
    EXPECT_EQ("line 2: mkdir with 5 arguments", errorOfAction("mkdir /a 0771 root root x"));
    EXPECT_EQ("line 2: chmod with 1 arguments", errorOfAction("chmod /a"));
}

TEST(InitFileTest, RefusesArgumentsOfAnotherForm) {
    EXPECT_EQ("line 2: mkdir: 'a' is not an absolute path", errorOfAction("mkdir a"));
    EXPECT_EQ("line 2: chmod: '0781' is not an octal mode", errorOfAction("chmod 0781 /a"));
    EXPECT_EQ("line 2: chmod: '/a' is not an octal mode", errorOfAction("chmod /a 0771"));
    EXPECT_EQ("line 2: setprop: 'a b' is not a name", errorOfAction("setprop \"a b\" 1"));
}

TEST(InitFileTest, RefusesServicesWithoutAProgram) {
    EXPECT_EQ("line 1: a service without a program", errorOf("service cam\n"));
    EXPECT_EQ("line 1: no absolute path of a program", errorOf("service cam cam\n"));
}

TEST(InitFileTest, RefusesOptionsThatItDoesNotKnowOrThatAreAnotherForm) {
    EXPECT_EQ("line 2: no option of a service: capabilities", errorOfService("capabilities A"));
    EXPECT_EQ("line 2: user with 2 arguments", errorOfService("user a b"));
    EXPECT_EQ("line 2: interface: 'ICam' is not PACKAGE@VERSION::INTERFACE",
              errorOfService("interface ICam default"));
    EXPECT_EQ("line 2: rlimit: 'many' is not a number", errorOfService("rlimit nofile many 9"));
}

TEST(InitFileTest, RefusesRepeatedOptions) {
    EXPECT_EQ("line 3: user a second time", errorOfService("user a\nuser b\n"));
    EXPECT_EQ("line 3: interface a second time",
              errorOfService("interface a@1.0::IA x\ninterface a@1.0::IA x\n"));
    EXPECT_EQ("none", errorOfService("interface a@1.0::IA x\ninterface a@1.0::IA y\n"));
}

TEST(InitFileTest, RefusesInvalidLimits) {
    EXPECT_EQ("line 2: no limit: files", errorOfService("rlimit files 1 2"));
    EXPECT_EQ("line 2: rlimit: the soft limit is above the hard one",
              errorOfService("rlimit nofile 1025 1024"));
    EXPECT_EQ("none", errorOfService("rlimit nofile 1024 1024"));
}

TEST(InitFileTest, RefusesLinesOutsideOfAnySection) {
    EXPECT_EQ("line 1: below no section: mkdir", errorOf("mkdir /a\n"));
}

TEST(InitFileTest, PassesOnWhatTheTokenizerRefuses) {
    EXPECT_EQ("line 2: a quote that doesn't end", errorOfAction("write /a \"b"));
}

}  // namespace
}  // namespace korvane::test
