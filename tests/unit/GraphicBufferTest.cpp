// SPDX-License-Identifier: Apache-2.0
// Graphic buffers: what is allocated, what is imported and what is refused.
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include "support/BufferHandles.h"
#include "support/GraphicBuffers.h"
#include "support/OpenDescriptors.h"

using android::BAD_VALUE;
using android::BufferLayout;
using android::GraphicBuffer;
using android::NO_ERROR;
using android::NO_INIT;
using android::NO_MEMORY;
using android::sp;
using android::status_t;
using android::base::unique_fd;
using korvane::test::allocate;
using korvane::test::cloneHandle;
using korvane::test::countOpenDescriptors;
using korvane::test::kCpu;
using korvane::test::layoutOf;
using korvane::test::makeMemory;
using korvane::test::OwnedHandle;
using korvane::test::withLayout;
using korvane::test::withMemory;

namespace {

constexpr int kNv12 = HAL_PIXEL_FORMAT_YCbCr_420_888;
constexpr int kRgba = HAL_PIXEL_FORMAT_RGBA_8888;
constexpr int kBlob = HAL_PIXEL_FORMAT_BLOB;

sp<GraphicBuffer> import(const native_handle_t* handle, const GraphicBuffer& like) {
    return new GraphicBuffer(handle, GraphicBuffer::CLONE_HANDLE, like.getWidth(), like.getHeight(),
                             like.getPixelFormat(), like.getLayerCount(), like.getUsage(),
                             like.getStride());
}

/** The result of importing a buffer's handle with a changed layout and fitting attributes. */
template <typename Change>
status_t importChanged(const GraphicBuffer& buffer, const Change& change) {
    BufferLayout layout = layoutOf(buffer.handle);
    change(layout);
    const OwnedHandle handle = withLayout(buffer.handle, layout);
    const sp<GraphicBuffer> imported = new GraphicBuffer(
            handle.get(), GraphicBuffer::CLONE_HANDLE, layout.width, layout.height,
            static_cast<int>(layout.format), layout.layers, kCpu, layout.stride);
    return imported->initCheck();
}

status_t importMemory(const GraphicBuffer& buffer, unique_fd memory) {
    EXPECT_NE(-1, memory.get());
    return import(withMemory(buffer.handle, std::move(memory)).get(), buffer)->initCheck();
}

uint8_t* lockBytes(GraphicBuffer& buffer) {
    void* address = nullptr;
    EXPECT_EQ(NO_ERROR, buffer.lock(kCpu, &address));
    return static_cast<uint8_t*>(address);
}

/** Of the buffers that allocate() makes. */
int countMappings() {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find("/memfd:test") != std::string::npos;
    }
    return count;
}

}  // namespace

TEST(GraphicBufferTest, HasTheAttributesAskedFor) {
    const sp<GraphicBuffer> buffer = allocate(1280, 720, kNv12);
    ASSERT_EQ(NO_ERROR, buffer->initCheck());
    EXPECT_EQ(1280u, buffer->getWidth());
    EXPECT_EQ(720u, buffer->getHeight());
    EXPECT_EQ(1280u, buffer->getStride());
    EXPECT_EQ(kNv12, buffer->getPixelFormat());
    EXPECT_EQ(1u, buffer->getLayerCount());
    EXPECT_EQ(kCpu, buffer->getUsage());
    EXPECT_EQ(static_cast<int>(kCpu), buffer->usage_deprecated);
    EXPECT_EQ(android::Rect(1280, 720), buffer->getBounds());
    EXPECT_EQ(0u, buffer->getGenerationNumber());
}

TEST(GraphicBufferTest, TellsHowMuchMemoryItHas) {
    EXPECT_EQ(64u * 32 * 4,
              sp<GraphicBuffer>(new GraphicBuffer(64, 32, HAL_PIXEL_FORMAT_RGBA_8888, 1, 0))
                      ->getMemorySize());
    EXPECT_EQ(0u, sp<GraphicBuffer>(new GraphicBuffer())->getMemorySize());
}

