// SPDX-License-Identifier: Apache-2.0
// The start of every test program.

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    // Threads run in several tests; a forked child must not inherit their locks half taken.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    return RUN_ALL_TESTS();
}
