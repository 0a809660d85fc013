// SPDX-License-Identifier: Apache-2.0
// Graphic buffers: how they travel.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include "support/GraphicBuffers.h"

using android::BAD_VALUE;
using android::GraphicBuffer;
using android::NO_ERROR;
using android::NO_INIT;
using android::NO_MEMORY;
using android::sp;
using android::status_t;
using korvane::test::allocate;
using korvane::test::kCpu;

namespace {

constexpr int kNv12 = HAL_PIXEL_FORMAT_YCbCr_420_888;
constexpr int kRgba = HAL_PIXEL_FORMAT_RGBA_8888;

struct Flat {
    std::vector<uint32_t> words;
    std::vector<int> fds;
};

Flat flatten(const GraphicBuffer& buffer) {
    Flat flat = {std::vector<uint32_t>(buffer.getFlattenedSize() / 4),
                 std::vector<int>(buffer.getFdCount())};
    void* data = flat.words.data();
    size_t size = flat.words.size() * 4;
    int* fds = flat.fds.data();
    size_t count = flat.fds.size();
    EXPECT_EQ(NO_ERROR, buffer.flatten(data, size, fds, count));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(0u, count);
    return flat;
}

status_t unflatten(GraphicBuffer& buffer, const Flat& flat) {
    const void* data = flat.words.data();
    size_t size = flat.words.size() * 4;
    const int* fds = flat.fds.data();
    size_t count = flat.fds.size();
    return buffer.unflatten(data, size, fds, count);
}

}  // namespace

TEST(GraphicBufferFlattenTest, TravelsWithAllAttributes) {
    const sp<GraphicBuffer> buffer = allocate(64, 32, kNv12, kCpu | uint64_t{1} << 50);
    buffer->setGenerationNumber(7);
    const Flat flat = flatten(*buffer);
    const sp<GraphicBuffer> received = new GraphicBuffer();
    EXPECT_EQ(NO_INIT, received->initCheck());
    ASSERT_EQ(NO_ERROR, unflatten(*received, flat));
    EXPECT_EQ(NO_ERROR, received->initCheck());
    EXPECT_EQ(buffer->getId(), received->getId());
    EXPECT_EQ(7u, received->getGenerationNumber());
    EXPECT_EQ(kCpu | uint64_t{1} << 50, received->getUsage());
    EXPECT_EQ(buffer->getBounds(), received->getBounds());
    EXPECT_EQ(buffer->getStride(), received->getStride());
    EXPECT_EQ(kNv12, received->getPixelFormat());
    EXPECT_NE(buffer->handle->data[0], received->handle->data[0]);
}

TEST(GraphicBufferFlattenTest, WithoutAHandleIsEmpty) {
    const sp<GraphicBuffer> received = allocate(8, 8, kRgba);
    const sp<GraphicBuffer> empty = new GraphicBuffer();
    ASSERT_EQ(NO_ERROR, unflatten(*received, flatten(*empty)));
    EXPECT_EQ(nullptr, received->handle);
    EXPECT_EQ(android::Rect(0, 0), received->getBounds());
    void* address = this;
    EXPECT_NE(NO_ERROR, received->lock(kCpu, &address));
    EXPECT_EQ(this, address);
}

TEST(GraphicBufferFlattenTest, RefusesDataThatIsCutOff) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    const Flat whole = flatten(*buffer);
    for (size_t words = 0; words < whole.words.size(); ++words) {
        Flat cut = whole;
        cut.words.resize(words);
        const sp<GraphicBuffer> received = new GraphicBuffer();
        EXPECT_EQ(NO_MEMORY, unflatten(*received, cut)) << words;
    }
    Flat cut = whole;
    cut.fds.clear();
    const sp<GraphicBuffer> received = new GraphicBuffer();
    EXPECT_EQ(NO_MEMORY, unflatten(*received, cut));
}

TEST(GraphicBufferFlattenTest, RefusesDataThatIsNoBuffer) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    const auto check = [&](size_t word, uint32_t value) {
        Flat changed = flatten(*buffer);
        changed.words[word] = value;
        const sp<GraphicBuffer> received = new GraphicBuffer();
        const status_t status = unflatten(*received, changed);
        EXPECT_EQ(nullptr, received->handle);
        return status;
    };
    EXPECT_EQ(BAD_VALUE, check(0, 'GBFR'));
    EXPECT_EQ(BAD_VALUE, check(1, 9));
    EXPECT_EQ(BAD_VALUE, check(10, 1025));
    EXPECT_EQ(BAD_VALUE, check(10, UINT32_MAX));
    EXPECT_EQ(BAD_VALUE, check(11, UINT32_MAX));
    EXPECT_EQ(BAD_VALUE, check(11, 0));
}

TEST(GraphicBufferFlattenTest, NeedsRoomForAllOfIt) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    std::vector<uint32_t> words(buffer->getFlattenedSize() / 4);
    int fds[1] = {-1};
    const auto flattenInto = [&](size_t size, size_t count) {
        void* data = words.data();
        int* next = fds;
        return buffer->flatten(data, size, next, count);
    };
    EXPECT_EQ(NO_MEMORY, flattenInto(buffer->getFlattenedSize() - 1, 1));
    EXPECT_EQ(NO_MEMORY, flattenInto(buffer->getFlattenedSize(), 0));
    EXPECT_EQ(-1, fds[0]);
    EXPECT_EQ(NO_ERROR, flattenInto(buffer->getFlattenedSize(), 1));
    EXPECT_EQ(buffer->handle->data[0], fds[0]);
}

TEST(GraphicBufferFlattenTest, LeavesWhatComesAfterIt) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    Flat flat = flatten(*buffer);
    flat.words.push_back(77);
    flat.fds.push_back(88);
    const void* data = flat.words.data();
    size_t size = flat.words.size() * 4;
    const int* fds = flat.fds.data();
    size_t count = flat.fds.size();
    const sp<GraphicBuffer> received = new GraphicBuffer();
    ASSERT_EQ(NO_ERROR, received->unflatten(data, size, fds, count));
    EXPECT_EQ(4u, size);
    EXPECT_EQ(77u, *static_cast<const uint32_t*>(data));
    EXPECT_EQ(1u, count);
    EXPECT_EQ(88, *fds);
}
