// SPDX-License-Identifier: Apache-2.0
// The status in both its forms, of what no service comes to: limits, names, sizes.

#include "StatusPage.h"

#include <limits>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "StatusJson.h"
#include "StatusNames.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using testing::HasSubstr;

constexpr size_t kMostBytes = 8192;
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// As long as it can become.
void fill(ServiceStats* stats) {
    stats->setNode(NodeState::READY, "/dev/video999");
    stats->setMode(UINT32_MAX, UINT32_MAX, 0x56595559, 1);
    stats->streamStarted(ServiceStats::kBuffers);
    stats->surfaceMade({UINT32_MAX, UINT32_MAX, 0x56595559, 8e37f}, UINT32_MAX);
    stats->surfaceTaken(4194304);
    for (uint8_t kind = 0; kind < 8; ++kind) stats->clientRegistered(kind, 4194304);
    for (size_t i = 0; i < static_cast<size_t>(Count::COUNTS); ++i) {
        stats->count(static_cast<Count>(i), INT64_MAX);
    }
    for (int i = 0; i < 40; ++i) {
        for (int n = 0; n < 300; ++n) stats->note(Event::CLIENT_REGISTERED, -8000 - i);
    }
}

TEST(StatusPageTest, IsBoundedWhateverThereIsToSay) {
    ServiceStats stats;
    fill(&stats);
    EXPECT_LT(statusPage(stats).size(), kMostBytes);
}

TEST(StatusPageTest, OfANewServiceSaysThatThereIsNothing) {
    const ServiceStats stats;
    const std::string page = statusPage(stats);
    EXPECT_THAT(page, HasSubstr("Node:     none\n"));
    EXPECT_THAT(page, HasSubstr("Surface:  none\n"));
    EXPECT_THAT(page, HasSubstr("  dropped-rate                0          0\n"));
}

TEST(StatusPageTest, ShowsTimesByClassAndThoseAboveTheLastBound) {
    ServiceStats stats;
    stats.frameArrived(1);
    stats.frameSent(0);
    stats.frameTook(0, stats.arrivalOf(1));
    stats.frameTook(0, 1);  // an age ago
    const std::string page = statusPage(stats);
    EXPECT_THAT(page, HasSubstr("  from  1048576 us          1          1\n"));
}

TEST(StatusJsonTest, IsBoundedAndOneObjectWhateverThereIsToSay) {
    ServiceStats stats;
    fill(&stats);
    const std::string text = statusJson(stats);
    EXPECT_LT(text.size(), kMostBytes);
    EXPECT_EQ(text.size() - 1, text.find('\n'));
    rapidjson::Document document;
    EXPECT_FALSE(document.Parse(text.c_str()).HasParseError());
    EXPECT_EQ(32u, document["buffers"].Size());
    EXPECT_EQ(8u, document["clients"].Size());
    EXPECT_EQ(32u, document["events"].Size());
    EXPECT_EQ(255u, document["events"][31]["times"].GetUint());
    EXPECT_EQ(15u, document["latency"]["below-us"].Size());
    EXPECT_EQ(16u, document["latency"]["queueing-to-return"]["start"].Size());
}

TEST(StatusJsonTest, RatesThatAreNoNumbersAreZero) {
    for (float fps : {kInfinity, -kInfinity, std::numeric_limits<float>::quiet_NaN()}) {
        ServiceStats stats;
        stats.surfaceMade({1, 1, 0x56595559, fps}, 0);
        rapidjson::Document document;
        ASSERT_FALSE(document.Parse(statusJson(stats).c_str()).HasParseError());
        EXPECT_EQ(0.0, document["surface"]["fps"].GetDouble());
    }
}

TEST(StatusNamesTest, EveryCountAndEventHasItsOwnName) {
    std::set<std::string> names;
    for (size_t i = 0; i < static_cast<size_t>(Count::COUNTS); ++i) {
        names.insert(nameOf(static_cast<Count>(i)));
    }
    EXPECT_EQ(static_cast<size_t>(Count::COUNTS), names.size());
    EXPECT_EQ(0u, names.count(""));

    names.clear();
    for (int i = 1; i <= static_cast<int>(Event::DUMP_STARTED); ++i) {
        names.insert(nameOf(static_cast<Event>(i)));
    }
    EXPECT_EQ(static_cast<size_t>(Event::DUMP_STARTED), names.size());
    EXPECT_EQ(0u, names.count(""));
}

TEST(StatusNamesTest, AFormatIsShownWhateverItIs) {
    EXPECT_EQ("YUYV", formatName(0x56595559));
    EXPECT_EQ("", formatName(0));
    EXPECT_EQ("\"?A", formatName(0x411f22));
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
