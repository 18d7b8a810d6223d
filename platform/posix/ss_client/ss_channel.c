#define _GNU_SOURCE

#include "platform/posix/ss_client/ss_channel.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

static const char* const kDefaultRunDirectory = "/run/procmgr";
static const int kLongestPauseMs = 100;

static int64_t NowMs(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

SsDeadline SsAfter(uint32_t ms) {
    // Rounded up: the clock's fraction of a millisecond must not shorten the wait.
    return ms == 0 ? NowMs() : NowMs() + 1 + ms;
}

/* For poll: -1 without a deadline. */
static int LeftMs(SsDeadline deadline) {
    int64_t left = 0;
    if (deadline == SS_NEVER) {
        return -1;
    }
    left = deadline - NowMs();
    if (left <= 0) {
        return 0;
    }
    return left > INT_MAX ? INT_MAX : (int)left;
}

static bool IsNameGood(const char* name) {
    const size_t length = name == NULL ? 0 : strnlen(name, VEK_NAME_MAX + 1);
    size_t i = 0;
    for (i = 0; i < length; ++i) {
        const unsigned char byte = (unsigned char)name[i];
        if (byte < 0x20 || byte == 0x7f || byte == '/') {
            return false;
        }
    }
    return length > 0 && length <= VEK_NAME_MAX;
}

/* The address of the service's socket and the folder that it is in. */
static int FindAddress(const char* runDir, const char* name, struct sockaddr_un* address, struct stat* folder) {
    char path[sizeof(address->sun_path)];
    const char* base = runDir;
    int length = 0;
    if (base == NULL || base[0] == '\0') {
        base = getenv("PROCMGR_RUN_DIR");
    }
    if (base == NULL || base[0] == '\0') {
        base = kDefaultRunDirectory;
    }
    memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    length = snprintf(address->sun_path, sizeof(address->sun_path), "%s/" VEK_FOLDER "/%s.sock", base, name);
    if (length < 0 || (size_t)length >= sizeof(address->sun_path)) {
        return -ENAMETOOLONG;
    }
    (void)snprintf(path, sizeof(path), "%s/" VEK_FOLDER, base);
    return stat(path, folder) == 0 ? 0 : -errno;
}

static bool IsConfiguredServer(uid_t uid) {
    const char* text = getenv("PROCMGR_SERVER_UID");
    char* end = NULL;
    unsigned long number = 0;
    if (text == NULL || text[0] < '0' || text[0] > '9') {
        return false;
    }
    number = strtoul(text, &end, 10);
    return *end == '\0' && number == uid;
}

/* Whoever owns the folder of the sockets decides what is in it. */
static bool IsTrustedServer(int fd, uid_t folderOwner) {
    struct ucred server;
    socklen_t length = sizeof(server);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &server, &length) != 0) {
        return false;
    }
    return server.uid == 0 || server.uid == geteuid() || server.uid == folderOwner || IsConfiguredServer(server.uid);
}

static int ConnectOnce(const struct sockaddr_un* address, uid_t folderOwner, int* out) {
    // Non-blocking for good: each wait has its deadline.
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    int error = 0;
    if (fd < 0) {
        return -errno;
    }
    if (connect(fd, (const struct sockaddr*)address, sizeof(*address)) != 0) {
        error = -errno;
    } else if (!IsTrustedServer(fd, folderOwner)) {
        error = -EPERM;
    }
    if (error != 0) {
        close(fd);
        return error;
    }
    *out = fd;
    return 0;
}

static int SayOpen(SsChannel* channel, SsDeadline deadline) {
    const VekFrameHead request = {VEK_OPEN, VEK_VERSION, 0, 0};
    VekFrameHead answer;
    int error = SsExchange(channel, &request, NULL, deadline, &answer);
    if (error == 0 && answer.size != 0) {
        error = SsLose(channel, -EPROTO);
    }
    if (error == 0) {
        channel->serviceTime = answer.cmd;
    }
    return error;
}

/* -EAGAIN: neither the backlog nor the service has room now. */
static int TryOpen(SsChannel* channel, const struct sockaddr_un* address, uid_t folderOwner, SsDeadline deadline) {
    int error = ConnectOnce(address, folderOwner, &channel->fd);
    if (error != 0) {
        return error;
    }
    channel->lost = 0;
    channel->owed = 0;
    error = SayOpen(channel, deadline);
    if (error != 0) {
        close(channel->fd);
        channel->fd = -1;
    }
    return error;
}

