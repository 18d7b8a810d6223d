/// The frames of the resource-service bus, for both ends (C and C++): one packet of a Unix SOCK_SEQPACKET socket is one
/// frame, a head of four numbers and the payload behind it. docs/resource-bus.md has the grammar and worked examples.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_FRAME_H
#define PROCMGR_PLATFORM_POSIX_VEK_FRAME_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#define VEK_FRAME_HEAD_SIZE 16
#define VEK_FRAME_MAX 65536 /* head and payload together, in bytes */
#define VEK_PAYLOAD_MAX 65520
#define VEK_READ_MAX 65512 /* bytes of one read: the answer has the offset in front */
#define VEK_NAME_MAX 64    /* bytes of a service's name */
#define VEK_FOLDER "vek"   /* of the sockets, in the run directory */
#define VEK_VERSION 1

/// What a frame is. A request is answered by its number with VEK_ANSWER, or with VEK_ERROR when the bus refused it.
enum {
    VEK_OPEN = 1,    ///< client, once, first: cmd version. Answer: cmd the service's time-out in ms
    VEK_IOCTL = 2,   ///< client: cmd, rc time-out in ms or 0, payload buffer. Answer: cmd, rc result, payload buffer
    VEK_READ = 3,    ///< client: cmd bytes wanted, rc time-out in ms or 0, payload i64 offset.
                     ///< Answer: cmd, rc result, payload i64 offset and what was read
    VEK_QUEUE = 4,   ///< client, once: begin to send events. Answer: nothing
    VEK_RETURN = 5,  ///< client, not answered: cmd pool, payload u32 block. The block was read
    VEK_POOL = 16,   ///< server: cmd pool, payload u32 block size, u32 block count; a memory descriptor is attached
    VEK_EVENT = 17,  ///< server: cmd pool, payload u32 block, u32 length
    VEK_ANSWER = 0x100,
    VEK_ERROR = 0x200  ///< rc negative errno, no payload
};

typedef struct VekFrameHead {
    uint32_t op;
    uint32_t cmd;
    uint32_t size;  ///< bytes of the payload
    int32_t rc;
} VekFrameHead;

// A compiler that would lay the head out otherwise stops here, not on the bus.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "bus frames are host order, little-endian");
static_assert(sizeof(VekFrameHead) == VEK_FRAME_HEAD_SIZE, "the head is four numbers");
static_assert(offsetof(VekFrameHead, op) == 0 && offsetof(VekFrameHead, cmd) == 4, "VekFrameHead: op, cmd");
static_assert(offsetof(VekFrameHead, size) == 8 && offsetof(VekFrameHead, rc) == 12, "VekFrameHead: size, rc");

#endif
