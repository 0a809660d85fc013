// SPDX-License-Identifier: Apache-2.0
// Descriptors in native handles that cross between processes over the real driver.
#include <array>
#include <cstddef>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "TestObjects.h"

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::status_t;
using android::hardware::IBinder;
using android::hardware::Parcel;

class HwBinderDescriptorTest : public HwBinderTest {};

/** A native handle over descriptors that it doesn't own. */
std::unique_ptr<native_handle_t, int (*)(native_handle_t*)> makeHandle(int first, int second) {
    native_handle_t* handle = native_handle_create(2, 1);
    handle->data[0] = first;
    handle->data[1] = second;
    handle->data[2] = 77;
    return {handle, native_handle_delete};
}

int32_t countDescriptors() {
    DIR* directory = opendir("/proc/self/fd");
    int32_t count = 0;
    while (readdir(directory) != nullptr) count++;
    closedir(directory);
    return count;
}

bool isOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

enum Code : uint32_t { WRITE_INTO = 1, COUNT, GIVE_PIPE, WRITE_INTO_EMBEDDED };

struct Holder {
    const native_handle_t* handle;
};

status_t writeInto(const native_handle_t* handle) {
    EXPECT_EQ(2, handle->numFds);
    EXPECT_EQ(1, handle->numInts);
    EXPECT_EQ(77, handle->data[2]);
    return write(handle->data[1], "x", 1) == 1 ? OK : android::UNKNOWN_ERROR;
}

status_t givePipe(const Call& call) {
    std::array<int, 2> pipe;
    EXPECT_EQ(0, ::pipe(pipe.data()));
    EXPECT_EQ(1, write(pipe[1], "y", 1));
    const auto handle = makeHandle(pipe[0], pipe[1]);
    EXPECT_EQ(OK, call.reply->writeNativeHandleNoDup(handle.get()));
    call.sendReply();
    EXPECT_TRUE(isOpen(pipe[0]));
    close(pipe[0]);
    close(pipe[1]);
    return OK;
}

status_t answer(const Call& call) {
    const native_handle_t* handle = nullptr;
    switch (call.code) {
        case WRITE_INTO:
            EXPECT_EQ(OK, call.data.readNativeHandleNoDup(&handle));
            return writeInto(handle);
        case WRITE_INTO_EMBEDDED: {
            size_t parent;
            const void* holder;
            EXPECT_TRUE(call.data.enforceInterface("test"));
            EXPECT_EQ(OK, call.data.readBuffer(sizeof(Holder), &parent, &holder));
            EXPECT_EQ(OK, call.data.readEmbeddedNativeHandle(parent, 0, &handle));
            EXPECT_EQ(handle, static_cast<const Holder*>(holder)->handle);
            return writeInto(handle);
        }
        case COUNT:
            return call.reply->writeInt32(countDescriptors());
        case GIVE_PIPE:
            return givePipe(call);
    }
    return android::UNKNOWN_TRANSACTION;
}

int32_t countAt(const sp<IBinder>& object) {
    Parcel reply;
    EXPECT_EQ(OK, object->transact(COUNT, Parcel(), &reply));
    int32_t count = -1;
    EXPECT_EQ(OK, reply.readInt32(&count));
    return count;
}

char readByte(int descriptor) {
    char byte = 0;
    EXPECT_EQ(1, read(descriptor, &byte, 1));
    return byte;
}

TEST_F(HwBinderDescriptorTest, TheReceiverHasTheSameFileAndTheSenderKeepsItsOwn) {
    Server server(answer);
    runInProcess([] {
        std::array<int, 2> pipe;
        ASSERT_EQ(0, ::pipe(pipe.data()));
        const auto handle = makeHandle(pipe[0], pipe[1]);
        Parcel data;
        ASSERT_EQ(OK, data.writeNativeHandleNoDup(handle.get()));
        ASSERT_EQ(OK, Server::find()->transact(WRITE_INTO, data, nullptr));
        EXPECT_EQ('x', readByte(pipe[0]));
        EXPECT_TRUE(isOpen(pipe[1]));
    });
}

