// SPDX-License-Identifier: Apache-2.0
// Regions: what unites, what travels and what is refused.
#include <climits>
#include <vector>

#include <gtest/gtest.h>
#include <ui/Rect.h>
#include <ui/Region.h>

using android::BAD_VALUE;
using android::NO_ERROR;
using android::Rect;
using android::Region;

namespace {

std::vector<Rect> rectsOf(const Region& region) {
    return {region.begin(), region.end()};
}

android::status_t unflatten(Region* region, const std::vector<Rect>& rects) {
    return region->unflatten(rects.data(), rects.size());
}

void expectRefused(const std::vector<Rect>& rects) {
    Region region(Rect(1, 2, 3, 4));
    EXPECT_EQ(BAD_VALUE, unflatten(&region, rects));
    EXPECT_EQ(std::vector<Rect>{Rect(1, 2, 3, 4)}, rectsOf(region));
}

bool covers(const Region& region, int32_t x, int32_t y) {
    int count = 0;
    for (const Rect& rect : region) {
        if (x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom) ++count;
    }
    EXPECT_LE(count, 1) << "rectangles overlap at " << x << "," << y;
    return count == 1;
}

}  // namespace

TEST(RectTest, IsInvalidUntilItIsSet) {
    EXPECT_EQ(Rect(0, 0, -1, -1), Rect());
    EXPECT_FALSE(Rect().isValid());
    EXPECT_TRUE(Rect(0, 0).isValid());
    EXPECT_TRUE(Rect(0, 0).isEmpty());
}

TEST(RectTest, IntersectsEvenWhatIsApart) {
    Rect common;
    EXPECT_TRUE(Rect(0, 0, 10, 10).intersect(Rect(5, 6, 20, 20), &common));
    EXPECT_EQ(Rect(5, 6, 10, 10), common);
    EXPECT_FALSE(Rect(0, 0, 10, 10).intersect(Rect(20, 0, 30, 10), &common));
    EXPECT_EQ(Rect(20, 0, 10, 10), common);
}

TEST(RectTest, KnowsTheShapeOfCornersTooFarApartToSubtract) {
    EXPECT_FALSE(Rect(INT_MIN, 0, INT_MAX, 1).isEmpty());
    EXPECT_TRUE(Rect(INT_MAX, 0, INT_MIN, 1).isEmpty());
    EXPECT_EQ(-1, Rect(INT_MIN, 0, INT_MAX, 1).getWidth());
}

TEST(RegionTest, BeginsAsOneEmptyRectangle) {
    EXPECT_EQ(std::vector<Rect>{Rect(0, 0, 0, 0)}, rectsOf(Region()));
    EXPECT_TRUE(Region().isEmpty());
    EXPECT_TRUE(Region().isRect());
}

TEST(RegionTest, UnitesNeighboursIntoOneRectangle) {
    Region region(Rect(0, 0, 10, 10));
    region.orSelf(Rect(10, 0, 20, 10)).orSelf(Rect(0, 10, 20, 20));
    EXPECT_EQ(std::vector<Rect>{Rect(0, 0, 20, 20)}, rectsOf(region));
}

TEST(RegionTest, UnitesACrossIntoThreeBands) {
    const Region region = Region(Rect(10, 0, 20, 30)) | Region(Rect(0, 10, 30, 20));
    const std::vector<Rect> bands = {Rect(10, 0, 20, 10), Rect(0, 10, 30, 20),
                                     Rect(10, 20, 20, 30)};
    EXPECT_EQ(bands, rectsOf(region));
    EXPECT_EQ(Rect(0, 0, 30, 30), region.getBounds());
}

TEST(RegionTest, UnionCoversThePixelsOfBothAndNoOthers) {
    const std::vector<Rect> parts = {Rect(1, 1, 6, 4), Rect(4, 3, 9, 8), Rect(0, 7, 3, 9),
                                     Rect(8, 0, 10, 2)};
    Region region;
    for (const Rect& part : parts) region.orSelf(part);
    for (int y = -1; y <= 10; ++y) {
        for (int x = -1; x <= 10; ++x) {
            bool expected = false;
            for (const Rect& part : parts) expected |= covers(Region(part), x, y);
            EXPECT_EQ(expected, covers(region, x, y)) << x << "," << y;
        }
    }
}

TEST(RegionTest, StaysEverythingWhateverIsAdded) {
    Region region(Rect(0, 0, 4, 4));
    EXPECT_EQ(Region::INVALID_REGION, region | Region::INVALID_REGION);
    EXPECT_EQ(Region::INVALID_REGION, Region::INVALID_REGION | region);
}

