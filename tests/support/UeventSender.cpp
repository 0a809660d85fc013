// SPDX-License-Identifier: Apache-2.0
#include "support/UeventSender.h"

#include <cerrno>
#include <cstring>

#include <linux/netlink.h>
#include <sched.h>
#include <sys/socket.h>

namespace korvane::test {
namespace {

// The kernel broadcasts messages of this type and above; those below are netlink's own.
constexpr uint16_t kBroadcastMessage = 16;

std::vector<char> message(const std::vector<std::string>& strings) {
    std::vector<char> result(NLMSG_HDRLEN);
    for (const std::string& text : strings) {
        result.insert(result.end(), text.c_str(), text.c_str() + text.size() + 1);
    }
    nlmsghdr header = {};
    header.nlmsg_len = static_cast<uint32_t>(result.size());
    header.nlmsg_type = kBroadcastMessage;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    memcpy(result.data(), &header, sizeof(header));
    return result;
}

// The kernel answers every message that asks for it with an error number, 0 for none.
bool acknowledged(int socket) {
    struct {
        nlmsghdr header;
        nlmsgerr error;
    } answer = {};
    const ssize_t size = TEMP_FAILURE_RETRY(recv(socket, &answer, sizeof(answer), 0));
    if (size < static_cast<ssize_t>(sizeof(answer)) || answer.header.nlmsg_type != NLMSG_ERROR) {
        if (size >= 0) errno = EPROTO;
        return false;
    }
    errno = -answer.error.error;
    return answer.error.error == 0;
}

}  // namespace

bool enterPrivateNetwork() {
    return unshare(CLONE_NEWNET) == 0;
}

UeventSender::UeventSender()
    : mSocket(socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT)) {}

bool UeventSender::send(const std::vector<std::string>& strings) {
    const std::vector<char> data = message(strings);
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    const ssize_t sent = sendto(mSocket.get(), data.data(), data.size(), 0,
                                reinterpret_cast<const sockaddr*>(&kernel), sizeof(kernel));
    return sent == static_cast<ssize_t>(data.size()) && acknowledged(mSocket.get());
}

}  // namespace korvane::test
