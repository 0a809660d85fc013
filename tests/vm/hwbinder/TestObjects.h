// SPDX-License-Identifier: Apache-2.0
// Objects to be called in tests, and the directory where processes find each other's.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <hwbinder/Binder.h>
#include <hwbinder/Parcel.h>
#include <hwbinder/ProcessState.h>

#include "TestProcesses.h"

namespace korvane::test {

/** What a call brings to its object. */
struct Call {
    uint32_t code;
    const android::hardware::Parcel& data;
    android::hardware::Parcel* reply;
    uint32_t flags;
    /** Sends reply now. */
    std::function<void()> sendReply;
};

/** An object that answers every call by one function, and may tell when it is destroyed. */
class TestObject : public android::hardware::BHwBinder {
  public:
    using Handler = std::function<android::status_t(const Call& call)>;

    explicit TestObject(Handler handler, const Event* destroyed = nullptr)
        : mHandler(std::move(handler)), mDestroyed(destroyed) {}

  protected:
    ~TestObject() override;

    android::status_t onTransact(uint32_t code, const android::hardware::Parcel& data,
                                 android::hardware::Parcel* reply, uint32_t flags,
                                 TransactCallback callback) override;

  private:
    const Handler mHandler;
    const Event* const mDestroyed;
};

/** The context object of these tests: keeps objects by name. */
class Directory {
  public:
    /** Starts its process; it serves until the object goes. */
    Directory();

    /** Called by any process: puts an object (null removes), gets one or null. */
    static void put(const std::string& name, const android::sp<android::hardware::IBinder>& object);
    static android::sp<android::hardware::IBinder> get(const std::string& name);
    /** The same, unread: the answer that holds the object. */
    static void ask(const std::string& name, android::hardware::Parcel* answer);

  private:
    static void serve(const Event& started);

    Event mStarted;
    TestProcess mProcess;
};

/**
 * A process that puts one object to the directory under "server" and serves calls to it with its
 * main thread alone. Constructed in the test, it is ready when the constructor returns.
 */
class Server {
  public:
    explicit Server(TestObject::Handler handler);

    void kill() { mProcess.kill(); }
    pid_t pid() const { return mProcess.pid(); }

    /** The server's object, in a client's process. */
    static android::sp<android::hardware::IBinder> find() { return Directory::get("server"); }

  private:
    Event mReady;
    TestProcess mProcess;
};

/** The thread pool of a process: the caller and nobody else, or so many without the caller. */
[[noreturn]] void serveAlone();
void startPool(size_t threads);

/** One call without arguments; its status. */
android::status_t call(const android::sp<android::hardware::IBinder>& object, uint32_t code = 1,
                       uint32_t flags = 0);

/** A fixture with a directory for the whole suite. */
class HwBinderTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { sDirectory = std::make_unique<Directory>(); }
    static void TearDownTestSuite() { sDirectory = nullptr; }

  private:
    static std::unique_ptr<Directory> sDirectory;
};

}  // namespace korvane::test
