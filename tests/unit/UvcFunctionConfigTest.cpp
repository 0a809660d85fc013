// SPDX-License-Identifier: Apache-2.0
#include "uvc/UvcFunctionConfig.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <dirent.h>
#include <linux/capability.h>
#include <linux/videodev2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/PrivateFiles.h"
#include "support/UvcFunctionTree.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using test::LogLine;
using test::LogRecorder;
using test::PrivateFiles;
using test::UvcFunctionTree;
using Intervals = std::vector<uint32_t>;

constexpr auto* kUncompressed = UvcFunctionTree::kUncompressed;
constexpr auto* kMjpeg = UvcFunctionTree::kMjpeg;

// Root opens every folder; while this lives, it has to keep to the permissions.
class ObeyPermissions {
  public:
    ObeyPermissions() {
        syscall(SYS_capget, &mHeader, mSaved);
        __user_cap_data_struct reduced[2] = {mSaved[0], mSaved[1]};
        reduced[0].effective &= ~(1u << CAP_DAC_OVERRIDE | 1u << CAP_DAC_READ_SEARCH);
        syscall(SYS_capset, &mHeader, reduced);
    }
    ~ObeyPermissions() { syscall(SYS_capset, &mHeader, mSaved); }

  private:
    __user_cap_header_struct mHeader = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct mSaved[2] = {};
};

// The folders in path in the order in which the system returns them, which is the system's choice.
std::vector<std::string> foldersInOrder(const std::string& path) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
    while (const dirent* entry = readdir(directory.get())) {
        if (entry->d_type == DT_DIR && entry->d_name[0] != '.') names.emplace_back(entry->d_name);
    }
    return names;
}

class UvcFunctionConfigTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
        mTree = std::make_unique<UvcFunctionTree>(mFiles);
    }

    std::vector<uvc_function_config_format> read() {
        return readFunctionFormats(UvcFunctionTree::path());
    }

    // The format folders that a test doesn't care for would each give a line.
    std::vector<LogLine> linesBesides(const std::string& ignored) {
        std::vector<LogLine> lines;
        for (const LogLine& line : mLog.lines()) {
            if (line.message.find(ignored) == std::string::npos) lines.push_back(line);
        }
        return lines;
    }

    // The format's first frame, whose other attributes are good.
    std::string frameAttribute(const std::string& name) {
        return std::string("streaming/") + kMjpeg + "/f1/" + name;
    }

    PrivateFiles mFiles;
    LogRecorder mLog;
    std::unique_ptr<UvcFunctionTree> mTree;
};

LogLine error(const std::string& message) {
    return {ANDROID_LOG_ERROR, "UVC-Config", message};
}

TEST_F(UvcFunctionConfigTest, ListsUncompressedBeforeMjpeg) {
    mTree->addMjpeg();
    mTree->addFrame(kMjpeg, "f1", 1920, 1080, {166666});
    mTree->addUncompressed("YUY2");
    mTree->addFrame(kUncompressed, "f1", 640, 480, {333333, 666666});

    const auto formats = read();
    ASSERT_EQ(2u, formats.size());
    EXPECT_EQ(V4L2_PIX_FMT_YUYV, formats[0].fourcc);
    EXPECT_EQ(2.0f, formats[0].bytesPerPixel);
    ASSERT_EQ(1u, formats[0].frames.size());
    EXPECT_EQ(640u, formats[0].frames[0].width);
    EXPECT_EQ(480u, formats[0].frames[0].height);
    EXPECT_EQ((Intervals{333333, 666666}), formats[0].frames[0].intervals);
    EXPECT_EQ(V4L2_PIX_FMT_MJPEG, formats[1].fourcc);
    EXPECT_EQ(1.0f, formats[1].bytesPerPixel);
    ASSERT_EQ(1u, formats[1].frames.size());
    EXPECT_EQ(1920u, formats[1].frames[0].width);
    EXPECT_EQ(1080u, formats[1].frames[0].height);
    EXPECT_EQ(Intervals{166666}, formats[1].frames[0].intervals);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(UvcFunctionConfigTest, ListsMjpegFirstWhenItIsAlone) {
    mTree->addMjpeg();
    mTree->addFrame(kMjpeg, "f1", 640, 480);
    const auto formats = read();
    ASSERT_EQ(1u, formats.size());
    EXPECT_EQ(V4L2_PIX_FMT_MJPEG, formats[0].fourcc);
    EXPECT_EQ((std::vector<LogLine>{error("opendir (" + UvcFunctionTree::formatPath(kUncompressed) +
                                          ") returned null: No such file or directory")}),
              mLog.lines());
}

TEST_F(UvcFunctionConfigTest, LogsEveryFormatFolderThatIsMissing) {
    EXPECT_TRUE(read().empty());
    EXPECT_EQ((std::vector<LogLine>{error("opendir (" + UvcFunctionTree::formatPath(kUncompressed) +
                                          ") returned null: No such file or directory"),
                                    error("opendir (" + UvcFunctionTree::formatPath(kMjpeg) +
                                          ") returned null: No such file or directory")}),
              mLog.lines());
}

TEST_F(UvcFunctionConfigTest, LogsAFormatFolderThatIsNone) {
    mTree->set(std::string("streaming/") + kMjpeg, "a file");
    EXPECT_TRUE(read().empty());
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "UVC-Config",
                         "opendir (" + UvcFunctionTree::formatPath(kMjpeg) +
                                 ") returned null: Not a directory"));
}

