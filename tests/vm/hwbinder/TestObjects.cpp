// SPDX-License-Identifier: Apache-2.0
#include "TestObjects.h"

#include <cstdlib>
#include <utility>

#include <hwbinder/IPCThreadState.h>

namespace korvane::test {

using android::sp;
using android::status_t;
using android::hardware::IBinder;
using android::hardware::IPCThreadState;
using android::hardware::Parcel;
using android::hardware::ProcessState;

namespace {

enum DirectoryCode : uint32_t { PUT = 1, GET };

}  // namespace

TestObject::~TestObject() {
    if (mDestroyed != nullptr) mDestroyed->signal();
}

status_t TestObject::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags,
                                TransactCallback callback) {
    return mHandler({code, data, reply, flags, [&] { callback(*reply); }});
}

Directory::Directory() : mProcess([this] { serve(mStarted); }) {
    if (!mStarted.wait()) abort();
}

void Directory::serve(const Event& started) {
    std::map<std::string, sp<IBinder>> objects;
    const sp<TestObject> directory = new TestObject([&](const Call& call) {
        const char* name = call.data.readCString();
        if (call.code == GET) return call.reply->writeStrongBinder(objects[name]);
        return call.data.readNullableStrongBinder(&objects[name]);
    });
    // The driver frees the place of the suite before in its own time.
    IPCThreadState::self()->setTheContextObject(directory);
    const Event never;
    while (!ProcessState::self()->becomeContextManager()) never.wait(20);
    started.signal();
    serveAlone();
}

void Directory::put(const std::string& name, const sp<IBinder>& object) {
    Parcel data;
    Parcel reply;
    data.writeCString(name.c_str());
    data.writeStrongBinder(object);
    const sp<IBinder> directory = ProcessState::self()->getContextObject(nullptr);
    ASSERT_NE(nullptr, directory);
    ASSERT_EQ(android::OK, directory->transact(PUT, data, &reply));
}

void Directory::ask(const std::string& name, Parcel* answer) {
    Parcel data;
    data.writeCString(name.c_str());
    const sp<IBinder> directory = ProcessState::self()->getContextObject(nullptr);
    ASSERT_NE(nullptr, directory);
    ASSERT_EQ(android::OK, directory->transact(GET, data, answer));
}

sp<IBinder> Directory::get(const std::string& name) {
    Parcel answer;
    ask(name, &answer);
    sp<IBinder> object;
    EXPECT_EQ(android::OK, answer.readNullableStrongBinder(&object));
    return object;
}

Server::Server(TestObject::Handler handler)
    : mProcess([this, &handler] {
          Directory::put("server", new TestObject(std::move(handler)));
          mReady.signal();
          serveAlone();
      }) {
    if (!mReady.wait()) abort();
}

void serveAlone() {
    ProcessState::self()->setThreadPoolConfiguration(1, true);
    ProcessState::self()->startThreadPool();
    IPCThreadState::self()->joinThreadPool();
    abort();
}

void startPool(size_t threads) {
    ProcessState::self()->setThreadPoolConfiguration(threads, false);
    ProcessState::self()->startThreadPool();
}

status_t call(const sp<IBinder>& object, uint32_t code, uint32_t flags) {
    Parcel reply;
    return object->transact(code, Parcel(), &reply, flags);
}

std::unique_ptr<Directory> HwBinderTest::sDirectory;

}  // namespace korvane::test
