// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/AMessage.h"

#define LOG_TAG "AMessage"

#include <cerrno>
#include <utility>

#include <log/log.h>
#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AHandler.h>

namespace android {

AMessage::AMessage() = default;

AMessage::AMessage(uint32_t what, const sp<const AHandler>& handler) : mWhat(what) {
    setTarget(handler);
}

void AMessage::setTarget(const sp<const AHandler>& handler) {
    if (handler == nullptr) {
        mTarget = 0;
        mHandler.clear();
        mLooper.clear();
        return;
    }
    mTarget = handler->id();
    mHandler = handler->getHandler();
    mLooper = handler->getLooper();
}

void AMessage::setInt32(const char* name, int32_t value) {
    set(name, value);
}

void AMessage::setInt64(const char* name, int64_t value) {
    set(name, value);
}

void AMessage::setString(const char* name, const char* s, ssize_t len) {
    set(name, len < 0 ? AString(s) : AString(s, static_cast<size_t>(len)));
}

void AMessage::setString(const char* name, const AString& s) {
    set(name, s);
}

void AMessage::setObject(const char* name, const sp<RefBase>& obj) {
    set(name, obj);
}

bool AMessage::findInt32(const char* name, int32_t* value) const {
    return find(name, value);
}

bool AMessage::findInt64(const char* name, int64_t* value) const {
    return find(name, value);
}

bool AMessage::findString(const char* name, AString* value) const {
    return find(name, value);
}

bool AMessage::findObject(const char* name, sp<RefBase>* obj) const {
    return find(name, obj);
}

bool AMessage::contains(const char* name) const {
    return mValues.count(name) != 0;
}

void AMessage::clear() {
    mValues.clear();
}

status_t AMessage::post(int64_t delayUs) {
    const sp<ALooper> looper = mLooper.promote();
    if (looper == nullptr) {
        ALOGW("failed to post message as target looper for handler %d is gone.", mTarget);
        return -ENOENT;
    }
    looper->post(this, delayUs);
    return OK;
}

void AMessage::deliver() {
    const sp<AHandler> handler = mHandler.promote();
    if (handler == nullptr) {
        ALOGW("failed to deliver message as target handler %d is gone.", mTarget);
        return;
    }
    handler->onMessageReceived(this);
}

void AMessage::set(const char* name, Value value) {
    CHECK(mValues.size() < kMaxValues || contains(name));
    mValues[name] = std::move(value);
}

template <typename T>
bool AMessage::find(const char* name, T* value) const {
    const auto entry = mValues.find(name);
    if (entry == mValues.end()) return false;
    const T* stored = std::get_if<T>(&entry->second);
    if (stored == nullptr) return false;
    *value = *stored;
    return true;
}

}  // namespace android
