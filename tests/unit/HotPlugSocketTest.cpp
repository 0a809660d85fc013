// SPDX-License-Identifier: Apache-2.0
// The hot-plug monitor's socket and messages, against the kernel's own event broadcast.
#include <cerrno>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cutils/uevent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/DescriptorZero.h"
#include "support/LogRecorder.h"
#include "support/MockHotPlugListener.h"
#include "support/UeventSender.h"
#include "uvc/HotPlugCtrl.h"

namespace {

// Results that the kernel cannot be brought to give; the receive calls take them before its own.
std::deque<ssize_t> sResults;
std::string sReceived;  // what these put into the buffer
std::vector<size_t> sLengths;
std::string sBehind;  // the two bytes after what may be received

}  // namespace

extern "C" ssize_t __real_uevent_kernel_multicast_recv(int socket, void* buffer, size_t length);

extern "C" ssize_t __wrap_uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    sLengths.push_back(length);
    sBehind.assign(static_cast<const char*>(buffer) + length, 2);
    if (sResults.empty()) return __real_uevent_kernel_multicast_recv(socket, buffer, length);
    const ssize_t result = sResults.front();
    sResults.pop_front();
    memcpy(buffer, sReceived.data(), sReceived.size());
    errno = ENOBUFS;
    return result;
}

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using test::DescriptorZero;
using test::enterPrivateNetwork;
using test::LogLine;
using test::LogRecorder;
using test::MockHotPlugListener;
using test::UeventSender;
using testing::InSequence;
using testing::Return;
using testing::StrEq;
using testing::StrictMock;

constexpr auto kReadable = PollableDev::DATA_READABLE;
const std::vector<std::string> kDisconnected = {"change@/devices/virtual/android_usb/android0",
                                                "ACTION=change", "SUBSYSTEM=android_usb",
                                                "USB_STATE=DISCONNECTED"};

std::vector<std::string> removed(const std::string& devName) {
    return {"remove@/devices/video", "ACTION=remove", "SUBSYSTEM=video4linux",
            "DEVNAME=" + devName};
}

template <typename T>
std::vector<T> concatenated(std::vector<T> first, const std::vector<T>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class HotPlugSocketTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!enterPrivateNetwork()) {
            GTEST_SKIP() << "needs root to make a network namespace: " << strerror(errno);
        }
        sResults.clear();
        sReceived.clear();
        sLengths.clear();
        ASSERT_EQ(0, mHotPlug.open());
    }

    int option(int name) {
        int value = -1;
        socklen_t length = sizeof(value);
        EXPECT_EQ(0, getsockopt(mHotPlug.fd, SOL_SOCKET, name, &value, &length));
        return value;
    }

    void send(const std::vector<std::string>& strings) {
        ASSERT_TRUE(UeventSender().send(strings)) << strerror(errno);
    }

    void expectOnlyError(const std::string& message) {
        EXPECT_EQ((std::vector<LogLine>{{ANDROID_LOG_ERROR, "UVC-HotPlugCtrl", message}}),
                  mLog.lines());
    }

    LogRecorder mLog;
    StrictMock<MockHotPlugListener> mListener;
    HotPlugCtrl mHotPlug{&mListener};
};

// --- The socket ---

TEST_F(HotPlugSocketTest, OpensANonBlockingSocketWithCredentials) {
    EXPECT_GE(mHotPlug.fd, 0);
    EXPECT_EQ(O_RDWR | O_NONBLOCK, fcntl(mHotPlug.fd, F_GETFL));
    EXPECT_EQ(1, option(SO_PASSCRED));
    EXPECT_EQ(2 * 65536, option(SO_RCVBUF));  // the kernel doubles what it is asked for
}

TEST_F(HotPlugSocketTest, ClosesTheSocketInTheEnd) {
    int fd = -1;
    {
        HotPlugCtrl other(&mListener);
        ASSERT_EQ(0, other.open());
        fd = other.fd;
        ASSERT_NE(-1, fcntl(fd, F_GETFD));
    }
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
}

TEST_F(HotPlugSocketTest, DescriptorZeroIsASocketLikeAnyOther) {
    const DescriptorZero zero;
    {
        HotPlugCtrl other(&mListener);
        EXPECT_EQ(0, other.open());
        EXPECT_EQ(O_RDWR | O_NONBLOCK, fcntl(STDIN_FILENO, F_GETFL));
    }
    EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(HotPlugSocketTest, ReportsThatTheSocketCannotBeOpened) {
    rlimit limit;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const rlimit none = {0, limit.rlim_max};
    HotPlugCtrl other(&mListener);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const int result = other.open();
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_EQ(-5, result);
    EXPECT_EQ(-1, other.fd);
    EXPECT_TRUE(mLog.lines().empty());
}

// --- Messages ---

TEST_F(HotPlugSocketTest, HandlesAnEventOfTheKernel) {
    send(kDisconnected);
    EXPECT_CALL(mListener, onUsbDisconnected()).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
    EXPECT_TRUE(mLog.lines().empty());
    EXPECT_EQ(std::vector<size_t>{1024}, sLengths);
}

TEST_F(HotPlugSocketTest, ReadsWhateverItIsToldIsPending) {
    send(kDisconnected);
    send(kDisconnected);
    EXPECT_CALL(mListener, onUsbDisconnected()).Times(2).WillRepeatedly(Return(0));
    EXPECT_EQ(0, mHotPlug.handlePendingData(PollableDev::DATA_WRITABLE));
    EXPECT_EQ(0, mHotPlug.handlePendingData(PollableDev::DATA_EXCEPTION));
}

TEST_F(HotPlugSocketTest, HandlesOneMessageAtATime) {
    send(removed("video1"));
    send(removed("video2"));
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("video1"))).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
    testing::Mock::VerifyAndClearExpectations(&mListener);
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("video2"))).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
}

