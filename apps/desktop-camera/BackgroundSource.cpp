// SPDX-License-Identifier: Apache-2.0
#include "BackgroundSource.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include <android-base/thread_annotations.h>

namespace korvane::camera {

using std::chrono::milliseconds;

namespace {

constexpr milliseconds kPictureTimeout{100};
constexpr milliseconds kLastTimeout{1000};

}  // namespace

/**
 * What the two threads share. Only the latest order counts: one that it replaces was never begun.
 */
class BackgroundSource::Worker {
  public:
    enum class Order { NONE, START, START_AGAIN, STOP, END };

    explicit Worker(std::unique_ptr<FrameSource> source) : mSource(std::move(source)) {}

    /** Carries out orders up to the one to end. */
    void run() {
        Task task;
        do {
            task = waitForTask();
            finish(carryOut(task));
        } while (task.order != Order::END);
    }

    void order(Order order) {
        const std::lock_guard<std::mutex> guard(mLock);
        mOrder = order;
        mChanged.notify_all();
    }

    void orderStart(const PictureFormat& format) {
        const std::lock_guard<std::mutex> guard(mLock);
        mFormat = format;
        mOrder = Order::START;
        mChanged.notify_all();
    }

    /**
     * The source, lent to whoever gives the orders until the next order; null while one is being
     * carried out.
     */
    FrameSource* waitForSource(milliseconds timeout) {
        const auto end = std::chrono::steady_clock::now() + timeout;
        const std::lock_guard<std::mutex> guard(mLock);
        while (!isIdle_l() && mChanged.wait_until(mLock, end) == std::cv_status::no_timeout) {
        }
        return isIdle_l() ? mSource.get() : nullptr;
    }

    /** Whether the latest start succeeded. */
    bool isStarted() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mStarted;
    }

  private:
    struct Task {
        Order order = Order::NONE;
        PictureFormat format;
    };

    /** The next order; the source is the worker's until finish(). */
    Task waitForTask() {
        const std::lock_guard<std::mutex> guard(mLock);
        while (mOrder == Order::NONE) mChanged.wait(mLock);
        mBusy = true;
        return {std::exchange(mOrder, Order::NONE), mFormat};
    }

    void finish(bool started) {
        const std::lock_guard<std::mutex> guard(mLock);
        mStarted = started;
        mBusy = false;
        mChanged.notify_all();
    }

    bool carryOut(const Task& task) {
        if (task.order == Order::START_AGAIN) return mSource->startAgain();
        if (isStarted()) mSource->stop();
        return task.order == Order::START && mSource->start(task.format);
    }

    REQUIRES(mLock) bool isIdle_l() const { return mOrder == Order::NONE && !mBusy; }

    const std::unique_ptr<FrameSource> mSource;
    std::mutex mLock;
    std::condition_variable_any mChanged;
    Order mOrder GUARDED_BY(mLock) = Order::NONE;
    PictureFormat mFormat GUARDED_BY(mLock);
    bool mBusy GUARDED_BY(mLock) = false;  // the source is the worker's
    bool mStarted GUARDED_BY(mLock) = false;
};

BackgroundSource::BackgroundSource(std::unique_ptr<FrameSource> source)
    : mWorker(std::make_shared<Worker>(std::move(source))),
      mThread([worker = mWorker] { worker->run(); }) {}

BackgroundSource::~BackgroundSource() {
    mWorker->order(Worker::Order::END);
    if (mWorker->waitForSource(kLastTimeout) != nullptr) {
        mThread.join();
    } else {
        mThread.detach();
    }
}

bool BackgroundSource::start(const PictureFormat& format) {
    mWorker->orderStart(format);
    return true;
}

bool BackgroundSource::startAgain() {
    mWorker->order(Worker::Order::START_AGAIN);
    return true;
}

FrameSource::Result BackgroundSource::draw(const testcard::FrameStamp& stamp,
                                           const PictureMemory& memory, size_t* bytes) {
    FrameSource* const source = mWorker->waitForSource(kPictureTimeout);
    if (source == nullptr) return Result::STARTING;
    return mWorker->isStarted() ? source->draw(stamp, memory, bytes) : Result::FAILED;
}

void BackgroundSource::stop() {
    mWorker->order(Worker::Order::STOP);
    mWorker->waitForSource(kPictureTimeout);
}

Trouble BackgroundSource::trouble() const {
    const FrameSource* const source = mWorker->waitForSource(milliseconds(0));
    return source == nullptr ? Trouble{testcard::Notice::STARTING, ""} : source->trouble();
}

std::string BackgroundSource::handling() const {
    const FrameSource* const source = mWorker->waitForSource(milliseconds(0));
    return source == nullptr ? "" : source->handling();
}

}  // namespace korvane::camera
