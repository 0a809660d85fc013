// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <cutils/uevent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/UeventSender.h"

namespace {

using android::base::unique_fd;
using korvane::test::enterPrivateNetwork;
using korvane::test::UeventSender;
using testing::Each;
using testing::ElementsAre;
using testing::StartsWith;

constexpr int kBufferSize = 64 * 1024;
const std::vector<std::string> kDisconnected = {"change@/devices/virtual/android_usb/android0",
                                                "ACTION=change", "USB_STATE=DISCONNECTED"};

int readReceiveLimit() {
    int limit = 0;
    std::ifstream("/proc/sys/net/core/rmem_max") >> limit;
    return limit;
}

// Read before a test enters a network namespace: 6.1 shows it only in the machine's own.
const int kReceiveLimit = readReceiveLimit();

int receiveBufferOf(int socket) {
    int size = 0;
    socklen_t length = sizeof(size);
    EXPECT_EQ(0, getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, &length));
    return size;
}

std::vector<std::string> split(const char* data, ssize_t size) {
    std::vector<std::string> result;
    for (const char* at = data; at < data + size; at += result.back().size() + 1) {
        result.emplace_back(at);
    }
    return result;
}

class UeventTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!enterPrivateNetwork()) {
            GTEST_SKIP() << "needs root to make a network namespace: " << strerror(errno);
        }
    }

    unique_fd openSocket(bool passcred = true) {
        unique_fd socket(uevent_open_socket(kBufferSize, passcred));
        EXPECT_NE(-1, socket.get()) << strerror(errno);
        EXPECT_EQ(0, fcntl(socket.get(), F_SETFL, O_NONBLOCK));  // so that no test hangs
        return socket;
    }

    ssize_t receive(int socket, size_t length) {
        mBuffer.fill('x');
        return uevent_kernel_multicast_recv(socket, mBuffer.data(), length);
    }

    ssize_t receive(int socket) { return receive(socket, mBuffer.size()); }

    std::array<char, 1024> mBuffer;
};

TEST_F(UeventTest, OpensASocketThatIsClosedOnExec) {
    const unique_fd socket = openSocket();
    EXPECT_EQ(FD_CLOEXEC, fcntl(socket.get(), F_GETFD));
}

TEST_F(UeventTest, OpensABlockingSocket) {
    const unique_fd socket(uevent_open_socket(kBufferSize, true));
    EXPECT_EQ(0, fcntl(socket.get(), F_GETFL) & O_NONBLOCK);
}

TEST_F(UeventTest, JoinsAllGroupsUnderAPortThatTheKernelChose) {
    const unique_fd first = openSocket();
    const unique_fd second = openSocket();
    sockaddr_nl addresses[2] = {};
    socklen_t length = sizeof(sockaddr_nl);
    ASSERT_EQ(0, getsockname(first.get(), reinterpret_cast<sockaddr*>(&addresses[0]), &length));
    ASSERT_EQ(0, getsockname(second.get(), reinterpret_cast<sockaddr*>(&addresses[1]), &length));
    EXPECT_EQ(0xffffffffu, addresses[0].nl_groups);
    EXPECT_NE(0u, addresses[0].nl_pid);
    EXPECT_NE(addresses[0].nl_pid, addresses[1].nl_pid);
}

TEST_F(UeventTest, GivesTheSocketTheBufferAskedFor) {
    const unique_fd socket = openSocket();
    EXPECT_GE(receiveBufferOf(socket.get()), 2 * kBufferSize);
}

TEST_F(UeventTest, ExceedsTheLimitOfReceiveBuffersForRoot) {
    ASSERT_LT(0, kReceiveLimit);
    const unique_fd socket(uevent_open_socket(4 * kReceiveLimit, true));
    ASSERT_NE(-1, socket.get()) << strerror(errno);
    EXPECT_GE(receiveBufferOf(socket.get()), 8 * kReceiveLimit);
}

TEST_F(UeventTest, FailsToExceedTheLimitOfReceiveBuffersForAUser) {
    ASSERT_LT(0, kReceiveLimit);
    ASSERT_EQ(0, seteuid(65534));
    const int socket = uevent_open_socket(4 * kReceiveLimit, true);
    const int error = errno;
    const unique_fd small(uevent_open_socket(kBufferSize, true));
    ASSERT_EQ(0, seteuid(0));
    EXPECT_EQ(-1, socket);
    EXPECT_EQ(EPERM, error);
    EXPECT_NE(-1, small.get());
}

TEST_F(UeventTest, DeliversTheStringsOfAnEventOfTheKernel) {
    const unique_fd socket = openSocket();
    ASSERT_TRUE(UeventSender().send(kDisconnected)) << strerror(errno);
    const ssize_t size = receive(socket.get());
    ASSERT_GT(size, 0) << strerror(errno);
    EXPECT_EQ('\0', mBuffer[size - 1]);
    EXPECT_EQ('x', mBuffer[size]);
    EXPECT_THAT(split(mBuffer.data(), size), ElementsAre(kDisconnected[0], kDisconnected[1],
                                                         kDisconnected[2], StartsWith("SEQNUM=")));
}

TEST_F(UeventTest, DeliversOneEventAtATime) {
    const unique_fd socket = openSocket();
    UeventSender sender;
    ASSERT_TRUE(sender.send({"add@/one"}));
    ASSERT_TRUE(sender.send({"add@/two"}));
    ASSERT_GT(receive(socket.get()), 0);
    EXPECT_STREQ("add@/one", mBuffer.data());
    ASSERT_GT(receive(socket.get()), 0);
    EXPECT_STREQ("add@/two", mBuffer.data());
    EXPECT_EQ(-1, receive(socket.get()));
    EXPECT_EQ(EAGAIN, errno);
}