TEST_F(HotPlugSocketTest, HandlesEveryEventOfAMessage) {
    auto strings = removed("video3");
    strings.push_back("SEQNUM=7");
    send(concatenated(strings, kDisconnected));
    InSequence inSequence;
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("video3"))).WillOnce(Return(0));
    EXPECT_CALL(mListener, onUsbDisconnected()).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
}

TEST_F(HotPlugSocketTest, CarriesNoFieldIntoTheNextEvent) {
    auto strings = removed("video3");
    strings.push_back("SEQNUM=7");
    send(concatenated(strings, {"DEVNAME=video4"}));
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("video3"))).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
}

TEST_F(HotPlugSocketTest, LeavesTheRestOfAMessageWhenAnEventFails) {
    auto strings = removed("video3");
    strings.push_back("SEQNUM=7");
    send(concatenated(strings, kDisconnected));
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("video3"))).WillOnce(Return(-7));
    EXPECT_EQ(-7, mHotPlug.handlePendingData(kReadable));
}

TEST_F(HotPlugSocketTest, HandlesWhatFitsOfAMessageThatIsCut) {
    for (size_t padding : {900u, 950u, 1024u, 1800u}) {
        auto strings = kDisconnected;
        strings.push_back("PADDING=" + std::string(padding, 'x'));
        send(strings);
        EXPECT_CALL(mListener, onUsbDisconnected()).WillOnce(Return(0));
        EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable)) << padding;
        testing::Mock::VerifyAndClearExpectations(&mListener);
    }
}

TEST_F(HotPlugSocketTest, HandlesAValueThatIsCut) {
    // 1024 bytes end within the name, with no NUL after them.
    auto strings = removed("video");
    const size_t size = strings[0].size() + strings[1].size() + strings[2].size() + 3;
    strings[3] = "DEVNAME=" + std::string(1500, 'v');
    send(strings);
    const std::string cut(1024 - size - strlen("DEVNAME="), 'v');
    EXPECT_CALL(mListener, onV4l2Removed(StrEq(cut))).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
}

TEST_F(HotPlugSocketTest, LogsThatThereIsNoMessage) {
    EXPECT_EQ(-22, mHotPlug.handlePendingData(kReadable));
    expectOnlyError("no msg received " + std::to_string(EAGAIN));
}

TEST_F(HotPlugSocketTest, LogsThatTheSocketIsClosed) {
    HotPlugCtrl closed(&mListener);
    EXPECT_EQ(-22, closed.handlePendingData(kReadable));
    expectOnlyError("no msg received " + std::to_string(EBADF));
}

TEST_F(HotPlugSocketTest, TakesAnEmptyMessageForNone) {
    sResults = {0};
    EXPECT_EQ(-22, mHotPlug.handlePendingData(kReadable));
    expectOnlyError("no msg received " + std::to_string(ENOBUFS));
}