// "." and ".." are folders among the format's like any other: what makes a frame there is a frame.
TEST_F(UvcFunctionConfigTest, LooksIntoTheFormatsOwnFolderForAFrame) {
    const std::string folder = std::string("streaming/") + kMjpeg;
    mTree->set(folder + "/wWidth", "320\n");
    mTree->set(folder + "/wHeight", "240\n");
    mTree->set(folder + "/dwFrameInterval", "333333\n");
    const auto formats = read();
    ASSERT_EQ(1u, formats.size());
    ASSERT_EQ(1u, formats[0].frames.size());
    EXPECT_EQ(320u, formats[0].frames[0].width);
}

TEST_F(UvcFunctionConfigTest, LogsThatTheFolderAboveTheFormatsCannotBeOpened) {
    mTree->addFrame(kMjpeg, "f1", 640, 480);
    const std::string above = UvcFunctionTree::path() + "/streaming/mjpeg";
    ASSERT_EQ(0, chmod(above.c_str(), 0111));
    std::vector<uvc_function_config_format> formats;
    {
        const ObeyPermissions obey;
        formats = read();
    }
    ASSERT_EQ(1u, formats.size());
    EXPECT_EQ(1u, formats[0].frames.size());
    EXPECT_EQ(std::vector<LogLine>{error("opendir returned null: Permission denied")},
              linesBesides("uncompressed"));
}

TEST_F(UvcFunctionConfigTest, IgnoresFormatFoldersOfOtherNames) {
    mTree->addFrame("uncompressed/nv12", "f1", 640, 480);
    mTree->addFrame("mjpeg/m2", "f1", 640, 480);
    EXPECT_TRUE(read().empty());
}

