// SPDX-License-Identifier: Apache-2.0
// What debug() answers: the status as a page and as JSON, the frames' dump, nothing to whom it
// can't.

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <rapidjson/document.h>

#include "DebugCommand.h"
#include "support/DaemonWorld.h"
#include "support/DescriptorZero.h"
#include "support/OpenDescriptors.h"
#include "support/StubProducer.h"
#include "support/SurfaceCamera.h"

namespace korvane::test {
namespace {

using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kNv12[] = R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                         R"("v4l2-format":"NV12","fps":30}})";

class MemoryFile {
  public:
    MemoryFile() : mFd(memfd_create("answer", MFD_CLOEXEC)) {}
    ~MemoryFile() { close(mFd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    int fd() const { return mFd; }
    std::string bytes() const {
        std::string text(2000000, '\0');
        const ssize_t size = pread(mFd, text.data(), text.size(), 0);
        text.resize(size < 0 ? 0 : size);
        return text;
    }

  private:
    const int mFd;
};

class CameraDesktopDebugTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
        mWorld.start();
        mWorld.node.waitUntilIdle();  // the poll thread has the node, and all its descriptors
    }

    // What debug() writes to the first of these descriptors.
    std::string debug(const hidl_vec<hidl_string>& options, int secondFd = -1) {
        const MemoryFile answer;
        const int count = secondFd < 0 ? 1 : 2;
        native_handle_t* handle = native_handle_create(count, 0);
        handle->data[0] = answer.fd();
        if (count == 2) handle->data[1] = secondFd;
        EXPECT_TRUE(mWorld.service->debug(hidl_handle(handle), options).isOk());
        native_handle_delete(handle);
        return answer.bytes();
    }

    rapidjson::Document status() {
        rapidjson::Document document;
        document.Parse(debug({"--json"}).c_str());
        EXPECT_TRUE(document.IsObject());
        return document;
    }

    void stream() {
        mWorld.commit(1, 1);
        mWorld.startStream();
        ASSERT_EQ("", mWorld.command(kNv12));
        mCamera.emplace(mWorld.surface());
    }

    // The other descriptors that the process has for a file.
    static std::vector<int> othersFor(const MemoryFile& file) {
        struct stat wanted = {};
        struct stat found = {};
        EXPECT_EQ(0, fstat(file.fd(), &wanted));
        std::vector<int> others;
        for (int fd = 0; fd < 4096; ++fd) {
            if (fd == file.fd() || fstat(fd, &found) != 0) continue;
            if (found.st_ino == wanted.st_ino && found.st_dev == wanted.st_dev) {
                others.push_back(fd);
            }
        }
        return others;
    }

    void queueFrame() { mCamera->queue(mCamera->dequeue()); }

