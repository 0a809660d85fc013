// SPDX-License-Identifier: Apache-2.0
#include "UeventSocket.h"

#include <cerrno>
#include <string>

#include <linux/netlink.h>
#include <sys/socket.h>

namespace korvane::gadget {
namespace {

constexpr unsigned kFromKernel = 1;  // the multicast group of the kernel's own messages

bool concerns(const std::string& message) {
    for (const char* subsystem : {"udc", "video4linux"}) {
        const std::string field = std::string("SUBSYSTEM=") + subsystem;
        // Including the NULs before and after it.
        if (message.find('\0' + field + '\0') != std::string::npos) return true;
    }
    return false;
}

}  // namespace

UeventSocket::UeventSocket()
    : mSocket(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK,
                     NETLINK_KOBJECT_UEVENT)) {
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kFromKernel;
    const int failed = bind(mSocket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address));
    if (failed != 0) mSocket.reset();
}

bool UeventSocket::drain() {
    char buffer[8192];
    bool concerned = false;
    for (;;) {
        const ssize_t size = recv(mSocket.get(), buffer, sizeof(buffer), 0);
        if (size >= 0) {
            concerned |= concerns(std::string(buffer, static_cast<size_t>(size)));
        } else if (errno == ENOBUFS) {
            concerned = true;  // some messages were lost, whatever they said
        } else if (errno != EINTR) {
            return concerned;
        }
    }
}

}  // namespace korvane::gadget