TEST(GraphicBufferTest, IsOneByOneWithoutASize) {
    EXPECT_EQ(android::Rect(1, 1), allocate(0, 5, kRgba)->getBounds());
    EXPECT_EQ(android::Rect(1, 1), allocate(5, 0, kRgba)->getBounds());
}

TEST(GraphicBufferTest, HasALayerAtLeast) {
    const sp<GraphicBuffer> buffer = new GraphicBuffer(4, 4, kRgba, 0, kCpu);
    EXPECT_EQ(NO_ERROR, buffer->initCheck());
    EXPECT_EQ(1u, buffer->getLayerCount());
}

TEST(GraphicBufferTest, DoesNotKeepTheReservedUsageBits) {
    EXPECT_EQ(kCpu, allocate(4, 4, kRgba, kCpu | 1u << 10 | 1u << 13)->getUsage());
}

TEST(GraphicBufferTest, RefusesSizesThatMakeNoSense) {
    EXPECT_EQ(BAD_VALUE, allocate(32769, 1, kRgba)->initCheck());
    EXPECT_EQ(BAD_VALUE, allocate(1, 32769, kNv12)->initCheck());
    EXPECT_EQ(BAD_VALUE, allocate(UINT32_MAX, UINT32_MAX, kNv12)->initCheck());
    EXPECT_EQ(BAD_VALUE, allocate(0x10000, 0x10000, kRgba)->initCheck());
    EXPECT_EQ(BAD_VALUE, allocate(32768, 32768, kRgba)->initCheck());
    EXPECT_EQ(BAD_VALUE, allocate((256u << 20) + 1, 1, kBlob)->initCheck());
    EXPECT_EQ(NO_ERROR, allocate(256u << 20, 1, kBlob)->initCheck());
    EXPECT_EQ(NO_ERROR, allocate(32768, 1, kNv12)->initCheck());
}

TEST(GraphicBufferTest, RefusesFormatsItDoesNotKnow) {
    for (int format :
         std::vector<int>{0, HAL_PIXEL_FORMAT_RAW16, HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED, -1}) {
        EXPECT_EQ(BAD_VALUE, allocate(4, 4, format)->initCheck()) << format;
    }
}

TEST(GraphicBufferTest, RefusesABlobOfSeveralRowsAndSeveralLayers) {
    EXPECT_EQ(BAD_VALUE, allocate(100, 2, kBlob)->initCheck());
    const sp<GraphicBuffer> layered = new GraphicBuffer(4, 4, kRgba, 2, kCpu);
    EXPECT_EQ(BAD_VALUE, layered->initCheck());
}

TEST(GraphicBufferTest, SaysSoWhenThereIsNoMemory) {
    // Also lets the sanitizer learn the type while it still has descriptors for that.
    EXPECT_EQ(NO_ERROR, allocate(4, 4, kRgba)->initCheck());
    std::vector<unique_fd> rest;
    for (;;) {
        unique_fd fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (fd.get() == -1) break;
        rest.push_back(std::move(fd));
    }
    EXPECT_EQ(NO_MEMORY, allocate(4, 4, kRgba)->initCheck());
}

TEST(GraphicBufferTest, HasMemoryThatCannotChangeItsSize) {
    const sp<GraphicBuffer> buffer = allocate(64, 32, kRgba);
    const int memory = buffer->handle->data[0];
    EXPECT_EQ(-1, ftruncate(memory, 0));
    EXPECT_EQ(-1, ftruncate(memory, 1 << 20));
    struct stat file;
    ASSERT_EQ(0, fstat(memory, &file));
    EXPECT_EQ(64 * 32 * 4, file.st_size);
}

TEST(GraphicBufferTest, KeepsNothingOpenOrMappedWhenItIsGone) {
    const int before = countOpenDescriptors();
    const int mappedBefore = countMappings();
    sp<GraphicBuffer> buffer = allocate(64, 32, kRgba);
    sp<GraphicBuffer> imported = import(buffer->handle, *buffer);
    EXPECT_EQ(before + 2, countOpenDescriptors());
    EXPECT_EQ(mappedBefore + 2, countMappings());
    buffer.clear();
    imported.clear();
    EXPECT_EQ(before, countOpenDescriptors());
    EXPECT_EQ(mappedBefore, countMappings());
}