TEST_F(UvcFunctionConfigTest, LeavesOutFormatsWithoutFrames) {
    mTree->addUncompressed("NV12");
    mTree->addMjpeg();
    EXPECT_TRUE(read().empty());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(UvcFunctionConfigTest, ReadsNoAttributesOfAnUncompressedFormatWithoutFrames) {
    mTree->set(std::string("streaming/") + kUncompressed + "/bBitsPerPixel", "none");
    mTree->addMjpeg();
    EXPECT_NO_THROW(read());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(UvcFunctionConfigTest, ReadsNoAttributesOfMjpegItself) {
    mTree->set(std::string("streaming/") + kMjpeg + "/bBitsPerPixel", "none");
    mTree->set(std::string("streaming/") + kMjpeg + "/guidFormat", "none");
    mTree->addFrame(kMjpeg, "f1", 640, 480);
    const auto formats = read();
    ASSERT_EQ(1u, formats.size());
    EXPECT_EQ(1.0f, formats[0].bytesPerPixel);
}

TEST_F(UvcFunctionConfigTest, DividesBitsPerPixelByEight) {
    mTree->addUncompressed("NV12");
    mTree->addFrame(kUncompressed, "f1", 640, 480);
    EXPECT_EQ(1.5f, read().at(0).bytesPerPixel);
    mTree->set(std::string("streaming/") + kUncompressed + "/bBitsPerPixel", "16\n");
    EXPECT_EQ(2.0f, read().at(0).bytesPerPixel);
    mTree->set(std::string("streaming/") + kUncompressed + "/bBitsPerPixel", "1");
    EXPECT_EQ(0.125f, read().at(0).bytesPerPixel);
}

TEST_F(UvcFunctionConfigTest, ThrowsOnBitsPerPixelThatAreNoNumber) {
    mTree->addUncompressed("NV12");
    mTree->addFrame(kUncompressed, "f1", 640, 480);
    mTree->remove(std::string("streaming/") + kUncompressed + "/bBitsPerPixel");
    EXPECT_THROW(read(), std::invalid_argument);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "UVC-Config",
                         UvcFunctionTree::formatPath(kUncompressed) +
                                 "/bBitsPerPixel: no usable number in \"\" (No such file or "
                                 "directory), cannot go on"));
}

TEST_F(UvcFunctionConfigTest, ReadsBitsPerPixelBeforeTheGuid) {
    mTree->addUncompressed("I420");
    mTree->addFrame(kUncompressed, "f1", 640, 480);
    mTree->set(std::string("streaming/") + kUncompressed + "/bBitsPerPixel", "none");
    EXPECT_THROW(read(), std::invalid_argument);
    EXPECT_EQ(1u, mLog.lines().size());
}

// --- The GUID ---

class GuidTest : public UvcFunctionConfigTest {
  protected:
    // The code that the function's uncompressed format gets; MJPEG's, which comes after it, when
    // it is left out.
    uint32_t fourccOf(const std::string& guid) {
        mTree->addUncompressed("NV12");
        mTree->addFrame(kUncompressed, "f1", 640, 480);
        mTree->addMjpeg();
        mTree->addFrame(kMjpeg, "f1", 640, 480);
        mTree->set(std::string("streaming/") + kUncompressed + "/guidFormat", guid);
        const auto formats = read();
        EXPECT_EQ(V4L2_PIX_FMT_MJPEG, formats.back().fourcc);
        return formats.front().fourcc;
    }
};