static int InitTurns(SsChannel* channel) {
    pthread_condattr_t attributes;
    int error = pthread_condattr_init(&attributes);
    if (error != 0) {
        return -error;
    }
    (void)pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    error = pthread_cond_init(&channel->turnOver, &attributes);
    (void)pthread_condattr_destroy(&attributes);
    if (error != 0) {
        return -error;
    }
    error = pthread_mutex_init(&channel->mutex, NULL);
    if (error != 0) {
        (void)pthread_cond_destroy(&channel->turnOver);
    }
    return -error;
}

static int OpenUntil(SsChannel* channel, const char* runDir, const char* name, SsDeadline deadline) {
    struct sockaddr_un address;
    struct stat folder;
    int pause = 1;
    int error = FindAddress(runDir, name, &address, &folder);
    if (error != 0) {
        return error;
    }
    for (;;) {
        int left = 0;
        error = TryOpen(channel, &address, folder.st_uid, deadline);
        left = LeftMs(deadline);
        if (error != -EAGAIN || left == 0) {
            return error;
        }
        (void)poll(NULL, 0, pause < left ? pause : left);
        pause = pause * 2 < kLongestPauseMs ? pause * 2 : kLongestPauseMs;
    }
}

int SsChannelOpen(SsChannel* channel, const char* runDir, const char* name, SsDeadline deadline) {
    int error = 0;
    if (!IsNameGood(name)) {
        return -EINVAL;
    }
    memset(channel, 0, sizeof(*channel));
    channel->fd = -1;
    error = InitTurns(channel);
    if (error != 0) {
        return error;
    }
    channel->frame = malloc(VEK_FRAME_MAX);
    error = channel->frame == NULL ? -ENOMEM : OpenUntil(channel, runDir, name, deadline);
    if (error != 0) {
        SsChannelClose(channel);
    }
    return error;
}

void SsChannelClose(SsChannel* channel) {
    if (channel->fd >= 0) {
        close(channel->fd);
    }
    free(channel->frame);
    (void)pthread_mutex_destroy(&channel->mutex);
    (void)pthread_cond_destroy(&channel->turnOver);
}

int SsTakeTurn(SsChannel* channel, SsDeadline deadline) {
    int error = 0;
    struct timespec until;
    until.tv_sec = (time_t)(deadline / 1000);
    until.tv_nsec = (long)(deadline % 1000) * 1000000;
    (void)pthread_mutex_lock(&channel->mutex);
    while (channel->taken && error == 0) {
        error = deadline == SS_NEVER ? pthread_cond_wait(&channel->turnOver, &channel->mutex)
                                     : pthread_cond_timedwait(&channel->turnOver, &channel->mutex, &until);
    }
    if (!channel->taken) {
        channel->taken = true;
        error = 0;
    }
    (void)pthread_mutex_unlock(&channel->mutex);
    return -error;
}

void SsPassTurn(SsChannel* channel) {
    (void)pthread_mutex_lock(&channel->mutex);
    channel->taken = false;
    (void)pthread_cond_signal(&channel->turnOver);
    (void)pthread_mutex_unlock(&channel->mutex);
}

int SsLose(SsChannel* channel, int error) {
    channel->lost = error;
    return error;
}

/* 0 when the socket is ready, or has ended. */
static int Await(const SsChannel* channel, short events, SsDeadline deadline, bool interruptible) {
    struct pollfd entry = {channel->fd, events, 0};
    for (;;) {
        const int ready = poll(&entry, 1, LeftMs(deadline));
        if (ready > 0) {
            return 0;
        }
        if (ready == 0 && LeftMs(deadline) == 0) {
            return -ETIMEDOUT;
        }
        if (ready < 0 && errno != EINTR) {
            return -errno;
        }
        if (ready < 0 && interruptible) {
            return -EINTR;
        }
    }
}