TEST(GraphicBufferTest, HasAnIdOfItsOwn) {
    std::set<uint64_t> ids;
    for (int i = 0; i < 10; ++i) ids.insert(allocate(4, 4, kRgba)->getId());
    EXPECT_EQ(10u, ids.size());
    for (uint64_t id : ids) EXPECT_EQ(static_cast<uint64_t>(getpid()), id >> 32);
}

TEST(GraphicBufferTest, IsCountedThroughItsNativeHead) {
    sp<GraphicBuffer> buffer = allocate(4, 4, kRgba);
    ANativeWindowBuffer* const native = buffer->getNativeBuffer();
    EXPECT_EQ(buffer, GraphicBuffer::from(native));
    EXPECT_EQ(static_cast<int>(sizeof(ANativeWindowBuffer)), native->common.version);
    native->common.incRef(&native->common);
    buffer.clear();
    EXPECT_EQ(4, native->width);
    native->common.decRef(&native->common);
}

TEST(GraphicBufferTest, ServesRequestsForNoMoreThanItHas) {
    const sp<GraphicBuffer> buffer = allocate(64, 32, kNv12, 0x33);
    EXPECT_FALSE(buffer->needsReallocation(64, 32, kNv12, 1, 0x33));
    EXPECT_FALSE(buffer->needsReallocation(64, 32, kNv12, 1, 0x03));
    EXPECT_FALSE(buffer->needsReallocation(64, 32, kNv12, 1, 0));
    EXPECT_TRUE(buffer->needsReallocation(64, 32, kNv12, 1, 0x133));
    EXPECT_TRUE(buffer->needsReallocation(63, 32, kNv12, 1, 0x33));
    EXPECT_TRUE(buffer->needsReallocation(64, 31, kNv12, 1, 0x33));
    EXPECT_TRUE(buffer->needsReallocation(64, 32, kRgba, 1, 0x33));
    EXPECT_TRUE(buffer->needsReallocation(64, 32, kNv12, 2, 0x33));
    const sp<GraphicBuffer> secret = allocate(4, 4, kRgba, 0x33 | GraphicBuffer::USAGE_PROTECTED);
    EXPECT_TRUE(secret->needsReallocation(4, 4, kRgba, 1, 0x33));
}

TEST(GraphicBufferTest, SharesItsPixelsWithWhoeverImportsIt) {
    const sp<GraphicBuffer> buffer = allocate(64, 32, kRgba);
    const sp<GraphicBuffer> imported = import(buffer->handle, *buffer);
    ASSERT_EQ(NO_ERROR, imported->initCheck());
    lockBytes(*buffer)[64 * 32 * 4 - 1] = 0xa5;
    EXPECT_EQ(0xa5, lockBytes(*imported)[64 * 32 * 4 - 1]);
}

TEST(GraphicBufferTest, TakesHandlesAsItIsTold) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    const int before = countOpenDescriptors();
    const auto make = [&](const native_handle_t* handle, GraphicBuffer::HandleWrapMethod method) {
        const sp<GraphicBuffer> made =
                new GraphicBuffer(handle, method, 8, 8, kRgba, 1, kCpu, buffer->getStride());
        EXPECT_EQ(NO_ERROR, made->initCheck());
        EXPECT_NE(nullptr, lockBytes(*made));
    };
    OwnedHandle handle = cloneHandle(buffer->handle);
    make(handle.get(), GraphicBuffer::WRAP_HANDLE);
    make(handle.get(), GraphicBuffer::CLONE_HANDLE);
    EXPECT_EQ(before + 1, countOpenDescriptors());
    make(handle.release(), GraphicBuffer::TAKE_HANDLE);
    EXPECT_EQ(before, countOpenDescriptors());
    make(native_handle_clone(buffer->handle), GraphicBuffer::TAKE_UNREGISTERED_HANDLE);
    EXPECT_EQ(before, countOpenDescriptors());
}

