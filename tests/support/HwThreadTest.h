// SPDX-License-Identifier: Apache-2.0
// What tests of a thread's conversation with a scripted driver share.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <hwbinder/Binder.h>
#include <hwbinder/IPCThreadState.h>
#include <hwbinder/Parcel.h>
#include <hwbinder/ProcessState.h>

#include "../../platform/libhidlbase/hwbinder/LocalNodes.h"
#include "support/LogRecorder.h"
#include "support/ScriptedBinder.h"

namespace korvane::test {

/** The contents of a call or reply: these words, which must stay valid, and no objects. */
inline binder_transaction_data contentsOf(const std::vector<uint32_t>& words) {
    binder_transaction_data contents{};
    contents.data_size = words.size() * sizeof(uint32_t);
    contents.data.ptr.buffer = reinterpret_cast<uintptr_t>(words.data());
    contents.data.ptr.offsets = contents.data.ptr.buffer + contents.data_size;
    return contents;
}

/** The same, claiming an object where there is none. */
inline binder_transaction_data damagedContents() {
    static const uint64_t sBytes[2] = {0, 0};
    binder_transaction_data contents{};
    contents.data_size = sizeof(uint64_t);
    contents.data.ptr.buffer = reinterpret_cast<uintptr_t>(&sBytes[0]);
    contents.offsets_size = sizeof(uint64_t);
    contents.data.ptr.offsets = reinterpret_cast<uintptr_t>(&sBytes[1]);
    return contents;
}

/** A reply with these words. */
inline BinderCommand replyOf(const std::vector<uint32_t>& words) {
    return {BR_REPLY, contentsOf(words)};
}

/** Answers calls with a function. */
class AnsweringObject : public android::hardware::BHwBinder {
  public:
    using Handler = std::function<android::status_t(const android::hardware::Parcel& data,
                                                    android::hardware::Parcel* reply,
                                                    const TransactCallback& send)>;
    explicit AnsweringObject(Handler handler) : mHandler(std::move(handler)) {}

  protected:
    android::status_t onTransact(uint32_t, const android::hardware::Parcel& data,
                                 android::hardware::Parcel* reply, uint32_t,
                                 TransactCallback callback) override {
        return mHandler(data, reply, callback);
    }

  private:
    const Handler mHandler;
};

/** The test's own thread, and the driver that it talks to. */
class HwThreadTest : public testing::Test {
  protected:
    using Numbers = std::vector<uint32_t>;

    void SetUp() override {
        mThread = android::hardware::IPCThreadState::self();
        mBinder.clear();
    }

    /** Publishes an object, which is kept until withdraw(); returns its name. */
    static uint64_t publish(const android::sp<android::hardware::BHwBinder>& object) {
        return android::hardware::ProcessState::self()->localNodes().publish(object);
    }
    static void withdraw(uint64_t name) {
        android::hardware::ProcessState::self()->localNodes().withdraw(name);
    }

    /** A call to a name, from process 42 of user 43. */
    static binder_transaction_data incoming(uint64_t name, binder_transaction_data contents,
                                            uint32_t flags = 0) {
        contents.target.ptr = name;
        contents.cookie = name;
        contents.code = 9;
        contents.flags = flags;
        contents.sender_pid = 42;
        contents.sender_euid = 43;
        return contents;
    }

    LogRecorder mLog;
    ScriptedBinder& mBinder = ScriptedBinder::ofThisProcess();
    android::hardware::IPCThreadState* mThread = nullptr;
    const std::vector<uint32_t> mWords = {11, 22};
};

}  // namespace korvane::test
