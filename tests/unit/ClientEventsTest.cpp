// SPDX-License-Identifier: Apache-2.0
// Events to clients that answer, late, never, or after they have called back.
#include "uvc/ClientEvents.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>

#include <gmock/gmock.h>

#include "support/PendingCall.h"
#include "support/ShortWaits.h"

namespace {

// The linker leads the service's calls here; the library's own threads don't come by.
std::atomic<bool> gNoThreads{false};
std::atomic<int> gCreated{0};
std::atomic<int> gDetached{0};

// Where a thread that has one stops before it gives its answer, when that has ended already.
thread_local std::function<void()> tBeforeItsAnswer;

}  // namespace

extern "C" {

// The real ones are looked up as the program runs: with a sanitizer they are its own.
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
    if (gNoThreads) return EAGAIN;
    ++gCreated;
    static const auto sReal =
            reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_DEFAULT, "pthread_create"));
    return sReal(thread, attributes, run, argument);
}

int __wrap_pthread_detach(pthread_t thread) {
    ++gDetached;
    static const auto sReal =
            reinterpret_cast<decltype(&pthread_detach)>(dlsym(RTLD_DEFAULT, "pthread_detach"));
    return sReal(thread);
}

// A std::promise is set under a std::once_flag; what is run meanwhile must not set another one.
int __wrap_pthread_once(pthread_once_t* once, void (*run)()) {
    if (const auto act = std::exchange(tBeforeItsAnswer, nullptr)) act();
    static const auto sReal =
            reinterpret_cast<decltype(&pthread_once)>(dlsym(RTLD_DEFAULT, "pthread_once"));
    return sReal(once, run);
}

}  // extern "C"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using namespace std::chrono_literals;

using test::PendingCall;
using test::ShortWaits;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint8_t kLauncher = 1;
constexpr uint8_t kStream = 3;

/** A client that answers once it is let, and only then. */
class SilentClient : public std::enable_shared_from_this<SilentClient> {
  public:
    ClientEvents::Call call(const std::string& text = "late") {
        return [this, self = shared_from_this(), text] {
            std::unique_lock<std::mutex> guard(mLock);
            ++mCalls;
            mChanged.notify_all();
            mChanged.wait(guard, [this] { return mAnswers; });
            ClientEvents::Answer answer;
            answer.text = text;
            return answer;
        };
    }
    void answer() {
        const std::lock_guard<std::mutex> guard(mLock);
        mAnswers = true;
        mChanged.notify_all();
    }
    void waitUntilCalled(int times = 1) {
        std::unique_lock<std::mutex> guard(mLock);
        EXPECT_TRUE(mChanged.wait_for(guard, 10s, [&] { return mCalls >= times; }));
    }
    int calls() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mCalls;
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mAnswers = false;
    int mCalls = 0;
};

ClientEvents::Call answering(const std::string& text) {
    return [text] {
        ClientEvents::Answer answer;
        answer.text = text;
        return answer;
    };
}

int senders() {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "client_events") ++count;
    }
    return count;
}

class ClientEventsTest : public testing::Test {
  protected:
    ~ClientEventsTest() override {
        for (const auto& client : mClients) client->answer();
        mEvents.reset();
        while (senders() > 0) std::this_thread::yield();  // they use what goes now
    }

    SilentClient& silent() {
        mClients.push_back(std::make_shared<SilentClient>());
        return *mClients.back();
    }

    std::string send(uint8_t kind, const ClientEvents::Call& call) {
        const ClientEvents::Answer answer = mEvents->send(kind, call);
        return answer.failed ? "failed" : answer.text;
    }

    // Events end as failed at once from then on unless they have ended by themselves.
    std::string sendInVain(uint8_t kind, SilentClient& client) {
        mWaits.stepOverNextFuture();
        const std::string answer = send(kind, client.call());
        mWaits.stepOverNextFuture(false);
        return answer;
    }

    // A thread's end shows a little later than what it has done.
    void expectSenders(int count) {
        const auto until = std::chrono::steady_clock::now() + 10s;
        while (senders() != count && std::chrono::steady_clock::now() < until) {
            std::this_thread::yield();
        }
        EXPECT_EQ(senders(), count);
    }

    std::vector<std::shared_ptr<SilentClient>> mClients;
    ShortWaits mWaits;
    std::unique_ptr<ClientEvents> mEvents = std::make_unique<ClientEvents>();
};

TEST_F(ClientEventsTest, GivesTheAnswerOfEachCallInOrder) {
    std::vector<std::string> calls;
    for (const std::string text : {"one", "", "three"}) {
        EXPECT_EQ(text, send(kStream, [&, text] {
                      calls.push_back(text);
                      return answering(text)();
                  }));
    }
    EXPECT_THAT(calls, ElementsAre("one", "", "three"));
    EXPECT_THAT(mWaits.steppedOver(), IsEmpty());
}