TEST(GraphicBufferTest, LeavesAHandleThatItCannotImport) {
    const OwnedHandle handle(native_handle_create(0, 1));
    handle->data[0] = 0;
    const sp<GraphicBuffer> buffer = new GraphicBuffer(
            handle.get(), GraphicBuffer::TAKE_UNREGISTERED_HANDLE, 8, 8, kRgba, 1, kCpu, 8);
    EXPECT_EQ(BAD_VALUE, buffer->initCheck());
    EXPECT_EQ(1, handle->numInts);
}

TEST(GraphicBufferImportTest, RefusesWhatIsNoHandleOfABuffer) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    EXPECT_EQ(BAD_VALUE, import(nullptr, *buffer)->initCheck());
    OwnedHandle handle = cloneHandle(buffer->handle);
    handle->data[1] ^= 1;
    EXPECT_EQ(BAD_VALUE, import(handle.get(), *buffer)->initCheck());
    handle = cloneHandle(buffer->handle);
    handle->version = 0;
    EXPECT_EQ(BAD_VALUE, import(handle.get(), *buffer)->initCheck());
    handle->version = sizeof(native_handle_t);
    --handle->numInts;
    EXPECT_EQ(BAD_VALUE, import(handle.get(), *buffer)->initCheck());
    handle = cloneHandle(buffer->handle);
    handle->numFds = 0;
    handle->numInts = buffer->handle->numInts;
    EXPECT_EQ(BAD_VALUE, import(handle.get(), *buffer)->initCheck());
    handle->numFds = 1;
}

TEST(GraphicBufferImportTest, RefusesAttributesThatAreNotTheHandles) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    const auto check = [&](uint32_t width, uint32_t height, int format, uint32_t layers,
                           uint32_t stride) {
        const sp<GraphicBuffer> imported =
                new GraphicBuffer(buffer->handle, GraphicBuffer::CLONE_HANDLE, width, height,
                                  format, layers, kCpu, stride);
        return imported->initCheck();
    };
    EXPECT_EQ(NO_ERROR, check(8, 8, kRgba, 1, 8));
    EXPECT_EQ(BAD_VALUE, check(9, 8, kRgba, 1, 8));
    EXPECT_EQ(BAD_VALUE, check(8, 9, kRgba, 1, 8));
    EXPECT_EQ(BAD_VALUE, check(8, 8, HAL_PIXEL_FORMAT_RGBX_8888, 1, 8));
    EXPECT_EQ(BAD_VALUE, check(8, 8, kRgba, 2, 8));
    EXPECT_EQ(BAD_VALUE, check(8, 8, kRgba, 1, 9));
}

