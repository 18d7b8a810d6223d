#define _GNU_SOURCE

#include "platform/posix/ss_client/procmgr_ss.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/ss_client/ss_channel.h"

struct ProcmgrSsFile {
    SsChannel channel;
};

/* The memory in which the events of one pool come. */
typedef struct Pool {
    uint32_t number;
    uint32_t blockSize;
    uint32_t blockCount;
    const unsigned char* memory;  ///< null: no pool yet
} Pool;

struct ProcmgrSsQueue {
    SsChannel channel;
    Pool pool;
    bool hasEvent;  ///< one that did not fit into the caller's buffer
    uint32_t block;
    uint32_t length;
};

/* The service's own time-out answer says more than our own, so it gets a little more time. */
static const uint32_t kGraceMs = 200;
static const uint32_t kOpenTimeoutMs = 2000;

static SsDeadline OpenDeadline(uint32_t timeoutMs) {
    return SsAfter(timeoutMs == 0 ? kOpenTimeoutMs : timeoutMs);
}

int ProcmgrSsOpen(const char* runDir, const char* name, uint32_t timeoutMs, ProcmgrSsFile** file) {
    ProcmgrSsFile* made = NULL;
    int error = 0;
    if (file == NULL) {
        return -EINVAL;
    }
    made = calloc(1, sizeof(*made));
    if (made == NULL) {
        return -ENOMEM;
    }
    error = SsChannelOpen(&made->channel, runDir, name, OpenDeadline(timeoutMs));
    if (error != 0) {
        free(made);
        return error;
    }
    *file = made;
    return 0;
}

uint32_t ProcmgrSsDefaultTimeoutMs(const ProcmgrSsFile* file) {
    return file == NULL ? 0 : file->channel.serviceTime;
}

void ProcmgrSsClose(ProcmgrSsFile* file) {
    if (file != NULL) {
        SsChannelClose(&file->channel);
        free(file);
    }
}

static SsDeadline RequestDeadline(const ProcmgrSsFile* file, uint32_t timeoutMs) {
    const uint32_t granted = timeoutMs == 0 ? file->channel.serviceTime : timeoutMs;
    return SsAfter((granted < INT32_MAX ? granted : INT32_MAX) + kGraceMs);
}

int ProcmgrSsIoctl(ProcmgrSsFile* file, uint32_t cmd, void* buffer, size_t size, uint32_t timeoutMs, int32_t* result) {
    const VekFrameHead request = {VEK_IOCTL, cmd, (uint32_t)size, (int32_t)timeoutMs};
    VekFrameHead answer;
    SsDeadline deadline = 0;
    int error = 0;
    if (file == NULL || buffer == NULL || result == NULL || size == 0 || size > PROCMGR_SS_BUFFER_MAX ||
        timeoutMs > INT32_MAX) {
        return -EINVAL;
    }
    deadline = RequestDeadline(file, timeoutMs);
    error = SsTakeTurn(&file->channel, deadline);
    if (error != 0) {
        return error;
    }
    error = SsExchange(&file->channel, &request, buffer, deadline, &answer);
    if (error == 0 && (answer.cmd != cmd || answer.size != size)) {
        error = SsLose(&file->channel, -EPROTO);
    }
    if (error == 0) {
        memcpy(buffer, file->channel.frame + VEK_FRAME_HEAD_SIZE, size);
        *result = answer.rc;
    }
    SsPassTurn(&file->channel);
    return error;
}

/* The answer: where the offset is now, and as many bytes as the result says. */
static int TakeRead(SsChannel* channel, const VekFrameHead* answer, uint32_t wanted, void* buffer, int64_t* offset) {
    const uint32_t got = answer->rc > 0 ? (uint32_t)answer->rc : 0;
    const unsigned char* payload = channel->frame + VEK_FRAME_HEAD_SIZE;
    if (answer->cmd != wanted || got > wanted || answer->size != sizeof(*offset) + got) {
        return SsLose(channel, -EPROTO);
    }
    memcpy(offset, payload, sizeof(*offset));
    memcpy(buffer, payload + sizeof(*offset), got);
    return 0;
}

int ProcmgrSsRead(ProcmgrSsFile* file, void* buffer, size_t size, int64_t* offset, uint32_t timeoutMs,
                  int32_t* result) {
    const uint32_t wanted = size < VEK_READ_MAX ? (uint32_t)size : VEK_READ_MAX;
    const VekFrameHead request = {VEK_READ, wanted, sizeof(*offset), (int32_t)timeoutMs};
    VekFrameHead answer;
    SsDeadline deadline = 0;
    int error = 0;
    if (file == NULL || buffer == NULL || offset == NULL || result == NULL || size == 0 || timeoutMs > INT32_MAX) {
        return -EINVAL;
    }
    deadline = RequestDeadline(file, timeoutMs);
    error = SsTakeTurn(&file->channel, deadline);
    if (error != 0) {
        return error;
    }
    error = SsExchange(&file->channel, &request, offset, deadline, &answer);
    if (error == 0) {
        error = TakeRead(&file->channel, &answer, wanted, buffer, offset);
    }
    if (error == 0) {
        *result = answer.rc;
    }
    SsPassTurn(&file->channel);
    return error;
}

static void DropPool(Pool* pool) {
    if (pool->memory != NULL) {
        (void)munmap((void*)pool->memory, (size_t)pool->blockSize * pool->blockCount);
    }
    memset(pool, 0, sizeof(*pool));
}