TEST_F(HotPlugSocketTest, TakesAMessageOfOneByteForOneWithoutEvents) {
    sResults = {1};
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(HotPlugSocketTest, HandlesNothingOfATooLongMessage) {
    sResults = {1025, 0};
    for (const std::string& field : kDisconnected) sReceived += field + '\0';
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
    expectOnlyError("overflow message, discard.");
}

TEST_F(HotPlugSocketTest, DiscardsAllThatIsPendingAfterATooLongMessage) {
    sResults = {1025, 10, 1024, 1, 0, 10};
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
    expectOnlyError("overflow message, discard.");
    EXPECT_EQ(std::vector<size_t>(5, 1024), sLengths);
}

TEST_F(HotPlugSocketTest, StopsDiscardingWhenReceivingFails) {
    sResults = {1026, 10, -1, 10};
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
    EXPECT_EQ(3u, sLengths.size());
}

TEST_F(HotPlugSocketTest, TakesAMessageAsLongAsTheBufferForComplete) {
    sResults = {1024};
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
    EXPECT_TRUE(mLog.lines().empty());
}

// Fills the part of the stack that the next call will use.
[[gnu::noinline]] void soilTheStack() {
    volatile char soiled[16384];
    for (volatile char& byte : soiled) byte = '\xff';
}

// Which ends a message that has no NUL of its own.
TEST_F(HotPlugSocketTest, KeepsAnEmptyStringAfterTheLongestMessage) {
    sResults = {1024};
    soilTheStack();
    EXPECT_EQ(0, mHotPlug.handlePendingData(kReadable));
    EXPECT_EQ(std::string(2, '\0'), sBehind);
}

TEST_F(HotPlugSocketTest, ReadsMessagesEvenWithoutAListener) {
    HotPlugCtrl alone(nullptr);
    ASSERT_EQ(0, alone.open());
    send(removed("video5"));  // which would be logged if it was handled
    EXPECT_EQ(0, alone.handlePendingData(kReadable));
    EXPECT_EQ((std::vector<LogLine>{{ANDROID_LOG_DEBUG, "UVC-HotPlugCtrl", "no listener"}}),
              mLog.lines());
    mLog.clear();
    EXPECT_EQ(-22, alone.handlePendingData(kReadable));
    expectOnlyError("no msg received " + std::to_string(EAGAIN));
}

TEST_F(HotPlugSocketTest, DiscardsATooLongMessageEvenWithoutAListener) {
    HotPlugCtrl alone(nullptr);
    sResults = {1025, 10, 0};
    EXPECT_EQ(0, alone.handlePendingData(kReadable));
    expectOnlyError("overflow message, discard.");
    EXPECT_EQ(3u, sLengths.size());
}

// --- Parsing ---

class UEventTest : public testing::Test {
  protected:
    // The literal's own NUL is the empty string that ends a message.
    template <size_t size>
    void parse(const char (&message)[size]) {
        mMessage.assign(message, size);
        mNext = mHotPlug.parseUEvent(mMessage.data(), &mEvent);
    }

    // Where parsing goes on, from the start of the message; -1 when it doesn't.
    ptrdiff_t next() const { return mNext == nullptr ? -1 : mNext - mMessage.data(); }

    HotPlugCtrl mHotPlug{nullptr};
    HotPlugCtrl::UEventObj mEvent;
    std::string mMessage;
    const char* mNext = nullptr;
};

TEST_F(UEventTest, PointsTheFieldsIntoTheMessage) {
    parse("add@/d\0ACTION=add\0SUBSYSTEM=video4linux\0DEVNAME=video2\0USB_STATE=X\0SEQNUM=1\0");
    EXPECT_STREQ("add", mEvent.action);
    EXPECT_STREQ("video4linux", mEvent.subsystem);
    EXPECT_STREQ("video2", mEvent.devName);
    EXPECT_STREQ("X", mEvent.usbState);
    EXPECT_EQ(mMessage.data() + strlen("add@/d") + 1 + strlen("ACTION="), mEvent.action);
}

TEST_F(UEventTest, StopsAfterTheSequenceNumber) {
    parse("SEQNUM=1\0ACTION=add\0");
    EXPECT_EQ(9, next());
    EXPECT_EQ(nullptr, mEvent.action);
}

TEST_F(UEventTest, PointsToTheEndWhenNothingFollowsTheSequenceNumber) {
    parse("ACTION=add\0SEQNUM=1\0");
    EXPECT_EQ(20, next());
    EXPECT_EQ('\0', *mNext);
}

TEST_F(UEventTest, KeepsWhatItFoundWithoutASequenceNumber) {
    parse("ACTION=add\0DEVNAME=video2\0");
    EXPECT_EQ(-1, next());
    EXPECT_STREQ("add", mEvent.action);
    EXPECT_STREQ("video2", mEvent.devName);
}

TEST_F(UEventTest, FindsNothingInAnEmptyMessage) {
    parse("\0ACTION=add\0");
    EXPECT_EQ(-1, next());
    EXPECT_EQ(nullptr, mEvent.action);
}

TEST_F(UEventTest, LeavesFieldsAloneThatTheEventHasNot) {
    mEvent.devName = "before";
    parse("ACTION=add\0SEQNUM=1\0");
    EXPECT_STREQ("before", mEvent.devName);
    EXPECT_EQ(nullptr, mEvent.subsystem);
}

TEST_F(UEventTest, TakesTheLastOfSeveralValues) {
    parse("DEVNAME=video1\0DEVNAME=video2\0SEQNUM=1\0");
    EXPECT_STREQ("video2", mEvent.devName);
}

TEST_F(UEventTest, TakesEmptyValues) {
    parse("USB_STATE=\0SEQNUM=1\0");
    EXPECT_STREQ("", mEvent.usbState);
}

TEST_F(UEventTest, KnowsKeysOnlyAtTheStartOfAString) {
    parse("XACTION=add\0action=add\0ACTION\0DEVNAME:video1\0SEQNUMBER=1\0USB_STATE=X\0SEQNUM=1\0");
    EXPECT_STREQ("X", mEvent.usbState);
    EXPECT_EQ(nullptr, mEvent.action);
    EXPECT_EQ(nullptr, mEvent.devName);
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
