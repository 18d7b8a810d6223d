#include "platform/posix/vek/bus_frame.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>

namespace ProcMgr {

namespace {

static_assert(VEK_FRAME_HEAD_SIZE + VEK_PAYLOAD_MAX == VEK_FRAME_MAX, "head and payload fill a frame");
static_assert(VEK_READ_MAX + sizeof(int64_t) == VEK_PAYLOAD_MAX, "offset and bytes fill a payload");

struct Attachment {
    alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(int))] = {};
};

void Attach(msghdr& message, Attachment& attachment, int fd) {
    message.msg_control = attachment.bytes;
    message.msg_controllen = sizeof(attachment.bytes);
    cmsghdr* control = CMSG_FIRSTHDR(&message);
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    control->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(control), &fd, sizeof(int));
}

}  // namespace

const char* DecodeBusFrame(const void* packet, size_t size, VekFrameHead& head) {
    if (size > VEK_FRAME_MAX) {
        return "frame is over 64 KiB";
    }
    if (size < VEK_FRAME_HEAD_SIZE) {
        return "frame is shorter than its head";
    }
    VekFrameHead read = {};
    std::memcpy(&read, packet, sizeof(read));
    if (read.size != size - VEK_FRAME_HEAD_SIZE) {
        return "size in the frame's head is not the size of its payload";
    }
    head = read;
    return nullptr;
}

int SendBusFrame(int fd, const VekFrameHead& head, const void* payload, int attached) {
    VekFrameHead copy = head;
    iovec parts[2] = {{&copy, sizeof(copy)}, {const_cast<void*>(payload), head.size}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = head.size > 0 ? 2 : 1;
    Attachment attachment;
    if (attached >= 0) {
        Attach(message, attachment, attached);
    }
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -errno : 0;
}

uint32_t ReadU32(const void* data, size_t offset) {
    uint32_t value = 0;
    std::memcpy(&value, static_cast<const char*>(data) + offset, sizeof(value));
    return value;
}

}  // namespace ProcMgr
