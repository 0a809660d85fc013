// SPDX-License-Identifier: Apache-2.0
#include "uvc/ClientEvents.h"

#include <condition_variable>
#include <future>
#include <map>
#include <set>
#include <utility>

#include <pthread.h>

#include <android-base/thread_annotations.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

namespace {

// Whether this thread is making a call that somebody waits for.
thread_local bool sIsSender = false;

struct Event {
    Event(uint8_t toKind, ClientEvents::Call toMake) : kind(toKind), call(std::move(toMake)) {}

    const uint8_t kind;
    const ClientEvents::Call call;
    std::promise<ClientEvents::Answer> answer;
    // Under the lock of the senders.
    uint64_t generation = 0;  // of the kind's client, when the event was taken
    bool hasEnded = false;
};

ClientEvents::Answer failure() {
    ClientEvents::Answer answer;
    answer.failed = true;
    return answer;
}

}  // namespace

/** The threads and what they share; each of them holds a reference. */
class ClientEvents::Senders : public std::enable_shared_from_this<ClientEvents::Senders> {
  public:
    /** Gives the event to a thread; false when there is none for it. */
    bool take(const std::shared_ptr<Event>& event);

    /** Notes that nobody waits for the event any more; false when it has ended. */
    bool giveUp(const std::shared_ptr<Event>& event);

    void forgive(uint8_t kind);
    void stop();

  private:
    /** What a thread is started with; without an event it is the one that stays. */
    struct Task {
        std::shared_ptr<Senders> senders;
        std::shared_ptr<Event> event;
    };

    bool startThread_l(const std::shared_ptr<Event>& event) REQUIRES(mLock);
    static void* runThread(void* task);
    void sendAll();
    std::shared_ptr<Event> waitForEvent();
    void sendOne(const std::shared_ptr<Event>& event, bool isAlone);
    void end_l(const std::shared_ptr<Event>& event) REQUIRES(mLock);

    std::mutex mLock;
    std::condition_variable_any mChanged;
    bool mStarted GUARDED_BY(mLock) = false;
    bool mStopped GUARDED_BY(mLock) = false;
    bool mBusy GUARDED_BY(mLock) = false;  // the thread that stays has an event, or is about to
    std::shared_ptr<Event> mNext GUARDED_BY(mLock);  // for that thread
    // The kinds that have a thread for an event of theirs.
    std::set<uint8_t> mAlone GUARDED_BY(mLock);
    // Given up, and not ended yet.
    std::map<uint8_t, std::shared_ptr<Event>> mUnanswered GUARDED_BY(mLock);
    // How many clients a kind has had.
    std::map<uint8_t, uint64_t> mGenerations GUARDED_BY(mLock);
};

bool ClientEvents::Senders::take(const std::shared_ptr<Event>& event) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mUnanswered.count(event->kind) > 0) return false;
    event->generation = mGenerations[event->kind];
    if (mBusy) {
        if (mAlone.count(event->kind) > 0 || !startThread_l(event)) return false;
        mAlone.insert(event->kind);
        return true;
    }
    if (!mStarted && !startThread_l(nullptr)) return false;
    mStarted = true;
    mBusy = true;
    mNext = event;
    mChanged.notify_all();
    return true;
}

bool ClientEvents::Senders::giveUp(const std::shared_ptr<Event>& event) {
    std::lock_guard<std::mutex> guard(mLock);
    if (event->hasEnded) return false;
    if (event->generation == mGenerations[event->kind]) mUnanswered[event->kind] = event;
    return true;
}

void ClientEvents::Senders::forgive(uint8_t kind) {
    std::lock_guard<std::mutex> guard(mLock);
    ++mGenerations[kind];
    mUnanswered.erase(kind);
}

void ClientEvents::Senders::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    mStopped = true;
    mChanged.notify_all();
}

bool ClientEvents::Senders::startThread_l(const std::shared_ptr<Event>& event) {
    auto task = std::make_unique<Task>(Task{shared_from_this(), event});
    pthread_t thread;
    if (pthread_create(&thread, nullptr, runThread, task.get()) != 0) return false;
    (void)task.release();  // the thread's
    pthread_detach(thread);
    return true;
}

void* ClientEvents::Senders::runThread(void* task) {
    const std::unique_ptr<Task> mine(static_cast<Task*>(task));
    pthread_setname_np(pthread_self(), "client_events");
    sIsSender = true;
    if (mine->event != nullptr) {
        mine->senders->sendOne(mine->event, true);
    } else {
        mine->senders->sendAll();
    }
    return nullptr;
}

void ClientEvents::Senders::sendAll() {
    while (const std::shared_ptr<Event> event = waitForEvent()) sendOne(event, false);
}

std::shared_ptr<Event> ClientEvents::Senders::waitForEvent() {
    std::lock_guard<std::mutex> guard(mLock);
    while (!mStopped && mNext == nullptr) mChanged.wait(mLock);
    return std::exchange(mNext, nullptr);
}

void ClientEvents::Senders::sendOne(const std::shared_ptr<Event>& event, bool isAlone) {
    Answer answer = event->call();
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (isAlone) {
            mAlone.erase(event->kind);
        } else {
            mBusy = false;
        }
        end_l(event);
    }
    // Last: whoever waits for it may send the next event at once.
    event->answer.set_value(std::move(answer));
}

void ClientEvents::Senders::end_l(const std::shared_ptr<Event>& event) {
    event->hasEnded = true;
    const auto unanswered = mUnanswered.find(event->kind);
    if (unanswered != mUnanswered.end() && unanswered->second == event) {
        mUnanswered.erase(unanswered);
    }
}

ClientEvents::ClientEvents() : mSenders(std::make_shared<Senders>()) {}

ClientEvents::~ClientEvents() {
    mSenders->stop();
}

ClientEvents::Answer ClientEvents::send(uint8_t kind, const Call& call) {
    if (sIsSender) return call();

    std::lock_guard<std::mutex> turn(mTurn);
    const auto event = std::make_shared<Event>(kind, call);
    std::future<Answer> answer = event->answer.get_future();
    if (!mSenders->take(event)) return failure();
    const bool isLate = answer.wait_for(kAnswerTime) != std::future_status::ready;
    if (isLate && mSenders->giveUp(event)) return failure();
    return answer.get();
}

void ClientEvents::onClientChanged(uint8_t kind) {
    mSenders->forgive(kind);
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
