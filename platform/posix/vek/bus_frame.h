/// Reading and sending the frames of the bus. The reader takes whatever a stranger may have sent.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_BUS_FRAME_H
#define PROCMGR_PLATFORM_POSIX_VEK_BUS_FRAME_H

#include <cstddef>
#include <cstdint>

#include "platform/posix/vek/vek_frame.h"

namespace ProcMgr {

/// Reads the head of one packet of `size` bytes; the payload is the rest. Returns null, or what is wrong with it;
/// `head` is written only on success. Any op and cmd is well-formed.
const char* DecodeBusFrame(const void* packet, size_t size, VekFrameHead& head);

/// Sends one frame, with a descriptor attached unless it is -1, and does not wait for the reader: 0 or a negative
/// errno, -EAGAIN when the socket takes no more now.
int SendBusFrame(int fd, const VekFrameHead& head, const void* payload, int attached = -1);

uint32_t ReadU32(const void* data, size_t offset);

}  // namespace ProcMgr

#endif
