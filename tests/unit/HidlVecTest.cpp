// SPDX-License-Identifier: Apache-2.0
#include "hidl/HidlVec.h"

#include <array>
#include <list>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <hidl/HidlString.h>

namespace android {
namespace hardware {
namespace {

/** Counts the objects that live, to see who deletes what. */
struct Counted {
    Counted() { ++sAlive; }
    Counted(const Counted&) { ++sAlive; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --sAlive; }
    static int sAlive;
};
int Counted::sAlive = 0;

TEST(HidlVecTest, TakesItsElementsFromAnySequence) {
    const std::list<int> source = {1, 2, 3};
    EXPECT_EQ((hidl_vec<int>{1, 2, 3}), hidl_vec<int>(source.begin(), source.end()));
    EXPECT_EQ((hidl_vec<int>{1, 2, 3}), hidl_vec<int>(std::vector<int>{1, 2, 3}));
    EXPECT_EQ((std::vector<int>{1, 2, 3}), std::vector<int>(hidl_vec<int>{1, 2, 3}));
}

TEST(HidlVecTest, HasNoBufferWhenEmpty) {
    EXPECT_EQ(nullptr, hidl_vec<int>().data());
    EXPECT_EQ(nullptr, hidl_vec<int>(std::vector<int>()).data());
    EXPECT_EQ(0u, hidl_vec<int>().size());
}

TEST(HidlVecTest, CopiesAreIndependent) {
    hidl_vec<int> first{1, 2};
    hidl_vec<int> second(first);
    second[0] = 5;
    EXPECT_EQ(1, first[0]);
    first = second;
    EXPECT_EQ(5, first[0]);
    EXPECT_NE(first.data(), second.data());
}

TEST(HidlVecTest, SurvivesAssignmentToItself) {
    hidl_vec<int> vec{1, 2};
    const hidl_vec<int>& alias = vec;
    vec = alias;
    EXPECT_EQ((hidl_vec<int>{1, 2}), vec);
}

TEST(HidlVecTest, MovesTheBufferAndLeavesNothing) {
    hidl_vec<int> source{1, 2};
    const int* const data = source.data();
    hidl_vec<int> target(std::move(source));
    EXPECT_EQ(data, target.data());
    EXPECT_EQ(0u, source.size());  // NOLINT: what a moved-from vec is, is the test
    EXPECT_EQ(nullptr, source.data());
}

TEST(HidlVecTest, ResizeKeepsAPrefixAndZeroesTheRest) {
    hidl_vec<int> vec{1, 2, 3};
    vec.resize(5);
    EXPECT_EQ((hidl_vec<int>{1, 2, 3, 0, 0}), vec);
    vec.resize(2);
    EXPECT_EQ((hidl_vec<int>{1, 2}), vec);
    vec.resize(0);
    EXPECT_EQ(nullptr, vec.data());
}

TEST(HidlVecTest, ComparesElementWise) {
    EXPECT_TRUE((hidl_vec<hidl_string>{"a", "b"} == hidl_vec<hidl_string>{"a", "b"}));
    EXPECT_TRUE((hidl_vec<hidl_string>{"a", "b"} != hidl_vec<hidl_string>{"a", "c"}));
    EXPECT_TRUE((hidl_vec<hidl_string>{"a"} != hidl_vec<hidl_string>{"a", "a"}));
}

TEST(HidlVecTest, DoesNotDeleteWhatItBorrows) {
    Counted elements[2];
    {
        hidl_vec<Counted> vec;
        vec.setToExternal(elements, 2);
        EXPECT_EQ(elements, vec.data());
    }
    EXPECT_EQ(2, Counted::sAlive);
}

TEST(HidlVecTest, DeletesWhatItWasGiven) {
    {
        hidl_vec<Counted> vec(3);
        EXPECT_EQ(3, Counted::sAlive);
        vec.setToExternal(new Counted[2], 2, true /* shouldOwn */);
        EXPECT_EQ(2, Counted::sAlive);
    }
    EXPECT_EQ(0, Counted::sAlive);
}

TEST(HidlVecTest, GivesItsElementsAway) {
    Counted* released = nullptr;
    {
        hidl_vec<Counted> vec(2);
        const Counted* const data = vec.data();
        released = vec.releaseData();
        EXPECT_EQ(data, released);
    }
    EXPECT_EQ(2, Counted::sAlive);
    delete[] released;
}

TEST(HidlVecTest, GivesACopyOfBorrowedElementsAway) {
    int elements[] = {1, 2};
    hidl_vec<int> vec;
    vec.setToExternal(elements, 2);
    int* const released = vec.releaseData();
    EXPECT_NE(elements, released);
    EXPECT_EQ(2, released[1]);
    delete[] released;
}

TEST(HidlVecDeathTest, RefusesMoreThanItsSizeCanSay) {
    hidl_vec<char> vec;
    char element = 0;
    EXPECT_DEATH(vec.setToExternal(&element, 0x100000000u), "2.32 elements");
}

TEST(HidlArrayTest, HoldsNothingButItsElements) {
    EXPECT_EQ(sizeof(float) * 16, sizeof(hidl_array<float, 16>));
    EXPECT_EQ(32u, sizeof(hidl_array<uint8_t, 32>));
}

TEST(HidlArrayTest, StartsZeroed) {
    EXPECT_EQ((hidl_array<int, 3>(std::array<int, 3>{0, 0, 0})), (hidl_array<int, 3>()));
}

TEST(HidlArrayTest, ConvertsFromAndToPlainArrays) {
    const int source[] = {1, 2, 3};
    hidl_array<int, 3> array(source);
    EXPECT_EQ((std::array<int, 3>{1, 2, 3}), (std::array<int, 3>(array)));
    array = std::array<int, 3>{4, 5, 6};
    EXPECT_EQ(6, array[2]);
    EXPECT_EQ(3u, array.size());
    EXPECT_TRUE((array != hidl_array<int, 3>(source)));
}

}  // namespace
}  // namespace hardware
}  // namespace android
