// SPDX-License-Identifier: Apache-2.0
// Events on their way to the clients, none of which may hold up the sender.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <android-base/thread_annotations.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Makes calls to clients, one after the other, and waits for each, but no longer than kAnswerTime:
 * a client that doesn't answer in that time has failed, and its late answer is dropped. Until it
 * has answered, or has died, or another client has taken its kind, further events to the kind fail
 * at once.
 *
 * The calls are made on a thread of this object's own, started with the first event. A client may
 * call back meanwhile: that thread serves it, since it is the one that waits in binder; so it holds
 * no lock over a call. While a client that hasn't answered keeps it, an event to another client
 * gets a thread for itself, one at a time for each kind. Threads outlive this object while a client
 * keeps them.
 *
 * Thread-safe. send() waits for the calls before its own and for the client, so its caller must not
 * hold a lock that a client may need for an answer; onClientChanged() waits for nobody.
 */
class ClientEvents {
  public:
    static constexpr std::chrono::seconds kAnswerTime{2};

    /** How a call ended. One that wasn't answered in time has failed, too. */
    struct Answer {
        std::string text;
        bool failed = false;
        bool isDead = false;  // failed because the client is dead
    };
    using Call = std::function<Answer()>;

    ClientEvents();
    /** Threads end, those that wait for a client once it has answered. */
    ~ClientEvents();
    ClientEvents(const ClientEvents&) = delete;
    ClientEvents& operator=(const ClientEvents&) = delete;

    /**
     * Makes the call, once, to the client of this kind, and returns its answer. From within
     * another call, when the client has called back, it is made at once and on the same thread.
     */
    Answer send(uint8_t kind, const Call& call) EXCLUDES(mTurn);

    /** A kind has another client, or none: what the last one left unanswered no longer counts. */
    void onClientChanged(uint8_t kind);

  private:
    class Senders;

    std::mutex mTurn;  // held by the caller whose event is under way
    const std::shared_ptr<Senders> mSenders;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