TEST(GraphicBufferImportTest, RefusesALayoutBeyondItsMemory) {
    const sp<GraphicBuffer> rgba = allocate(8, 8, kRgba);
    EXPECT_EQ(NO_ERROR, importChanged(*rgba, [](BufferLayout&) {}));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { ++l.height; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { ++l.stride; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { --l.size; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { --l.stride; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { l.width = 0; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { l.height = 0; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { l.stride = UINT32_MAX; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { l.size += 4096; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { l.size = UINT32_MAX; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { l.format = kNv12; }));
    EXPECT_EQ(BAD_VALUE, importChanged(*rgba, [](BufferLayout& l) { l.format = 0x7777; }));
}

TEST(GraphicBufferImportTest, RefusesChromaPlanesBeyondTheMemory) {
    const sp<GraphicBuffer> nv12 = allocate(64, 32, kNv12);
    const auto check = [&](auto change) { return importChanged(*nv12, change); };
    EXPECT_EQ(NO_ERROR, check([](BufferLayout&) {}));
    EXPECT_EQ(NO_ERROR, check([](BufferLayout& l) { std::swap(l.cbOffset, l.crOffset); }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { ++l.cbOffset, ++l.crOffset; }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { l.crOffset = UINT32_MAX; }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { l.cbOffset = 0; }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { ++l.chromaStride; }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { --l.chromaStride; }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { l.chromaStep = 0; }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { l.chromaStep = 3; }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { l.chromaStep = UINT32_MAX; }));
    EXPECT_EQ(BAD_VALUE, check([](BufferLayout& l) { l.chromaStride = UINT32_MAX; }));
}

TEST(GraphicBufferImportTest, RefusesMemoryThatCouldFault) {
    const sp<GraphicBuffer> buffer = allocate(64, 64, kRgba);
    const uint64_t size = layoutOf(buffer->handle).size;
    EXPECT_EQ(NO_ERROR, importMemory(*buffer, makeMemory(size, F_SEAL_SHRINK)));
    EXPECT_EQ(NO_ERROR, importMemory(*buffer, makeMemory(size + 4096, F_SEAL_SHRINK)));
    EXPECT_EQ(BAD_VALUE, importMemory(*buffer, makeMemory(size, 0)));
    EXPECT_EQ(BAD_VALUE, importMemory(*buffer, makeMemory(size, F_SEAL_GROW)));
    EXPECT_EQ(BAD_VALUE, importMemory(*buffer, makeMemory(size - 1, F_SEAL_SHRINK)));
    EXPECT_EQ(BAD_VALUE, importMemory(*buffer, makeMemory(0, F_SEAL_SHRINK)));
    EXPECT_EQ(BAD_VALUE, importMemory(*buffer, unique_fd(open("/dev/zero", O_RDWR | O_CLOEXEC))));
}

TEST(GraphicBufferImportTest, RefusesMoreMemoryThanABufferEverHas) {
    const sp<GraphicBuffer> buffer = allocate(100, 1, kBlob);
    BufferLayout layout = layoutOf(buffer->handle);
    for (uint32_t size : {256u << 20, (256u << 20) + 1}) {
        layout.size = size;
        const OwnedHandle handle = withMemory(withLayout(buffer->handle, layout).get(),
                                              makeMemory(size, F_SEAL_SHRINK));
        EXPECT_EQ(size > 256u << 20 ? BAD_VALUE : NO_ERROR,
                  import(handle.get(), *buffer)->initCheck());
    }
}

TEST(GraphicBufferImportTest, CannotLockWhatItRefused) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    const sp<GraphicBuffer> refused =
            new GraphicBuffer(buffer->handle, GraphicBuffer::CLONE_HANDLE, 9, 8, kRgba, 1, kCpu, 8);
    void* address = nullptr;
    EXPECT_EQ(NO_INIT, refused->lock(kCpu, &address));
    EXPECT_EQ(nullptr, address);
}

TEST(GraphicBufferImportTest, RefusesMemoryThatItMayNotWrite) {
    const sp<GraphicBuffer> buffer = allocate(64, 64, kRgba);
    const uint64_t size = layoutOf(buffer->handle).size;
    EXPECT_EQ(BAD_VALUE, importMemory(*buffer, makeMemory(size, F_SEAL_SHRINK | F_SEAL_WRITE)));
    const unique_fd memory = makeMemory(size, F_SEAL_SHRINK);
    const std::string path = "/proc/self/fd/" + std::to_string(memory.get());
    EXPECT_EQ(BAD_VALUE,
              importMemory(*buffer, unique_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC))));
}

TEST(GraphicBufferImportTest, RefusesMemoryOfHugePages) {
    const sp<GraphicBuffer> buffer = allocate(64, 64, kRgba);
    unique_fd huge = makeMemory(2u << 20, F_SEAL_SHRINK, MFD_HUGETLB);
    if (huge.get() == -1) GTEST_SKIP() << "the kernel has no huge pages";
    EXPECT_EQ(BAD_VALUE, importMemory(*buffer, std::move(huge)));
}

TEST(GraphicBufferImportTest, RefusalKeepsNothingOpen) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, kRgba);
    const int before = countOpenDescriptors();
    EXPECT_EQ(BAD_VALUE, importChanged(*buffer, [](BufferLayout& l) { ++l.height; }));
    EXPECT_EQ(BAD_VALUE, importMemory(*buffer, makeMemory(0, F_SEAL_SHRINK)));
    EXPECT_EQ(before, countOpenDescriptors());
}