    DaemonWorld mWorld;
    std::optional<SurfaceCamera> mCamera;
};

// --- The status ---

TEST_F(CameraDesktopDebugTest, ReadyWithItsNodeAndNobodyButTheController) {
    const rapidjson::Document idle = status();
    EXPECT_EQ(getpid(), idle["pid"].GetInt());
    EXPECT_GE(idle["seconds"].GetDouble(), 0);
    EXPECT_STREQ("ready", idle["node"]["state"].GetString());
    EXPECT_STREQ("/dev/video0", idle["node"]["path"].GetString());
    EXPECT_EQ(640u, idle["mode"]["width"].GetUint());
    EXPECT_TRUE(idle["surface"].IsNull());
    EXPECT_EQ(0u, idle["buffers"].Size());
    ASSERT_GE(idle["clients"].Size(), 1u);
    EXPECT_FALSE(idle["stream"].HasMember("seconds"));
}

TEST_F(CameraDesktopDebugTest, AStreamWithItsSurfaceItsBuffersAndItsFrames) {
    stream();
    queueFrame();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QBUF", 1));
    const rapidjson::Document streaming = status();
    EXPECT_STREQ("streaming", streaming["node"]["state"].GetString());
    EXPECT_STREQ("YUYV", streaming["mode"]["format"].GetString());
    EXPECT_EQ(333333u, streaming["mode"]["interval"].GetUint());
    const rapidjson::Value& surface = streaming["surface"];
    EXPECT_STREQ("NV12", surface["format"].GetString());
    EXPECT_EQ(640u, surface["width"].GetUint());
    EXPECT_EQ(480u, surface["height"].GetUint());
    EXPECT_EQ(3u, surface["usage"].GetUint());
    EXPECT_EQ(30.0, surface["fps"].GetDouble());
    EXPECT_EQ(getpid(), surface["renderer"].GetInt());
    EXPECT_FALSE(surface["suspended"].GetBool());
    ASSERT_EQ(4u, streaming["buffers"].Size());
    EXPECT_STREQ("driver", streaming["buffers"][0].GetString());
    EXPECT_STREQ("service", streaming["buffers"][1].GetString());
    for (const char* since : {"stream", "start"}) {
        EXPECT_EQ(1u, streaming[since]["drawn"].GetUint64()) << since;
        EXPECT_EQ(1u, streaming[since]["sent"].GetUint64()) << since;
        EXPECT_EQ(0u, streaming[since]["returned"].GetUint64()) << since;
    }
    uint64_t timed = 0;
    for (const auto& n : streaming["latency"]["arrival-to-queueing"]["stream"].GetArray()) {
        timed += n.GetUint64();
    }
    EXPECT_EQ(1u, timed);
}

TEST_F(CameraDesktopDebugTest, ClientsByKindWithTheirProcess) {
    mWorld.addClient(1, "");
    bool found = false;
    const rapidjson::Document now = status();
    for (const auto& client : now["clients"].GetArray()) {
        if (client["kind"].GetUint() != 1) continue;
        found = true;
        EXPECT_STREQ("launcher", client["name"].GetString());
        EXPECT_EQ(getpid(), client["pid"].GetInt());
    }
    EXPECT_TRUE(found);

    const auto nobody = static_cast<hardware::camera::desktop::V2_0::ClientType>(1);
    mWorld.service->registerCallback(nobody, nullptr);
    const rapidjson::Document then = status();
    for (const auto& client : then["clients"].GetArray()) EXPECT_NE(1u, client["kind"].GetUint());
}

TEST_F(CameraDesktopDebugTest, ADeadClientIsGoneAndItsDeathAnEvent) {
    mWorld.addClient(2, "")->die();
    const rapidjson::Document now = status();
    for (const auto& client : now["clients"].GetArray()) EXPECT_NE(2u, client["kind"].GetUint());
    const rapidjson::Value& last = now["events"][now["events"].Size() - 1];
    EXPECT_STREQ("client-died", last["what"].GetString());
    EXPECT_EQ(2, last["detail"].GetInt());
}

TEST_F(CameraDesktopDebugTest, ACommandThatFailsOnItsWayIsCountedAndAnEvent) {
    using ::android::hardware::Status;
    constexpr auto kKind = static_cast<hardware::camera::desktop::V2_0::ClientType>(2);
    mWorld.addClient(2, "")->failCommands(Status::fromStatusT(::android::DEAD_OBJECT));
    mWorld.service->sendCommand(kKind, "command", [](const hidl_string&) {});
    const rapidjson::Document now = status();
    EXPECT_EQ(1u, now["start"]["client-calls-failed"].GetUint64());
    const rapidjson::Value& last = now["events"][now["events"].Size() - 1];
    EXPECT_STREQ("client-failed", last["what"].GetString());
    EXPECT_EQ(2, last["detail"].GetInt());
}

TEST_F(CameraDesktopDebugTest, AnEventThatIsGivenUpIsCountedAndAnEvent) {
    std::promise<void> answer;
    mWorld.addClient(3, [answered = answer.get_future().share()](const std::string&) {
        answered.wait();
        return "late";
    });
    mWorld.waits.stepOverNextFuture();
    mWorld.node.sendEvent(UVC_EVENT_STREAMON);
    ASSERT_TRUE(
            mWorld.waitLog(ANDROID_LOG_ERROR, "setCommandTo: Failed during binder call, isDead 0"));
    const rapidjson::Document now = status();
    answer.set_value();
    EXPECT_EQ(1u, now["start"]["client-calls-failed"].GetUint64());
    size_t failures = 0;
    for (const auto& event : now["events"].GetArray()) {
        if (std::string("client-failed") != event["what"].GetString()) continue;
        EXPECT_EQ(3, event["detail"].GetInt());
        ++failures;
    }
    EXPECT_EQ(1u, failures);
}

TEST_F(CameraDesktopDebugTest, OnlyWhoeverTakesTheControllersSurfaceRendersIntoIt) {
    using hardware::camera::desktop::V2_0::ClientType;
    mWorld.commit(1, 1);
    mWorld.startStream();
    ASSERT_EQ("", mWorld.command(kNv12));
    mWorld.service->setSurface(ClientType::LAUNCHER, new StubProducer);
    mWorld.service->getSurface(ClientType::LAUNCHER);
    EXPECT_EQ(0, status()["surface"]["renderer"].GetInt());
    mWorld.surface();
    EXPECT_EQ(getpid(), status()["surface"]["renderer"].GetInt());
}

TEST_F(CameraDesktopDebugTest, ASurfaceIsGoneWithItsStreamAndWithOneThatIsRefused) {
    stream();
    EXPECT_EQ("format missing", mWorld.command(R"({"create-surface":{"width":640,"height":480,)"
                                               R"("consumer-usage":3}})"));
    EXPECT_FALSE(status()["surface"].IsNull());
    EXPECT_THAT(mWorld.command(R"({"create-surface":{"width":640,"height":480,)"
                               R"("consumer-usage":3,"v4l2-format":"ABCD","fps":30}})"),
                Not(IsEmpty()));
    EXPECT_TRUE(status()["surface"].IsNull());
    ASSERT_EQ("", mWorld.command(kNv12));
    EXPECT_FALSE(status()["surface"].IsNull());
    mWorld.stopStream();
    EXPECT_TRUE(status()["surface"].IsNull());
}

TEST_F(CameraDesktopDebugTest, ADumpAndACommitAreEvents) {
    stream();
    const MemoryFile file;
    debug({"--dump-frames"}, file.fd());
    EXPECT_THAT(debug({"--json"}), HasSubstr(R"("what":"dump-started")"));
    EXPECT_THAT(debug({"--json"}), HasSubstr(R"("what":"mode-committed")"));
    debug({"--end-dump"});
    EXPECT_THAT(debug({"--json"}), HasSubstr(R"("what":"dump-started","detail":0,"times":1})"));
}

TEST_F(CameraDesktopDebugTest, APulledCableIsAnEvent) {
    stream();
    mWorld.raiseDisconnected();
    mWorld.settle();
    EXPECT_THAT(debug({"--json"}), HasSubstr(R"("what":"cable-pulled")"));
}

TEST_F(CameraDesktopDebugTest, ARefusedSurfaceIsAnEvent) {
    EXPECT_EQ("not streaming", mWorld.command(kNv12));
    EXPECT_THAT(debug({"--json"}), HasSubstr("surface-refused"));
}

TEST_F(CameraDesktopDebugTest, ThePageSaysTheSame) {
    stream();
    queueFrame();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QBUF", 1));
    const std::string page = debug({});
    EXPECT_THAT(page, HasSubstr("Node:     /dev/video0, streaming\n"));
    EXPECT_THAT(page, HasSubstr("Mode:     YUYV 640x480, 30.00 fps\n"));
    EXPECT_THAT(page, HasSubstr("Buffers:  0 driver 1 service 2 service 3 service\n"));
    EXPECT_THAT(page, HasSubstr("Surface:  NV12 640x480, 30.00 fps, usage 0x3, taken by process " +
                                std::to_string(getpid()) + "\n"));
    EXPECT_THAT(page, HasSubstr("  sent                        1          1\n"));
    EXPECT_THAT(page, HasSubstr(" stream-started "));
}

TEST_F(CameraDesktopDebugTest, FiguresThatMakeNoSenseAreShownAsTheyAre) {
    mWorld.commit(1, 1);
    mWorld.startStream();
    ASSERT_EQ("", mWorld.command(R"({"create-surface":{"width":640,"height":480,)"
                                 R"("consumer-usage":-1,"v4l2-format":"NV12","fps":1e38}})"));
    const rapidjson::Document now = status();
    EXPECT_EQ(4294967295u, now["surface"]["usage"].GetUint());
}

TEST_F(CameraDesktopDebugTest, BeingWatchedLeavesNoTrace) {
    const auto lines = mWorld.log.lines();
    const std::string before = mWorld.command("{}");
    mWorld.log.clear();
    debug({});
    debug({"--json"});
    debug({"--what"});
    EXPECT_THAT(mWorld.log.lines(), IsEmpty());
    EXPECT_EQ(before, mWorld.command("{}"));
}

TEST_F(CameraDesktopDebugTest, AskedWithoutEndEveryAnswerIsWholeAndNoFrameIsLost) {
    constexpr int kFrames = 100;
    stream();
    mWorld.node.setAutoSend(true);
    std::atomic<bool> done{false};
    std::thread asker([this, &done] {
        uint64_t sent = 0;
        do {
            const rapidjson::Document now = status();
            EXPECT_GE(now["stream"]["sent"].GetUint64(), sent);
            sent = now["stream"]["sent"].GetUint64();
        } while (!done);
    });
    for (int i = 0; i < kFrames; ++i) queueFrame();
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_QBUF", kFrames));
    done = true;
    asker.join();
    mWorld.command(R"({"get-stream-config":true})");  // the last frame has been handed over
    EXPECT_EQ(kFrames, status()["stream"]["drawn"].GetInt());
    EXPECT_EQ(kFrames, status()["stream"]["sent"].GetInt());
}

TEST_F(CameraDesktopDebugTest, OtherOptionsAreAnsweredWithALineOnEach) {
    for (const hidl_vec<hidl_string>& options :
         {hidl_vec<hidl_string>{"--help"}, hidl_vec<hidl_string>{"--json", "--json"}}) {
        EXPECT_EQ(
                "(nothing)      the status as a page\n"
                "--json         the status for programs\n"
                "--dump-frames  write every frame of the stream to the second descriptor, a file\n"
                "--end-dump     write no more frames\n",
                debug(options));
    }
}

TEST_F(CameraDesktopDebugTest, WithoutADescriptorThereIsNoAnswer) {
    EXPECT_TRUE(mWorld.service->debug(hidl_handle(), {}).isOk());
    const MemoryFile file;
    native_handle_t* empty = native_handle_create(0, 1);
    empty->data[0] = file.fd();  // a number, no descriptor
    EXPECT_TRUE(mWorld.service->debug(hidl_handle(empty), {}).isOk());
    native_handle_delete(empty);
    EXPECT_EQ("", file.bytes());
}

// --- The dump ---

TEST_F(CameraDesktopDebugTest, FramesGoToTheSecondDescriptorUntilItIsEnded) {
    stream();
    const MemoryFile frames;
    EXPECT_EQ("", debug({"--dump-frames"}, frames.fd()));
    queueFrame();
    queueFrame();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QBUF", 2));
    EXPECT_EQ("", debug({"--end-dump"}));
    queueFrame();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QBUF", 3));
    std::string sent;
    const auto all = mWorld.node.sentFrames();
    ASSERT_GE(all.size(), 2u);
    for (size_t i = 0; i < 2; ++i) sent.append(all[i].begin(), all[i].end());
    EXPECT_EQ(sent.size(), frames.bytes().size());
    EXPECT_EQ(sent, frames.bytes());
}

TEST_F(CameraDesktopDebugTest, ADumpNeedsAStreamAndAFileAndThereCanBeOnlyOne) {
    const MemoryFile file;
    EXPECT_EQ("no stream\n", debug({"--dump-frames"}, file.fd()));
    EXPECT_EQ("no stream\n", debug({"--end-dump"}));
    EXPECT_EQ("no file for the frames\n", debug({"--dump-frames"}));
    stream();
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    EXPECT_EQ("frames go to a file only\n", debug({"--dump-frames"}, ends[1]));
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ("", debug({"--dump-frames"}, file.fd()));
    const MemoryFile other;
    EXPECT_EQ("frames are being written already\n", debug({"--dump-frames"}, other.fd()));
}

TEST_F(CameraDesktopDebugTest, ADumpsDescriptorIsNotInherited) {
    stream();
    const MemoryFile file;
    debug({"--dump-frames"}, file.fd());
    const std::vector<int> others = othersFor(file);
    ASSERT_EQ(1u, others.size());
    EXPECT_EQ(FD_CLOEXEC, fcntl(others[0], F_GETFD));
    debug({"--end-dump"});
    EXPECT_THAT(othersFor(file), IsEmpty());
}

TEST_F(CameraDesktopDebugTest, ADumpMayHaveDescriptorZero) {
    stream();
    const MemoryFile file;
    const MemoryFile answer;
    native_handle_t* handle = native_handle_create(2, 0);
    handle->data[0] = answer.fd();
    handle->data[1] = file.fd();
    {
        const DescriptorZero zero;
        mWorld.service->debug(hidl_handle(handle), {"--dump-frames"});
        EXPECT_EQ("", answer.bytes());
        EXPECT_THAT(othersFor(file), ElementsAre(0));
        mWorld.service->debug(hidl_handle(handle), {"--end-dump"});
    }
    native_handle_delete(handle);
}

TEST_F(CameraDesktopDebugTest, ANumberOfTheHandlesIsNoFileForFrames) {
    stream();
    const MemoryFile file;
    const MemoryFile answer;
    native_handle_t* handle = native_handle_create(1, 1);
    handle->data[0] = answer.fd();
    handle->data[1] = file.fd();  // a number, no descriptor
    mWorld.service->debug(hidl_handle(handle), {"--dump-frames"});
    native_handle_delete(handle);
    EXPECT_EQ("no file for the frames\n", answer.bytes());
    EXPECT_THAT(othersFor(file), IsEmpty());
}

TEST_F(CameraDesktopDebugTest, AFileThatCannotBeWrittenIsRefused) {
    stream();
    const MemoryFile file;
    const std::string path = "/proc/self/fd/" + std::to_string(file.fd());
    const int readable = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(readable, 0);
    EXPECT_EQ("the file can't be written\n", debug({"--dump-frames"}, readable));
    close(readable);
}

TEST_F(CameraDesktopDebugTest, NoDescriptorIsLeftBehind) {
    mWorld.commit(1, 1);  // after it the poll thread opens nothing more
    const int before = countOpenDescriptors();
    const MemoryFile file;
    const int with = countOpenDescriptors();
    debug({});
    debug({"--dump-frames"}, file.fd());
    debug({"--dump-frames"});
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    debug({"--dump-frames"}, null);
    close(null);
    const std::string path = "/proc/self/fd/" + std::to_string(file.fd());
    const int readable = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    debug({"--dump-frames"}, readable);
    close(readable);
    EXPECT_EQ(with, countOpenDescriptors());
    EXPECT_EQ(before + 1, with);
}

}  // namespace
}  // namespace korvane::test
