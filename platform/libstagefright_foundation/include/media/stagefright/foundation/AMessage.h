// SPDX-License-Identifier: Apache-2.0
// A message to a handler, with named values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <variant>

#include <media/stagefright/foundation/ABase.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

struct AHandler;

/**
 * What happened (`what()`) and named, typed values. Posted, it goes to its target on the thread of
 * the target's looper.
 *
 * Target and looper are taken when the message is made or setTarget() is called, and held weakly:
 * a message made for a handler that is not registered yet can never be posted.
 *
 * Not thread-safe; a message that was posted belongs to its receiver.
 */
struct AMessage : public RefBase {
    AMessage();
    AMessage(uint32_t what, const sp<const AHandler>& handler);

    void setWhat(uint32_t what) { mWhat = what; }
    uint32_t what() const { return mWhat; }

    /** A null handler leaves the message without a target. */
    void setTarget(const sp<const AHandler>& handler);

    // A value of the same name is replaced, whatever its type. A message holds up to 256 values;
    // one more is a fatal error.
    void setInt32(const char* name, int32_t value);
    void setInt64(const char* name, int64_t value);
    void setString(const char* name, const char* s, ssize_t len = -1);
    void setString(const char* name, const AString& s);
    void setObject(const char* name, const sp<RefBase>& obj);

    // True when there is a value of that name and exactly that type; `value` is untouched if not.
    bool findInt32(const char* name, int32_t* value) const;
    bool findInt64(const char* name, int64_t* value) const;
    bool findString(const char* name, AString* value) const;
    bool findObject(const char* name, sp<RefBase>* obj) const;

    /** Whether there is a value of that name, of any type. */
    bool contains(const char* name) const;

    /** Removes all values; `what` and the target stay. */
    void clear();

    /**
     * Queues the message for delivery after `delayUs` microseconds, at once for 0 and below.
     *
     * @return OK, or -ENOENT when the target has no looper or its looper is gone.
     */
    status_t post(int64_t delayUs = 0);

  protected:
    ~AMessage() override = default;

  private:
    friend struct ALooper;  // delivers

    using Value = std::variant<int32_t, int64_t, AString, sp<RefBase>>;
    static constexpr size_t kMaxValues = 256;

    void deliver();

    void set(const char* name, Value value);
    template <typename T>
    bool find(const char* name, T* value) const;

    uint32_t mWhat = 0;
    ALooper::handler_id mTarget = 0;
    wp<AHandler> mHandler;
    wp<ALooper> mLooper;
    std::map<std::string, Value> mValues;

    DISALLOW_EVIL_CONSTRUCTORS(AMessage);
};

}  // namespace android
