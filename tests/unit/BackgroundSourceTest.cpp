// SPDX-License-Identifier: Apache-2.0
// A source that hangs in its calls, and who is held up by that.
#include "desktop-camera/BackgroundSource.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "desktop-camera/CameraStatus.h"
#include "desktop-camera/SteadySource.h"
#include "testcard/StripCode.h"
#include "testcard/StripLayout.h"

namespace korvane::camera {
namespace {

using Result = FrameSource::Result;
using testcard::Notice;

const PictureFormat kNv12{"NV12", 320, 240, 30};
const PictureFormat kSmall{"NV12", 160, 120, 30};
constexpr uint8_t kOwnPicture = 3;  // what the source's pictures are filled with

/** What becomes of a source, and what it is told; outlives it. */
class Script {
  public:
    /** From now on a call returns only after letGo(). */
    void hold() {
        const std::lock_guard<std::mutex> guard(mLock);
        mHeld = true;
    }

    void letGo() {
        const std::lock_guard<std::mutex> guard(mLock);
        mHeld = false;
        mChanged.notify_all();
    }

    void call(const std::string& name) {
        std::unique_lock<std::mutex> guard(mLock);
        EXPECT_FALSE(mInside) << name << " while another call is made";
        mInside = true;
        mCalls.push_back(name);
        mChanged.notify_all();
        mChanged.wait(guard, [this] { return !mHeld; });
        mInside = false;
    }

    void gone() {
        const std::lock_guard<std::mutex> guard(mLock);
        mGone = true;
        mChanged.notify_all();
    }

    /** Waits until the latest of the calls is this one. */
    bool waitForCall(const std::string& name) {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, std::chrono::seconds(30),
                                 [&] { return !mCalls.empty() && mCalls.back() == name; });
    }

    bool waitUntilGone() {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, std::chrono::seconds(30), [this] { return mGone; });
    }

    std::vector<std::string> calls() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mCalls;
    }

    std::atomic<bool> starts{true};
    std::atomic<bool> ends{false};

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<std::string> mCalls;
    bool mHeld = false;
    bool mInside = false;
    bool mGone = false;
};

/** Does as the script says. */
class ToldSource : public FrameSource {
  public:
    explicit ToldSource(Script& script) : mScript(script) {}
    ~ToldSource() override { mScript.gone(); }

    bool start(const PictureFormat& format) override {
        mScript.call("start " + std::to_string(format.width));
        return mScript.starts;
    }
    bool startAgain() override {
        mScript.call("start again");
        return mScript.starts;
    }
    Result draw(const testcard::FrameStamp&, const PictureMemory& memory, size_t* bytes) override {
        if (mScript.ends.exchange(false)) return Result::ENDED;
        memory.planes.y[0] = kOwnPicture;
        *bytes = 1;
        return Result::DRAWN;
    }
    void stop() override { mScript.call("stop"); }
    Trouble trouble() const override { return {Notice::ABSENT, "it is not there"}; }
    std::string handling() const override { return "copied"; }

  private:
    Script& mScript;
};

class BackgroundSourceTest : public testing::Test {
  protected:
    // A test that fails leaves no thread behind that waits for it.
    ~BackgroundSourceTest() override {
        mScript.letGo();
        mSource.reset();
        EXPECT_TRUE(mScript.waitUntilGone());
    }

    static Result drawFrom(FrameSource& source, std::vector<uint8_t>* memory) {
        PictureMemory picture;
        picture.planes = testcard::Planes::nv12(memory->data(), 320, 240);
        size_t bytes = 0;
        return source.draw({1, 2}, picture, &bytes);
    }

    Result draw() { return drawFrom(*mSource, &mMemory); }

    /** Draws until something else comes of it than that the source is starting. */
    Result drawWhenStarted() {
        Result result = Result::STARTING;
        for (int tries = 0; tries < 300 && result == Result::STARTING; ++tries) result = draw();
        return result;
    }

    Script mScript;
    std::vector<uint8_t> mMemory = std::vector<uint8_t>(320 * 240 * 3 / 2);
    std::unique_ptr<FrameSource> mSource =
            std::make_unique<BackgroundSource>(std::make_unique<ToldSource>(mScript));
};

TEST_F(BackgroundSourceTest, GivesTheSourcesPictures) {
    ASSERT_TRUE(mSource->start(kNv12));
    ASSERT_EQ(Result::DRAWN, drawWhenStarted());
    EXPECT_EQ(kOwnPicture, mMemory[0]);
    EXPECT_EQ("copied", mSource->handling());
    mSource->stop();
    EXPECT_TRUE(mScript.waitForCall("stop"));
    EXPECT_EQ((std::vector<std::string>{"start 320", "stop"}), mScript.calls());
}