int SsSend(SsChannel* channel, const VekFrameHead* head, const void* payload, SsDeadline deadline) {
    struct iovec parts[2] = {{(void*)head, VEK_FRAME_HEAD_SIZE}, {(void*)payload, head->size}};
    struct msghdr message;
    memset(&message, 0, sizeof(message));
    message.msg_iov = parts;
    message.msg_iovlen = head->size > 0 ? 2 : 1;
    while (sendmsg(channel->fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        int error = 0;
        if (errno == EPIPE || errno == ECONNRESET) {
            return SsLose(channel, -EPIPE);
        }
        if (errno != EAGAIN && errno != EINTR) {
            return -errno;
        }
        error = Await(channel, POLLOUT, deadline, false);
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

/* What the service said before it went away comes behind the reset. */
static ssize_t ReceiveMessage(int fd, struct msghdr* message) {
    ssize_t got = recvmsg(fd, message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got < 0 && errno == ECONNRESET) {
        got = recvmsg(fd, message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    }
    return got;
}

static int TakeDescriptor(struct msghdr* message) {
    int fd = -1;
    struct cmsghdr* control = CMSG_FIRSTHDR(message);
    if (control != NULL && control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_RIGHTS &&
        control->cmsg_len == CMSG_LEN(sizeof(int))) {
        memcpy(&fd, CMSG_DATA(control), sizeof(int));
    }
    return fd;
}

static bool DecodeHead(const SsChannel* channel, size_t got, VekFrameHead* head) {
    if (got < VEK_FRAME_HEAD_SIZE) {
        return false;
    }
    memcpy(head, channel->frame, VEK_FRAME_HEAD_SIZE);
    return head->size == got - VEK_FRAME_HEAD_SIZE;
}

/* -EAGAIN when nothing is there. */
static int ReceiveNow(SsChannel* channel, VekFrameHead* head, int* fd) {
    union {
        struct cmsghdr head;
        char bytes[CMSG_SPACE(sizeof(int))];
    } control;
    struct iovec part = {channel->frame, VEK_FRAME_MAX};
    struct msghdr message;
    ssize_t got = 0;
    int attached = -1;
    memset(&message, 0, sizeof(message));
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (fd != NULL) {
        // Without the padding, in which a second descriptor would find room.
        message.msg_control = &control;
        message.msg_controllen = CMSG_LEN(sizeof(int));
    }
    got = ReceiveMessage(channel->fd, &message);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
        return -EAGAIN;
    }
    if (got < 0) {
        return SsLose(channel, -EPIPE);
    }
    attached = TakeDescriptor(&message);
    if ((message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || !DecodeHead(channel, (size_t)got, head)) {
        // An empty packet looks like the end, and may bring a descriptor all the same.
        if (attached >= 0) {
            close(attached);
        }
        return SsLose(channel, got == 0 ? -EPIPE : -EPROTO);
    }
    if (fd != NULL) {
        *fd = attached;
    }
    return 0;
}

int SsReceive(SsChannel* channel, VekFrameHead* head, int* fd, SsDeadline deadline, bool interruptible) {
    for (;;) {
        int error = ReceiveNow(channel, head, fd);
        if (error != -EAGAIN) {
            return error;
        }
        error = Await(channel, POLLIN, deadline, interruptible);
        if (error != 0) {
            return error;
        }
    }
}

/* The answers come in the order of the requests, one for each; those that are owed come first. */
static int TakeAnswer(SsChannel* channel, SsDeadline deadline, VekFrameHead* answer) {
    for (;;) {
        const int error = SsReceive(channel, answer, NULL, deadline, false);
        if (error == -ETIMEDOUT) {
            channel->owed += 1;
        }
        if (error != 0) {
            return error;
        }
        if (channel->owed == 0) {
            return 0;
        }
        channel->owed -= 1;
    }
}

int SsExchange(SsChannel* channel, const VekFrameHead* request, const void* payload, SsDeadline deadline,
               VekFrameHead* answer) {
    int error = channel->lost;
    if (error != 0) {
        return error;
    }
    error = SsSend(channel, request, payload, deadline);
    // A service that refuses may have said why before it closed.
    if (error != 0 && error != -EPIPE) {
        return error;
    }
    error = TakeAnswer(channel, deadline, answer);
    if (error != 0) {
        return error;
    }
    if (answer->op == (request->op | VEK_ANSWER)) {
        return 0;
    }
    if (answer->op != (request->op | VEK_ERROR) || answer->size != 0 || answer->rc >= 0 || answer->rc < -4095) {
        return SsLose(channel, -EPROTO);
    }
    return answer->rc;
}
