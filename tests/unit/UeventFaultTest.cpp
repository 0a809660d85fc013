// SPDX-License-Identifier: Apache-2.0
// A netlink socket of which each call fails in turn: the opener says so and leaves nothing open.
#include <cerrno>
#include <cstring>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cutils/uevent.h>
#include <gtest/gtest.h>

#include "support/OpenDescriptors.h"

namespace {

// The call that fails, and how often it does before it works.
const char* sFailing = "";
int sError = 0;
int sTimes = 0;
// What a message's control data claims to be instead of credentials.
int sControlType = SCM_CREDENTIALS;

bool failsNow(const char* name) {
    if (strcmp(sFailing, name) != 0 || sTimes == 0) return false;
    --sTimes;
    errno = sError;
    return true;
}

}  // namespace

extern "C" {

int __real_socket(int domain, int type, int protocol);
int __real_setsockopt(int fd, int level, int name, const void* value, socklen_t length);
int __real_getsockopt(int fd, int level, int name, void* value, socklen_t* length);
int __real_bind(int fd, const sockaddr* address, socklen_t length);

int __wrap_socket(int domain, int type, int protocol) {
    return failsNow("socket") ? -1 : __real_socket(domain, type, protocol);
}
int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t length) {
    return failsNow("setsockopt") ? -1 : __real_setsockopt(fd, level, name, value, length);
}
int __wrap_getsockopt(int fd, int level, int name, void* value, socklen_t* length) {
    return failsNow("getsockopt") ? -1 : __real_getsockopt(fd, level, name, value, length);
}
int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
    return failsNow("bind") ? -1 : __real_bind(fd, address, length);
}

/** A message of root's, eight bytes, from the kernel to a group. */
ssize_t __wrap_recvmsg(int, msghdr* header, int) {
    if (failsNow("recvmsg")) return -1;
    memset(header->msg_iov->iov_base, 'e', 8);
    cmsghdr* control = CMSG_FIRSTHDR(header);
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = sControlType;
    control->cmsg_len = CMSG_LEN(sizeof(ucred));
    memset(CMSG_DATA(control), 0, sizeof(ucred));
    static_cast<sockaddr_nl*>(header->msg_name)->nl_groups = 1;
    return 8;
}

}  // extern "C"

namespace {

using korvane::test::countOpenDescriptors;

class UeventFaultTest : public testing::Test {
  protected:
    void TearDown() override {
        fail("", 0);
        sControlType = SCM_CREDENTIALS;
    }

    static void fail(const char* name, int error, int times = 1) {
        sFailing = name;
        sError = error;
        sTimes = times;
    }
};

TEST_F(UeventFaultTest, ASocketThatCannotBeMadeReadyIsClosedAgain) {
    for (const char* name : {"socket", "setsockopt", "getsockopt", "bind"}) {
        const int before = countOpenDescriptors();
        fail(name, ENOBUFS);
        EXPECT_EQ(-1, uevent_open_socket(64 * 1024, true)) << name;
        EXPECT_EQ(ENOBUFS, errno) << name;
        EXPECT_EQ(0, sTimes) << name;
        EXPECT_EQ(before, countOpenDescriptors()) << name;
    }
    const int socket = uevent_open_socket(64 * 1024, true);
    EXPECT_NE(-1, socket);
    close(socket);
}

TEST_F(UeventFaultTest, AReadGoesOnAfterASignal) {
    char buffer[16];
    fail("recvmsg", EINTR, 3);
    EXPECT_EQ(8, uevent_kernel_multicast_recv(0, buffer, sizeof(buffer)));
    EXPECT_EQ(0, sTimes);
}

TEST_F(UeventFaultTest, AReadThatFailsSaysWhyAndNamesNoUser) {
    char buffer[16];
    uid_t uid = 0;
    fail("recvmsg", ENOBUFS);
    EXPECT_EQ(-1, uevent_kernel_multicast_uid_recv(0, buffer, sizeof(buffer), &uid));
    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_EQ(static_cast<uid_t>(-1), uid);
}

TEST_F(UeventFaultTest, OtherControlDataIsNoCredentials) {
    char buffer[16] = "left behind";
    uid_t uid = 0;
    sControlType = SCM_RIGHTS;
    EXPECT_EQ(-1, uevent_kernel_multicast_uid_recv(0, buffer, sizeof(buffer), &uid));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(static_cast<uid_t>(-1), uid);
    for (const char byte : buffer) EXPECT_EQ('\0', byte);
}

}  // namespace
