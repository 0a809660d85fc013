// SPDX-License-Identifier: Apache-2.0
#include "ServiceNames.h"

#include <string>

#include <gtest/gtest.h>

namespace android {
namespace {

const std::string kBase = "android.hidl.base@1.0::IBase";

TEST(ServiceNamesTest, TakesDescriptors) {
    EXPECT_TRUE(isValidFqName(kBase));
    EXPECT_TRUE(isValidFqName("korvane.hardware.camera.desktop@2.0::ICameraDesktop"));
    EXPECT_TRUE(isValidFqName("a@10.27::IFoo_2"));
}

TEST(ServiceNamesTest, RefusesWhatIsNoDescriptor) {
    for (const char* name : {"",
                             "IFoo",
                             "a.b@1.0",
                             "a.b@1::IFoo",
                             "a.b@1.0::Foo",
                             "a.b@1.0::IFoo/default",
                             "a..b@1.0::IFoo",
                             ".a@1.0::IFoo",
                             "a.b@1.0::IFoo ",
                             "a.b@1.0::IFoo\n",
                             "a b@1.0::IFoo",
                             "a.b@-1.0::IFoo",
                             "a.b@1.0::I",
                             "@1.0::IFoo",
                             "a.b.@1.0::IFoo",
                             "a::b@1.0",
                             "a.b@1.0.0::IFoo",
                             "a.b@.0::IFoo",
                             "1a@1.0::IFoo",
                             "a@1.0::IFoo::IBar",
                             "a@1.0::IF-oo"}) {
        EXPECT_FALSE(isValidFqName(name)) << name;
    }
    EXPECT_FALSE(isValidFqName(std::string(250, 'a') + "@1.0::IFoo"));
    EXPECT_FALSE(isValidFqName(std::string("a@1.0::IFoo\0", 12)));
}

TEST(ServiceNamesTest, TakesInstances) {
    EXPECT_TRUE(isValidInstance("default"));
    EXPECT_TRUE(isValidInstance("internal/0"));
    EXPECT_TRUE(isValidInstance(std::string(255, 'x')));
}

TEST(ServiceNamesTest, RefusesInstancesThatNobodyCouldRead) {
    EXPECT_FALSE(isValidInstance(""));
    EXPECT_FALSE(isValidInstance("two words"));
    EXPECT_FALSE(isValidInstance("line\n"));
    EXPECT_FALSE(isValidInstance("\x7f"));
    EXPECT_FALSE(isValidInstance("gr\xc3\xbc\xc3\x9f"));
    EXPECT_FALSE(isValidInstance(std::string("a\0b", 3)));
    EXPECT_FALSE(isValidInstance(std::string(256, 'x')));
}

TEST(ServiceNamesTest, AChainEndsWithTheRootInterface) {
    EXPECT_TRUE(isValidChain({"a@1.0::IFoo", kBase}));
    EXPECT_TRUE(isValidChain({"a@2.0::IFoo", "a@1.0::IFoo", kBase}));
    EXPECT_FALSE(isValidChain({}));
    EXPECT_FALSE(isValidChain({"a@1.0::IFoo"}));
    EXPECT_FALSE(isValidChain({kBase, "a@1.0::IFoo"}));
}

TEST(ServiceNamesTest, AChainHasSomethingBesidesTheRootInterface) {
    EXPECT_FALSE(isValidChain({kBase}));
}

TEST(ServiceNamesTest, AChainHasValidNamesOnly) {
    EXPECT_FALSE(isValidChain({"a@1.0::IFoo", "", kBase}));
}

}  // namespace
}  // namespace android
