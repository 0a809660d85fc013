// SPDX-License-Identifier: Apache-2.0
// The main function of every test program.

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    // Several tests run threads; a forked child must not inherit locks that they hold.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    return RUN_ALL_TESTS();
}
