// SPDX-License-Identifier: Apache-2.0
#include "cutils/uevent.h"

#include <cerrno>
#include <cstring>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

namespace {

using android::base::unique_fd;

// The kernel doubles what is asked for, for its own book-keeping, but silently stays below its
// limit; only CAP_NET_ADMIN may exceed that.
bool setReceiveBuffer(int socket, int size) {
    int actual = 0;
    socklen_t length = sizeof(actual);
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)) != 0) return false;
    if (getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &actual, &length) != 0) return false;
    if (actual >= 2LL * size) return true;
    return setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) == 0;
}

bool bindToAllGroups(int socket) {
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = 0;  // the kernel chooses: this process may have other netlink sockets
    address.nl_groups = 0xffffffff;
    return bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
}

const ucred* credentials(msghdr* header) {
    const cmsghdr* control = CMSG_FIRSTHDR(header);
    if (control == nullptr || control->cmsg_type != SCM_CREDENTIALS) return nullptr;
    return reinterpret_cast<const ucred*>(CMSG_DATA(control));
}

ssize_t refuse(void* buffer, size_t length) {
    memset(buffer, 0, length);  // nothing that anyone may have sent can be read
    errno = EIO;
    return -1;
}

}  // namespace

extern "C" int uevent_open_socket(int buf_sz, bool passcred) {
    unique_fd socket(::socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    if (socket == -1) return -1;
    if (!setReceiveBuffer(socket.get(), buf_sz)) return -1;
    const int on = passcred ? 1 : 0;
    setsockopt(socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on));
    if (!bindToAllGroups(socket.get())) return -1;
    return socket.release();
}

extern "C" ssize_t uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    uid_t uid = -1;
    return uevent_kernel_multicast_uid_recv(socket, buffer, length, &uid);
}

extern "C" ssize_t uevent_kernel_multicast_uid_recv(int socket, void* buffer, size_t length,
                                                    uid_t* uid) {
    return uevent_kernel_recv(socket, buffer, length, true, uid);
}

extern "C" ssize_t uevent_kernel_recv(int socket, void* buffer, size_t length, bool require_group,
                                      uid_t* uid) {
    sockaddr_nl sender = {};
    iovec data = {buffer, length};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
    msghdr header = {};
    header.msg_name = &sender;
    header.msg_namelen = sizeof(sender);
    header.msg_iov = &data;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof(control);

    *uid = -1;
    const ssize_t size = TEMP_FAILURE_RETRY(recvmsg(socket, &header, 0));
    if (size <= 0) return size;

    const ucred* cred = credentials(&header);
    if (cred == nullptr) return refuse(buffer, length);
    *uid = cred->uid;
    // A user's message may come by unicast or under the user's own port.
    if (sender.nl_pid != 0) return refuse(buffer, length);
    if (require_group && sender.nl_groups == 0) return refuse(buffer, length);
    return size;
}