TEST_F(BackgroundSourceTest, SaysThatItIsStartingForAsLongAsTheStartTakes) {
    mScript.hold();
    ASSERT_TRUE(mSource->start(kNv12));
    ASSERT_TRUE(mScript.waitForCall("start 320"));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Result::STARTING, draw());
    EXPECT_EQ(Notice::STARTING, mSource->trouble().notice);
    EXPECT_EQ("", mSource->handling());
    mScript.letGo();
    EXPECT_EQ(Result::DRAWN, drawWhenStarted());
}

TEST_F(BackgroundSourceTest, SaysWhyAStartHasFailed) {
    mScript.starts = false;
    ASSERT_TRUE(mSource->start(kNv12));
    EXPECT_EQ(Result::FAILED, drawWhenStarted());
    EXPECT_EQ(Notice::ABSENT, mSource->trouble().notice);
    EXPECT_EQ("it is not there", mSource->trouble().text);
    mSource.reset();
    EXPECT_EQ((std::vector<std::string>{"start 320"}), mScript.calls()) << "it was never open";
}

TEST_F(BackgroundSourceTest, StopsASourceOnceItsStartIsOver) {
    mScript.hold();
    mSource->start(kNv12);
    ASSERT_TRUE(mScript.waitForCall("start 320"));
    mSource->stop();
    mScript.letGo();
    EXPECT_TRUE(mScript.waitForCall("stop"));
}

TEST_F(BackgroundSourceTest, ServesTheLatestStreamWhenAnEarlierStartIsOver) {
    mScript.hold();
    mSource->start(kNv12);
    ASSERT_TRUE(mScript.waitForCall("start 320"));
    for (const PictureFormat& format : {kSmall, kNv12, kSmall}) {
        mSource->stop();
        mSource->start(format);
        EXPECT_EQ(Result::STARTING, draw());
    }
    mScript.letGo();
    EXPECT_EQ(Result::DRAWN, drawWhenStarted());
    EXPECT_EQ((std::vector<std::string>{"start 320", "stop", "start 160"}), mScript.calls());
}

TEST_F(BackgroundSourceTest, IsNotHeldUpByAStopEither) {
    mSource->start(kNv12);
    ASSERT_EQ(Result::DRAWN, drawWhenStarted());
    mScript.hold();
    mSource->stop();
    ASSERT_TRUE(mScript.waitForCall("stop"));
    mSource->start(kNv12);
    EXPECT_EQ(Result::STARTING, draw());
    mScript.letGo();
    EXPECT_EQ(Result::DRAWN, drawWhenStarted());
}

TEST_F(BackgroundSourceTest, BeginsAnewInTheBackgroundToo) {
    mSource->start(kNv12);
    ASSERT_EQ(Result::DRAWN, drawWhenStarted());
    mScript.ends = true;
    ASSERT_EQ(Result::ENDED, draw());
    mScript.hold();
    ASSERT_TRUE(mSource->startAgain());
    ASSERT_TRUE(mScript.waitForCall("start again"));
    EXPECT_EQ(Result::STARTING, draw());
    mScript.letGo();
    EXPECT_EQ(Result::DRAWN, drawWhenStarted());
}

TEST_F(BackgroundSourceTest, GoesWithoutACallThatDoesNotReturn) {
    mScript.hold();
    mSource->start(kNv12);
    ASSERT_TRUE(mScript.waitForCall("start 320"));
    mSource.reset();
    EXPECT_EQ((std::vector<std::string>{"start 320"}), mScript.calls());
    mScript.letGo();
    EXPECT_TRUE(mScript.waitUntilGone());
    EXPECT_EQ((std::vector<std::string>{"start 320", "stop"}), mScript.calls());
}

TEST_F(BackgroundSourceTest, TheHostSeesACardWhileTheSourceHangsInItsStart) {
    CameraStatus status;
    // No patience: a start that goes on is waited for all the same.
    SteadySource steady(*mSource, nullptr, {1, 1, 1, 1}, status);
    const auto card = [&]() -> std::optional<Notice> {
        if (drawFrom(steady, &mMemory) != Result::DRAWN) return std::nullopt;
        const auto reading = testcard::readCard(*testcard::StripLayout::forSize(320, 240),
                                                {mMemory.data(), 320, 1});
        return reading.top ? std::optional(reading.top->notice) : std::nullopt;
    };
    mScript.hold();
    ASSERT_TRUE(steady.start(kNv12));
    ASSERT_TRUE(mScript.waitForCall("start 320"));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(Notice::STARTING, card());
    steady.stop();
    ASSERT_TRUE(steady.start(kNv12));
    EXPECT_EQ(Notice::STARTING, card());
    EXPECT_EQ((std::vector<std::string>{"start 320"}), mScript.calls());
    mScript.letGo();
    bool pictures = false;
    for (int tries = 0; tries < 300 && !pictures; ++tries) {
        pictures = drawFrom(steady, &mMemory) == Result::DRAWN && mMemory[0] == kOwnPicture;
    }
    EXPECT_TRUE(pictures);
}

}  // namespace
}  // namespace korvane::camera