TEST_F(ClientEventsTest, GivesAFailureAsItIs) {
    const ClientEvents::Answer answer = mEvents->send(kStream, [] {
        ClientEvents::Answer dead;
        dead.text = "half";
        dead.failed = true;
        dead.isDead = true;
        return dead;
    });
    EXPECT_TRUE(answer.failed);
    EXPECT_TRUE(answer.isDead);
    EXPECT_EQ("half", answer.text);
    EXPECT_EQ("next", send(kStream, answering("next")));
}

TEST_F(ClientEventsTest, OneThreadSendsFromTheFirstEventOn) {
    EXPECT_EQ(0, senders());
    std::vector<std::thread::id> threads;
    for (uint8_t kind : {kStream, kLauncher, kStream}) {
        send(kind, [&] {
            threads.push_back(std::this_thread::get_id());
            return ClientEvents::Answer();
        });
    }
    EXPECT_EQ(1, senders());
    EXPECT_THAT(threads, ElementsAre(threads[0], threads[0], threads[0]));
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST_F(ClientEventsTest, WaitsForAnAnswer) {
    SilentClient& client = silent();
    PendingCall<std::string> event([&] { return send(kStream, client.call("at last")); });
    client.waitUntilCalled();
    EXPECT_TRUE(event.isHeldUp());
    client.answer();
    EXPECT_EQ("at last", event.get());
}

TEST_F(ClientEventsTest, AClientThatDoesNotAnswerFailsAfterTwoSeconds) {
    SilentClient& client = silent();
    mWaits.stepOverNextFuture();
    const ClientEvents::Answer answer = mEvents->send(kStream, client.call());
    EXPECT_TRUE(answer.failed);
    EXPECT_FALSE(answer.isDead);
    EXPECT_EQ("", answer.text);
    ASSERT_EQ(1u, mWaits.steppedOver().size());
    EXPECT_GT(mWaits.steppedOver()[0], 1900ms);
    EXPECT_LE(mWaits.steppedOver()[0], 2s);
    client.waitUntilCalled();
}

TEST_F(ClientEventsTest, WhileItHasNotAnsweredFurtherEventsFailAtOnce) {
    SilentClient& client = silent();
    EXPECT_EQ("failed", sendInVain(kStream, client));
    client.waitUntilCalled();
    for (int i = 0; i < 3; ++i) EXPECT_EQ("failed", sendInVain(kStream, client));
    EXPECT_EQ(1u, mWaits.steppedOver().size());
    EXPECT_EQ(1, client.calls());
    EXPECT_EQ(1, senders());
}

TEST_F(ClientEventsTest, ALateAnswerIsDroppedAndAllIsAsBefore) {
    SilentClient& client = silent();
    EXPECT_EQ("failed", sendInVain(kStream, client));
    client.waitUntilCalled();
    client.answer();
    std::string answer = "failed";
    while (answer == "failed") answer = send(kStream, answering("prompt"));
    EXPECT_EQ("prompt", answer);
    EXPECT_EQ(1, senders());
    EXPECT_EQ(1u, mWaits.steppedOver().size());
}

// The answer is there, but who waits for it has not been woken when the two seconds are over.
TEST_F(ClientEventsTest, AnAnswerThatComesAsTheTimeIsUpCounts) {
    SilentClient& client = silent();
    SilentClient& gate = silent();
    std::promise<void> timeIsUp;
    mWaits.stepOverNextFuture([&] {
        client.answer();
        gate.waitUntilCalled();
        timeIsUp.set_value();
    });
    PendingCall<std::string> event([&] {
        return send(kStream, [&] {
            tBeforeItsAnswer = gate.call();
            return client.call("just in time")();
        });
    });
    timeIsUp.get_future().wait();
    EXPECT_TRUE(event.isHeldUp());
    gate.answer();
    EXPECT_EQ("just in time", event.get());
    EXPECT_EQ("next", send(kStream, answering("next")));
    EXPECT_EQ(1, senders());
}

TEST_F(ClientEventsTest, OthersAreReachedByAThreadOfTheirOwnWhichEnds) {
    EXPECT_EQ("failed", sendInVain(kStream, silent()));
    mClients.back()->waitUntilCalled();
    for (int i = 0; i < 5; ++i) EXPECT_EQ("here", send(kLauncher, answering("here")));
    expectSenders(1);
}

TEST_F(ClientEventsTest, NoMoreThanOneThreadForEachKindWaitsForClients) {
    EXPECT_EQ("failed", sendInVain(kStream, silent()));
    mClients.back()->waitUntilCalled();
    for (uint8_t kind : {kLauncher, kStream, kLauncher, kStream}) {
        mEvents->onClientChanged(kind);
        EXPECT_EQ("failed", sendInVain(kind, silent()));
    }
    expectSenders(3);
    EXPECT_EQ(3u, mWaits.steppedOver().size());
    mEvents->onClientChanged(kStream);
    EXPECT_EQ("failed", send(kStream, answering("no thread is left")));
    EXPECT_EQ("other", send(5, answering("other")));
}

TEST_F(ClientEventsTest, AnEventThatNoThreadCanBeMadeForFailsAndTheNextOneTriesAgain) {
    gNoThreads = true;
    EXPECT_EQ("failed", send(kStream, answering("nobody sends")));
    gNoThreads = false;
    EXPECT_EQ("here", send(kStream, answering("here")));
}

TEST_F(ClientEventsTest, AnEventBesideASilentClientsThatNoThreadCanBeMadeForFails) {
    EXPECT_EQ("failed", sendInVain(kStream, silent()));
    mClients.back()->waitUntilCalled();
    gNoThreads = true;
    EXPECT_EQ("failed", send(kLauncher, answering("nobody sends")));
    gNoThreads = false;
    EXPECT_EQ("here", send(kLauncher, answering("here")));
}

TEST_F(ClientEventsTest, NobodyHasToWaitForTheEndOfItsThreads) {
    gCreated = gDetached = 0;
    EXPECT_EQ("failed", sendInVain(kStream, silent()));
    mClients.back()->waitUntilCalled();
    EXPECT_EQ("here", send(kLauncher, answering("here")));
    EXPECT_EQ(2, gCreated);
    EXPECT_EQ(2, gDetached);
}

TEST_F(ClientEventsTest, AnotherClientOfTheKindIsReached) {
    EXPECT_EQ("failed", sendInVain(kStream, silent()));
    mClients.back()->waitUntilCalled();
    mEvents->onClientChanged(kLauncher);
    EXPECT_EQ("failed", send(kStream, answering("unheard")));
    mEvents->onClientChanged(kStream);
    EXPECT_EQ("another", send(kStream, answering("another")));
    EXPECT_EQ("another", send(kStream, answering("another")));
}

// The wait of two seconds itself.
TEST_F(ClientEventsTest, AClientThatCameWhileTheOneBeforeWasAskedIsReached) {
    SilentClient& first = silent();
    const auto begin = std::chrono::steady_clock::now();
    PendingCall<std::string> event([&] { return send(kStream, first.call()); });
    first.waitUntilCalled();
    mEvents->onClientChanged(kStream);
    EXPECT_EQ("failed", event.get());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 2s);
    EXPECT_THAT(mWaits.steppedOver(), IsEmpty());
    EXPECT_EQ("another", send(kStream, answering("another")));
}