TEST_F(UeventTest, CutsAnEventThatIsLongerThanTheBuffer) {
    const unique_fd socket = openSocket();
    ASSERT_TRUE(UeventSender().send(kDisconnected));
    ASSERT_EQ(10, receive(socket.get(), 10));
    EXPECT_EQ("change@/de", std::string(mBuffer.data(), 10));
    EXPECT_EQ('x', mBuffer[10]);
}

TEST_F(UeventTest, TellsTheUserOfAnEvent) {
    const unique_fd socket = openSocket();
    ASSERT_TRUE(UeventSender().send(kDisconnected));
    uid_t uid = 4711;
    EXPECT_GT(uevent_kernel_multicast_uid_recv(socket.get(), mBuffer.data(), mBuffer.size(), &uid),
              0);
    EXPECT_EQ(0u, uid);
}

TEST_F(UeventTest, RefusesEveryEventWithoutCredentials) {
    const unique_fd socket = openSocket(false);
    ASSERT_TRUE(UeventSender().send(kDisconnected));
    uid_t uid = 4711;
    mBuffer.fill('x');
    EXPECT_EQ(-1,
              uevent_kernel_multicast_uid_recv(socket.get(), mBuffer.data(), mBuffer.size(), &uid));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(static_cast<uid_t>(-1), uid);
    EXPECT_THAT(mBuffer, Each('\0'));
}

// Sends without the kernel in between, as udevd does to group 2.
void sendAsUser(uint32_t pid, uint32_t groups) {
    const unique_fd socket(::socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl receiver = {};
    receiver.nl_family = AF_NETLINK;
    receiver.nl_pid = pid;
    receiver.nl_groups = groups;
    constexpr char kData[] = "add@/forged";
    ASSERT_EQ(static_cast<ssize_t>(sizeof(kData)),
              sendto(socket.get(), kData, sizeof(kData), 0,
                     reinterpret_cast<const sockaddr*>(&receiver), sizeof(receiver)))
            << strerror(errno);
}

TEST_F(UeventTest, RefusesAUsersMulticastAndLeavesNothingOfIt) {
    const unique_fd socket = openSocket();
    sendAsUser(0, 2);
    EXPECT_EQ(-1, receive(socket.get()));
    EXPECT_EQ(EIO, errno);
    EXPECT_THAT(mBuffer, Each('\0'));
}

TEST_F(UeventTest, RefusesAUsersUnicastEvenWhereNoGroupIsAskedFor) {
    const unique_fd socket = openSocket();
    sockaddr_nl own = {};
    socklen_t length = sizeof(own);
    ASSERT_EQ(0, getsockname(socket.get(), reinterpret_cast<sockaddr*>(&own), &length));
    sendAsUser(own.nl_pid, 0);
    uid_t uid = 4711;
    EXPECT_EQ(-1, uevent_kernel_recv(socket.get(), mBuffer.data(), mBuffer.size(), false, &uid));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(0u, uid);
}

// The acknowledgement of an own message is the one thing that the kernel sends to a single socket.
ssize_t receiveAnAcknowledgement(bool requireGroup, char* buffer, size_t length) {
    const unique_fd socket(uevent_open_socket(kBufferSize, true));
    nlmsghdr message = {};
    message.nlmsg_len = sizeof(message);
    message.nlmsg_type = NLMSG_NOOP;  // nothing to broadcast, only to acknowledge
    message.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    EXPECT_EQ(static_cast<ssize_t>(sizeof(message)),
              sendto(socket.get(), &message, sizeof(message), 0,
                     reinterpret_cast<const sockaddr*>(&kernel), sizeof(kernel)));
    uid_t uid;
    return uevent_kernel_recv(socket.get(), buffer, length, requireGroup, &uid);
}

TEST_F(UeventTest, RefusesAUnicastOfTheKernelWhereAGroupIsAskedFor) {
    EXPECT_EQ(-1, receiveAnAcknowledgement(true, mBuffer.data(), mBuffer.size()));
    EXPECT_EQ(EIO, errno);
}

TEST_F(UeventTest, DeliversAUnicastOfTheKernelWhereNoGroupIsAskedFor) {
    ASSERT_GE(receiveAnAcknowledgement(false, mBuffer.data(), mBuffer.size()),
              static_cast<ssize_t>(sizeof(nlmsghdr)));
    nlmsghdr header;
    memcpy(&header, mBuffer.data(), sizeof(header));
    EXPECT_EQ(NLMSG_ERROR, header.nlmsg_type);
}

TEST_F(UeventTest, ReportsAnOverflowOfTheSocket) {
    const unique_fd socket(uevent_open_socket(1, true));
    ASSERT_EQ(0, fcntl(socket.get(), F_SETFL, O_NONBLOCK));
    UeventSender sender;
    for (int i = 0; i < 100; ++i) sender.send(kDisconnected);
    while (receive(socket.get()) > 0) {
    }
    EXPECT_EQ(ENOBUFS, errno);
}

TEST(UeventSocketTest, ReportsWhatIsNoSocket) {
    char buffer[16];
    EXPECT_EQ(-1, uevent_kernel_multicast_recv(-1, buffer, sizeof(buffer)));
    EXPECT_EQ(EBADF, errno);
}

}  // namespace
