/// A connection to the bus: opened by name, one frame sent or received at a time, the turns of its callers.
/// Functions return 0 or a negative errno, as procmgr_ss.h lists them.
#ifndef PROCMGR_SS_CHANNEL_H
#define PROCMGR_SS_CHANNEL_H

#include <pthread.h>
#include <stdbool.h>
#include <stdint.h>

#include "platform/posix/vek/vek_frame.h"

/// Milliseconds of the monotonic clock; kSsNever: no deadline.
typedef int64_t SsDeadline;
#define SS_NEVER INT64_MAX

SsDeadline SsAfter(uint32_t ms);

typedef struct SsChannel {
    int fd;
    pthread_mutex_t mutex;
    pthread_cond_t turnOver;
    bool taken;  ///< guarded by mutex; the other fields belong to whoever has the turn

    int lost;              ///< the error of every further call, 0 while the connection stands
    uint32_t owed;         ///< answers that nobody waits for any more
    uint32_t serviceTime;  ///< what the open answer told, in ms
    unsigned char* frame;  ///< VEK_FRAME_MAX bytes: what was received last
} SsChannel;

/// Connects, checks who is there and sends the open request.
int SsChannelOpen(SsChannel* channel, const char* runDir, const char* name, SsDeadline deadline);
void SsChannelClose(SsChannel* channel);

/// Turns of several threads; -ETIMEDOUT when the others took all the time.
int SsTakeTurn(SsChannel* channel, SsDeadline deadline);
void SsPassTurn(SsChannel* channel);

// With the turn:

int SsSend(SsChannel* channel, const VekFrameHead* head, const void* payload, SsDeadline deadline);

/// Receives the next frame; its payload is in channel->frame behind the head. `fd` null: a frame with a descriptor is
/// an error; otherwise *fd is the descriptor that came along, or -1. With `interruptible`, -EINTR.
int SsReceive(SsChannel* channel, VekFrameHead* head, int* fd, SsDeadline deadline, bool interruptible);

/// Sends a request and takes its answer, whose rc and cmd are in *answer. Refusals of the bus come as errors.
int SsExchange(SsChannel* channel, const VekFrameHead* request, const void* payload, SsDeadline deadline,
               VekFrameHead* answer);

/// The connection is of no more use.
int SsLose(SsChannel* channel, int error);

#endif
