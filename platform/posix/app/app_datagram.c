#define _GNU_SOURCE

#include "platform/posix/app/app_datagram.h"

#include <errno.h>
#include <poll.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

static long MonotonicMs(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (long)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* 0, or the errno of the failure. An abstract name is as long as the address says, and has no end. */
static int MakeAddress(const char* text, struct sockaddr_un* address, socklen_t* size) {
    const size_t length = text == NULL ? 0 : strlen(text);
    if (length == 0) {
        return ENOTCONN;
    }
    if (length >= sizeof(address->sun_path)) {
        return ENAMETOOLONG;
    }
    memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    memcpy(address->sun_path, text, length);
    *size = sizeof(*address);
    if (text[0] == '@') {
        address->sun_path[0] = '\0';
        *size = (socklen_t)(offsetof(struct sockaddr_un, sun_path) + length);
    }
    return 0;
}

static int SendWithin(int fd, const char* text, long patienceMs) {
    const long deadline = MonotonicMs() + patienceMs;
    while (send(fd, text, strlen(text), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        struct pollfd entry = {fd, POLLOUT, 0};
        long left = 0;
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            return errno;
        }
        left = deadline - MonotonicMs();
        if (left <= 0) {
            return ETIMEDOUT;
        }
        if (poll(&entry, 1, (int)left) < 0 && errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

int ProcmgrAppDatagram(const char* address, const char* text, long patienceMs) {
    struct sockaddr_un receiver;
    socklen_t size = 0;
    int error = MakeAddress(address, &receiver, &size);
    int fd = -1;
    if (error == 0) {
        fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        error = fd < 0 ? errno : 0;
    }
    if (error == 0 && connect(fd, (const struct sockaddr*)&receiver, size) != 0) {
        error = errno;
    }
    if (error == 0) {
        error = SendWithin(fd, text, patienceMs);
    }
    if (fd >= 0) {
        close(fd);
    }
    return error;
}