TEST_F(GuidTest, KnowsTwoFormats) {
    EXPECT_EQ(0x3231564eu, fourccOf(UvcFunctionTree::guid("NV12")));
    EXPECT_EQ(0x56595559u, fourccOf(UvcFunctionTree::guid("YUY2")));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(GuidTest, FindsTheCodeAnywhere) {
    EXPECT_EQ(V4L2_PIX_FMT_YUYV, fourccOf(std::string("\0\0\xff", 3) + "YUY2"));
    EXPECT_EQ(V4L2_PIX_FMT_NV12, fourccOf(std::string("NV1\0NV12\n", 9)));
}

TEST_F(GuidTest, PrefersNv12) {
    EXPECT_EQ(V4L2_PIX_FMT_NV12, fourccOf("YUY2NV12"));
}

TEST_F(GuidTest, LogsAnUnknownOneOnceAsTextAndLeavesTheFormatOut) {
    EXPECT_EQ(V4L2_PIX_FMT_MJPEG, fourccOf(UvcFunctionTree::guid("I420")));
    EXPECT_EQ(std::vector<LogLine>{error("Unknown format found I420")}, mLog.lines());
}

TEST_F(GuidTest, TakesAnythingShorterThanACodeForUnknown) {
    EXPECT_EQ(V4L2_PIX_FMT_MJPEG, fourccOf("NV1"));
    EXPECT_EQ(V4L2_PIX_FMT_MJPEG, fourccOf(""));
    EXPECT_EQ((std::vector<LogLine>{error("Unknown format found NV1"),
                                    error("Unknown format found ")}),
              mLog.lines());
}

// --- Frames ---

TEST_F(UvcFunctionConfigTest, OrdersFramesByPixelCountAndEqualOnesAsTheyWereRead) {
    mTree->addMjpeg();
    for (const char* name : {"a", "b", "c", "d"}) {
        mFiles.makeDirectory(UvcFunctionTree::framePath(kMjpeg, name));
    }
    const auto order = foldersInOrder(UvcFunctionTree::formatPath(kMjpeg));
    ASSERT_EQ(4u, order.size());
    mTree->addFrame(kMjpeg, order[0], 1280, 720, {1});
    mTree->addFrame(kMjpeg, order[1], 640, 480, {2});
    mTree->addFrame(kMjpeg, order[2], 1920, 1080, {3});
    mTree->addFrame(kMjpeg, order[3], 640, 480, {4});

    const auto frames = read().at(0).frames;
    ASSERT_EQ(4u, frames.size());
    EXPECT_EQ(Intervals{2}, frames[0].intervals);
    EXPECT_EQ(Intervals{4}, frames[1].intervals);
    EXPECT_EQ(Intervals{1}, frames[2].intervals);
    EXPECT_EQ(Intervals{3}, frames[3].intervals);
}

TEST_F(UvcFunctionConfigTest, ComparesPixelCountsNotWidths) {
    mTree->addFrame(kMjpeg, "wide", 2000, 10);
    mTree->addFrame(kMjpeg, "tall", 100, 1000);
    mTree->addFrame(kMjpeg, "same", 1000, 100);
    const auto frames = read().at(0).frames;
    ASSERT_EQ(3u, frames.size());
    EXPECT_EQ(2000u, frames[0].width);
}

TEST_F(UvcFunctionConfigTest, ComparesPixelCountsAsUnsigned) {
    mTree->addFrame(kMjpeg, "huge", 60000, 60000);
    mTree->addFrame(kMjpeg, "small", 640, 480);
    const auto frames = read().at(0).frames;
    ASSERT_EQ(2u, frames.size());
    EXPECT_EQ(640u, frames[0].width);
    EXPECT_EQ(60000u, frames[1].width);
}

TEST_F(UvcFunctionConfigTest, DropsFramesWhosePixelCountIsZeroIn32Bits) {
    mTree->addFrame(kMjpeg, "f1", 65536, 65536);
    mTree->addFrame(kMjpeg, "f2", 640, 480);
    EXPECT_EQ(1u, read().at(0).frames.size());
}

TEST_F(UvcFunctionConfigTest, DropsFramesWithoutASizeOrAnIntervalSilently) {
    mTree->addFrame(kMjpeg, "flat", 640, 0);
    mTree->addFrame(kMjpeg, "thin", 0, 480);
    mTree->addFrame(kMjpeg, "still", 640, 480, {});
    mTree->addFrame(kMjpeg, "nowidth", 640, 480);
    mTree->remove(std::string("streaming/") + kMjpeg + "/nowidth/wWidth");
    mTree->addFrame(kMjpeg, "noheight", 640, 480);
    mTree->remove(std::string("streaming/") + kMjpeg + "/noheight/wHeight");
    mTree->addFrame(kMjpeg, "nointerval", 640, 480);
    mTree->remove(std::string("streaming/") + kMjpeg + "/nointerval/dwFrameInterval");
    mFiles.makeDirectory(UvcFunctionTree::framePath(kMjpeg, "nothing"));
    mTree->addFrame(kMjpeg, "good", 320, 240);

    const auto frames = read().at(0).frames;
    ASSERT_EQ(1u, frames.size());
    EXPECT_EQ(320u, frames[0].width);
    EXPECT_TRUE(linesBesides("opendir (").empty());
}

TEST_F(UvcFunctionConfigTest, TakesNoFrameFromTheFormatFolderItselfOrTheOneAbove) {
    for (const std::string& folder : {std::string("mjpeg"), std::string(kMjpeg)}) {
        mTree->set("streaming/" + folder + "/wHeight", "480\n");
        mTree->set("streaming/" + folder + "/dwFrameInterval", "333333\n");
    }
    EXPECT_TRUE(read().empty());
}

TEST_F(UvcFunctionConfigTest, SkipsWhatIsNotAFolder) {
    mTree->addFrame(kMjpeg, "f1", 640, 480);
    mTree->addFrame("other/o", "f2", 320, 240);
    const std::string link = UvcFunctionTree::framePath(kMjpeg, "link");
    ASSERT_EQ(0, symlink(UvcFunctionTree::framePath("other/o", "f2").c_str(), link.c_str()));
    mTree->set(std::string("streaming/") + kMjpeg + "/file", "");
    const auto frames = read().at(0).frames;
    ASSERT_EQ(1u, frames.size());
    EXPECT_EQ(640u, frames[0].width);
    EXPECT_TRUE(linesBesides("opendir (").empty());
}

TEST_F(UvcFunctionConfigTest, LogsAFrameFolderThatCannotBeOpenedAndGoesOn) {
    mTree->addMjpeg();
    mTree->addFrame(kMjpeg, "f1", 320, 240);
    mTree->addFrame(kMjpeg, "f2", 640, 480);
    mTree->addFrame(kMjpeg, "f3", 1280, 720);
    // The one in the middle, so that going on shows, whatever the direction.
    const auto closed = foldersInOrder(UvcFunctionTree::formatPath(kMjpeg)).at(1);
    const std::string path = UvcFunctionTree::framePath(kMjpeg, closed);
    ASSERT_EQ(0, chmod(path.c_str(), 0));

    const ObeyPermissions guard;
    EXPECT_EQ(2u, read().at(0).frames.size());
    EXPECT_EQ(std::vector<LogLine>{error("opendir returned null: Permission denied")},
              linesBesides("opendir ("));
}

TEST_F(UvcFunctionConfigTest, ReadsOnlyAttributesOfTheExactName) {
    mTree->addFrame(kMjpeg, "f1", 640, 480, {333333});
    mTree->set(frameAttribute("wWidths"), "1\n");
    mTree->set(frameAttribute("wheight"), "2\n");
    mTree->set(frameAttribute("dwDefaultFrameInterval"), "3\n");
    mTree->set(frameAttribute("dwFrameIntervals"), "none");
    const auto frames = read().at(0).frames;
    ASSERT_EQ(1u, frames.size());
    EXPECT_EQ(640u, frames[0].width);
    EXPECT_EQ(480u, frames[0].height);
    EXPECT_EQ(Intervals{333333}, frames[0].intervals);
}

TEST_F(UvcFunctionConfigTest, KeepsIntervalsInTheOrderOfTheFile) {
    mTree->addFrame(kMjpeg, "f1", 640, 480, {666666, 333333, 500000});
    EXPECT_EQ((Intervals{666666, 333333, 500000}), read().at(0).frames.at(0).intervals);
}

TEST_F(UvcFunctionConfigTest, ThrowsOnFrameAttributesThatAreNoNumber) {
    for (const char* name : {"wWidth", "wHeight", "dwFrameInterval"}) {
        mTree->addFrame(kMjpeg, "f1", 640, 480);
        mTree->set(frameAttribute(name), "big\n");
        mLog.clear();
        EXPECT_THROW(read(), std::invalid_argument) << name;
        const auto lines = linesBesides("opendir (");
        ASSERT_EQ(1u, lines.size()) << name;
        EXPECT_EQ(ANDROID_LOG_ERROR, lines[0].priority);
        EXPECT_NE(std::string::npos,
                  lines[0].message.find(UvcFunctionTree::framePath(kMjpeg, "f1") + "/" + name))
                << lines[0].message;
    }
}

TEST_F(UvcFunctionConfigTest, ThrowsOnAnEmptyLineBetweenIntervals) {
    mTree->addFrame(kMjpeg, "f1", 640, 480);
    mTree->set(frameAttribute("dwFrameInterval"), "333333\n\n666666\n");
    EXPECT_THROW(read(), std::invalid_argument);
}

TEST_F(UvcFunctionConfigTest, ClosesEveryFolder) {
    mTree->addUncompressed("NV12");
    mTree->addFrame(kUncompressed, "f1", 640, 480);
    mTree->addFrame(kMjpeg, "f1", 640, 480);
    const int before = dup(0);
    close(before);
    read();
    mTree->set(frameAttribute("wWidth"), "");
    EXPECT_THROW(read(), std::invalid_argument);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(before, after);
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