TEST_F(HwBinderDescriptorTest, AHandleInsideAStructIsPointedToByIt) {
    Server server(answer);
    runInProcess([] {
        std::array<int, 2> pipe;
        ASSERT_EQ(0, ::pipe(pipe.data()));
        const auto handle = makeHandle(pipe[0], pipe[1]);
        const Holder holder{handle.get()};
        Parcel data;
        size_t parent;
        data.writeInterfaceToken("test");
        ASSERT_EQ(OK, data.writeBuffer(&holder, sizeof(holder), &parent));
        ASSERT_EQ(OK, data.writeEmbeddedNativeHandle(handle.get(), parent, 0));
        ASSERT_EQ(OK, Server::find()->transact(WRITE_INTO_EMBEDDED, data, nullptr));
        EXPECT_EQ('x', readByte(pipe[0]));
    });
}

TEST_F(HwBinderDescriptorTest, ReceivedOnesCloseWithTheServersCall) {
    Server server(answer);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        std::array<int, 2> pipe;
        ASSERT_EQ(0, ::pipe(pipe.data()));
        const auto handle = makeHandle(pipe[0], pipe[1]);
        const int32_t before = countAt(object);
        for (int i = 0; i < 50; i++) {
            Parcel data;
            ASSERT_EQ(OK, data.writeNativeHandleNoDup(handle.get()));
            ASSERT_EQ(OK, object->transact(WRITE_INTO, data, nullptr));
        }
        EXPECT_EQ(before, countAt(object));
    });
}

TEST_F(HwBinderDescriptorTest, ReceivedOnesLiveAndCloseWithTheClientsReply) {
    Server server(answer);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        const int32_t before = countDescriptors();
        const int32_t beforeThere = countAt(object);
        {
            Parcel reply;
            const native_handle_t* handle;
            ASSERT_EQ(OK, object->transact(GIVE_PIPE, Parcel(), &reply));
            ASSERT_EQ(OK, reply.readNativeHandleNoDup(&handle));
            EXPECT_EQ('y', readByte(handle->data[0]));
            EXPECT_EQ(before + 2, countDescriptors());
        }
        EXPECT_EQ(before, countDescriptors());
        EXPECT_EQ(beforeThere, countAt(object));
    });
}

TEST_F(HwBinderDescriptorTest, AnUnreadReplyClosesThemToo) {
    Server server(answer);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        const int32_t before = countDescriptors();
        ASSERT_EQ(OK, object->transact(GIVE_PIPE, Parcel(), nullptr));
        EXPECT_EQ(before, countDescriptors());
    });
}

TEST_F(HwBinderDescriptorTest, ACloneOutlivesTheParcel) {
    Server server(answer);
    runInProcess([] {
        native_handle_t* clone;
        {
            Parcel reply;
            const native_handle_t* handle;
            ASSERT_EQ(OK, Server::find()->transact(GIVE_PIPE, Parcel(), &reply));
            ASSERT_EQ(OK, reply.readNativeHandleNoDup(&handle));
            clone = native_handle_clone(handle);
        }
        EXPECT_EQ('y', readByte(clone->data[0]));
        native_handle_close(clone);
        native_handle_delete(clone);
    });
}

TEST_F(HwBinderDescriptorTest, AClosedDescriptorFailsTheCallAndLeaksNothing) {
    Server server(answer);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        const int32_t before = countAt(object);
        const auto handle = makeHandle(STDOUT_FILENO, 999);
        Parcel data;
        ASSERT_EQ(OK, data.writeNativeHandleNoDup(handle.get()));
        EXPECT_EQ(android::FAILED_TRANSACTION, object->transact(WRITE_INTO, data, nullptr));
        EXPECT_EQ(before, countAt(object));
    });
}

}  // namespace
}  // namespace korvane::test
