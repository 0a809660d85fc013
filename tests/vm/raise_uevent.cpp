// SPDX-License-Identifier: Apache-2.0
// raise_uevent ACTION@DEVPATH [KEY=VALUE...]: lets the kernel send a uevent of that text to every
// listener in the network namespace, as it sends its own. Needs root.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// The type that the kernel expects of a uevent handed to it.
constexpr int kUeventMessage = 16;

std::string messageOf(int argc, char** argv) {
    std::string payload;
    for (int i = 1; i < argc; ++i) payload.append(argv[i], strlen(argv[i]) + 1);
    nlmsghdr header{};
    header.nlmsg_len = NLMSG_LENGTH(payload.size());
    header.nlmsg_type = kUeventMessage;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    return std::string(reinterpret_cast<char*>(&header), sizeof header) + payload;
}

// 0 or the kernel's error for what was sent.
int acknowledgement(int socket) {
    alignas(nlmsghdr) char answer[4096];
    ssize_t size = recv(socket, answer, sizeof answer, 0);
    if (size < static_cast<ssize_t>(NLMSG_LENGTH(sizeof(nlmsgerr)))) return EPROTO;
    return -static_cast<nlmsgerr*>(NLMSG_DATA(reinterpret_cast<nlmsghdr*>(answer)))->error;
}

int raise(const std::string& message) {
    int netlink = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (netlink < 0) return errno;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent = sendto(netlink, message.data(), message.size(), 0,
                          reinterpret_cast<sockaddr*>(&kernel), sizeof kernel);
    int error = sent < 0 ? errno : acknowledgement(netlink);
    close(netlink);
    return error;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !strchr(argv[1], '@')) {
        fprintf(stderr, "usage: raise_uevent ACTION@DEVPATH [KEY=VALUE...]\n");
        return 2;
    }
    int error = raise(messageOf(argc, argv));
    if (error) fprintf(stderr, "raise_uevent: %s\n", strerror(error));
    return error ? 1 : 0;
}
