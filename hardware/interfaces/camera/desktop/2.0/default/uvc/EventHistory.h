// SPDX-License-Identifier: Apache-2.0
// The last things that happened, for people who ask later.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** What may happen, with the meaning of its detail. Values are no part of any contract. */
enum class Event : uint8_t {
    NONE = 0,
    NODE_OPENED,        // the node's number
    NODE_UNOPENED,      // the node's number: it can't be opened
    NODE_REMOVED,       // the number of the node that was in use
    CABLE_PULLED,       // in the middle of a stream
    HOST_DISCONNECTED,  // the node has said so
    MODE_COMMITTED,     // -
    STREAM_STARTED,     // -
    STREAM_REFUSED,     // the node can't stream
    STREAM_STOPPED,     // -
    SURFACE_MADE,       // -
    SURFACE_REFUSED,    // -
    SURFACE_TAKEN,      // -
    FRAMES_SUSPENDED,   // -
    FRAMES_RESUMED,     // -
    CLIENT_REGISTERED,  // its kind
    CLIENT_LEFT,        // its kind
    CLIENT_DIED,        // its kind
    CLIENT_FAILED,      // its kind: a command didn't reach it
    CALL_FAILED,        // errno: of the node
    WRITES_GIVEN_UP,    // -
    DUMP_STARTED,       // -
};

/**
 * The last 32 events with their times. Any thread may add and read at any time: adding is two
 * relaxed atomic accesses. The same event again right after itself takes no new place, so a
 * failure at every frame doesn't push out what came before it. If two threads add at the very same
 * moment, one such repetition may be lost.
 */
class EventHistory {
  public:
    static constexpr size_t kEvents = 32;

    struct Entry {
        Event event;
        int32_t detail;
        /** How often it happened in a row, up to 255. */
        uint32_t times;
        /** When it last did, in milliseconds of the caller's clock. */
        int64_t ms;
    };

    /** @param detail kept from -8192 to 8191, and 0 outside
     *  @param ms from 0 on */
    void add(Event event, int32_t detail, int64_t ms);

    /** Copies the events, oldest first, and returns how many there are. */
    size_t read(std::array<Entry, kEvents>* entries) const;

  private:
    std::atomic<uint32_t> mNext{0};  // counts on beyond kEvents
    std::array<std::atomic<uint64_t>, kEvents> mPacked = {};
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