TEST_F(ClientEventsTest, TheLateAnswerOfAnEarlierClientDoesNotSpeakForTheNext) {
    SilentClient& first = silent();
    SilentClient& second = silent();
    EXPECT_EQ("failed", sendInVain(kStream, first));
    first.waitUntilCalled();
    mEvents->onClientChanged(kStream);
    EXPECT_EQ("failed", sendInVain(kStream, second));
    second.waitUntilCalled();
    first.answer();
    EXPECT_EQ("launched", send(kLauncher, answering("launched")));
    expectSenders(2);
    EXPECT_EQ("failed", send(kStream, answering("unheard")));
    second.answer();
    std::string answer = "failed";
    while (answer == "failed") answer = send(kStream, answering("prompt"));
    expectSenders(1);
}

TEST_F(ClientEventsTest, AClientMayCallBackAndCauseAnEvent) {
    const std::string answer = send(kStream, [this] {
        const std::thread::id sender = std::this_thread::get_id();
        std::thread::id nested;
        const std::string launched = send(kLauncher, [&] {
            nested = std::this_thread::get_id();
            return answering("launched")();
        });
        EXPECT_EQ(sender, nested);
        return answering("streams and " + launched)();
    });
    EXPECT_EQ("streams and launched", answer);
    EXPECT_EQ(1, senders());
}

TEST_F(ClientEventsTest, TwoThatSendWaitForEachOther) {
    SilentClient& client = silent();
    PendingCall<std::string> first([&] { return send(kStream, client.call("first")); });
    client.waitUntilCalled();
    PendingCall<std::string> second([&] { return send(kLauncher, answering("second")); });
    EXPECT_TRUE(second.isHeldUp());
    EXPECT_EQ(1, senders());
    client.answer();
    EXPECT_EQ("first", first.get());
    EXPECT_EQ("second", second.get());
    EXPECT_EQ(1, senders());
}

TEST_F(ClientEventsTest, AChangeOfTheClientWaitsForNobody) {
    SilentClient& client = silent();
    PendingCall<std::string> event([&] { return send(kStream, client.call("answered")); });
    client.waitUntilCalled();
    mEvents->onClientChanged(kStream);
    client.answer();
    EXPECT_EQ("answered", event.get());
}

TEST_F(ClientEventsTest, ItsThreadsEndWithItOnceTheirClientsHaveAnswered) {
    EXPECT_EQ("failed", sendInVain(kStream, silent()));
    EXPECT_EQ("failed", sendInVain(kLauncher, silent()));
    for (const auto& client : mClients) client->waitUntilCalled();
    mEvents.reset();
    EXPECT_EQ(2, senders());
    for (const auto& client : mClients) client->answer();
    expectSenders(0);
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