TEST(RegionTest, AddingNothingChangesNothing) {
    Region region(Rect(1, 1, 4, 4));
    EXPECT_EQ(Region(Rect(1, 1, 4, 4)), region | Region());
    EXPECT_EQ(Region(Rect(1, 1, 4, 4)), Region() | region);
}

TEST(RegionTest, GrowsIntoItsBoundsWhenItHasTooManyParts) {
    Region region;
    for (int i = 0; i < static_cast<int>(Region::kMaxRects); ++i) {
        region.orSelf(Rect(2 * i, i, 2 * i + 1, i + 1));
    }
    EXPECT_EQ(Region::kMaxRects, region.size());
    region.orSelf(Rect(-10, 0, -9, 1));
    const int last = static_cast<int>(Region::kMaxRects) - 1;
    EXPECT_EQ(std::vector<Rect>{Rect(-10, 0, 2 * last + 1, last + 1)}, rectsOf(region));
}

TEST(RegionTest, TravelsAloneOrFollowedByItsBounds) {
    EXPECT_EQ(std::vector<Rect>{Rect(1, 2, 3, 4)}, Region(Rect(1, 2, 3, 4)).flatten());
    const Region two = Region(Rect(0, 0, 1, 1)) | Region(Rect(5, 0, 6, 1));
    const std::vector<Rect> rects = {Rect(0, 0, 1, 1), Rect(5, 0, 6, 1), Rect(0, 0, 6, 1)};
    EXPECT_EQ(rects, two.flatten());
    Region back;
    EXPECT_EQ(NO_ERROR, unflatten(&back, rects));
    EXPECT_EQ(two, back);
    EXPECT_EQ(Rect(0, 0, 6, 1), back.getBounds());
}

TEST(RegionTest, TakesNothingSpecifiedAndEverything) {
    Region region(Rect(1, 2, 3, 4));
    EXPECT_EQ(NO_ERROR, unflatten(&region, {Rect(0, 0, 0, 0)}));
    EXPECT_EQ(Region(), region);
    EXPECT_EQ(NO_ERROR, unflatten(&region, {Rect(0, 0, -1, -1)}));
    EXPECT_EQ(Region::INVALID_REGION, region);
}

TEST(RegionTest, RefusesNone) {
    expectRefused({});
}

TEST(RegionTest, RefusesRectanglesOfNegativeSize) {
    expectRefused({Rect(5, 5, 4, 6)});
    expectRefused({Rect(0, 0, 1, 1), Rect(5, 0, 4, 1), Rect(0, 0, 4, 1)});
}

TEST(RegionTest, RefusesOverlappingRectangles) {
    expectRefused({Rect(0, 0, 5, 5), Rect(4, 0, 9, 5), Rect(0, 0, 9, 5)});
    expectRefused({Rect(0, 0, 5, 5), Rect(0, 4, 5, 9), Rect(0, 0, 5, 9)});
}

TEST(RegionTest, RefusesRectanglesOutOfOrder) {
    expectRefused({Rect(5, 0, 6, 1), Rect(0, 0, 1, 1), Rect(0, 0, 6, 1)});
    expectRefused({Rect(0, 5, 1, 6), Rect(0, 0, 1, 1), Rect(0, 0, 1, 6)});
}

TEST(RegionTest, RefusesABandOfDifferentHeights) {
    expectRefused({Rect(0, 0, 1, 1), Rect(5, 0, 6, 2), Rect(0, 0, 6, 2)});
}

TEST(RegionTest, RefusesSeveralRectanglesWithoutTheirBounds) {
    expectRefused({Rect(0, 0, 1, 1), Rect(5, 0, 6, 1)});
    expectRefused({Rect(0, 0, 1, 1), Rect(0, 0, 1, 1)});
    expectRefused({Rect(0, 0, 1, 1), Rect(5, 0, 6, 1), Rect(0, 0, 6, 2)});
}

TEST(RegionTest, RefusesMoreRectanglesThanItEverHas) {
    std::vector<Rect> rects;
    const int count = static_cast<int>(Region::kMaxRects);
    for (int i = 0; i < count; ++i) rects.emplace_back(2 * i, 0, 2 * i + 1, 1);
    rects.emplace_back(0, 0, 2 * count - 1, 1);
    Region region;
    EXPECT_EQ(NO_ERROR, unflatten(&region, rects));
    rects.back() = Rect(2 * count, 0, 2 * count + 1, 1);
    rects.emplace_back(0, 0, 2 * count + 1, 1);
    expectRefused(rects);
}