int ProcmgrSsOpenQueue(const char* runDir, const char* name, uint32_t timeoutMs, ProcmgrSsQueue** queue) {
    const VekFrameHead request = {VEK_QUEUE, 0, 0, 0};
    const SsDeadline deadline = OpenDeadline(timeoutMs);
    VekFrameHead answer;
    ProcmgrSsQueue* made = NULL;
    int error = 0;
    if (queue == NULL) {
        return -EINVAL;
    }
    made = calloc(1, sizeof(*made));
    if (made == NULL) {
        return -ENOMEM;
    }
    error = SsChannelOpen(&made->channel, runDir, name, deadline);
    if (error != 0) {
        free(made);
        return error;
    }
    error = SsExchange(&made->channel, &request, NULL, deadline, &answer);
    if (error != 0) {
        ProcmgrSsCloseQueue(made);
        return error;
    }
    *queue = made;
    return 0;
}

int ProcmgrSsQueueFd(const ProcmgrSsQueue* queue) {
    return queue == NULL ? -EINVAL : queue->channel.fd;
}

void ProcmgrSsCloseQueue(ProcmgrSsQueue* queue) {
    if (queue != NULL) {
        DropPool(&queue->pool);
        SsChannelClose(&queue->channel);
        free(queue);
    }
}

/* Memory that the service could shrink under us would end this process. */
static bool IsMemoryGood(int fd, size_t size) {
    struct stat status;
    const int seals = fcntl(fd, F_GET_SEALS);
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 && fstat(fd, &status) == 0 && status.st_size >= 0 &&
           (size_t)status.st_size >= size;
}

/* All events of the pool before were taken when the next one is announced. */
static int TakePool(ProcmgrSsQueue* queue, const VekFrameHead* head, int fd) {
    uint32_t sizes[2] = {0, 0};
    void* memory = MAP_FAILED;
    size_t size = 0;
    if (head->size != sizeof(sizes) || fd < 0) {
        return -EPROTO;
    }
    memcpy(sizes, queue->channel.frame + VEK_FRAME_HEAD_SIZE, sizeof(sizes));
    if (sizes[0] == 0 || sizes[1] == 0 || sizes[0] > SIZE_MAX / sizes[1]) {
        return -EPROTO;
    }
    size = (size_t)sizes[0] * sizes[1];
    if (!IsMemoryGood(fd, size)) {
        return -EPROTO;
    }
    memory = mmap(NULL, size, PROT_READ, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        return -errno;
    }
    DropPool(&queue->pool);
    queue->pool.number = head->cmd;
    queue->pool.blockSize = sizes[0];
    queue->pool.blockCount = sizes[1];
    queue->pool.memory = memory;
    return 0;
}

static int TakeEvent(ProcmgrSsQueue* queue, const VekFrameHead* head) {
    uint32_t place[2] = {0, 0};
    const Pool* pool = &queue->pool;
    if (head->size != sizeof(place) || pool->memory == NULL || head->cmd != pool->number) {
        return -EPROTO;
    }
    memcpy(place, queue->channel.frame + VEK_FRAME_HEAD_SIZE, sizeof(place));
    if (place[0] >= pool->blockCount || place[1] > pool->blockSize) {
        return -EPROTO;
    }
    queue->hasEvent = true;
    queue->block = place[0];
    queue->length = place[1];
    return 0;
}

static int TakeFrame(ProcmgrSsQueue* queue, SsDeadline deadline) {
    VekFrameHead head;
    int fd = -1;
    int error = SsReceive(&queue->channel, &head, &fd, deadline, true);
    if (error != 0) {
        return error;
    }
    if (head.op == VEK_POOL) {
        error = TakePool(queue, &head, fd);
    } else {
        error = head.op == VEK_EVENT && fd < 0 ? TakeEvent(queue, &head) : -EPROTO;
    }
    if (fd >= 0) {
        close(fd);
    }
    return error == 0 ? 0 : SsLose(&queue->channel, error);
}

static int CopyEvent(ProcmgrSsQueue* queue, void* buffer, size_t capacity, size_t* size) {
    const VekFrameHead handBack = {VEK_RETURN, queue->pool.number, sizeof(queue->block), 0};
    *size = queue->length;
    if (queue->length > capacity) {
        return -EMSGSIZE;
    }
    if (queue->length > 0) {
        memcpy(buffer, queue->pool.memory + (size_t)queue->block * queue->pool.blockSize, queue->length);
    }
    queue->hasEvent = false;
    // A service that is gone needs no block back, and the events that it still sent come first.
    if (SsSend(&queue->channel, &handBack, &queue->block, SsAfter(kOpenTimeoutMs)) == -EPIPE) {
        queue->channel.lost = 0;
    }
    return 0;
}

static int WaitInTurn(ProcmgrSsQueue* queue, SsDeadline deadline, void* buffer, size_t capacity, size_t* size) {
    while (!queue->hasEvent) {
        const int error = queue->channel.lost == 0 ? TakeFrame(queue, deadline) : queue->channel.lost;
        if (error != 0) {
            return error;
        }
    }
    return CopyEvent(queue, buffer, capacity, size);
}

int ProcmgrSsWaitEvent(ProcmgrSsQueue* queue, int32_t timeoutMs, void* buffer, size_t capacity, size_t* size) {
    const SsDeadline deadline = timeoutMs < 0 ? SS_NEVER : SsAfter((uint32_t)timeoutMs);
    int error = 0;
    if (queue == NULL || size == NULL || (buffer == NULL && capacity > 0)) {
        return -EINVAL;
    }
    error = SsTakeTurn(&queue->channel, deadline);
    if (error == 0) {
        error = WaitInTurn(queue, deadline, buffer, capacity, size);
        SsPassTurn(&queue->channel);
    }
    return error;
}
