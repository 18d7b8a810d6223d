#define _GNU_SOURCE

#include "platform/posix/app/procmgr_app.h"

#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

static const long kPatienceMs = 2000;

static long MonotonicMs(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (long)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* 0, or the errno of the failure. */
static int FindAddress(struct sockaddr_un* address) {
    const char* path = getenv("PROCMGR_APP_SOCKET");
    if (path == NULL || path[0] == '\0') {
        return ENOTCONN;
    }
    if (strlen(path) >= sizeof(address->sun_path)) {
        return ENAMETOOLONG;
    }
    memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    memcpy(address->sun_path, path, strlen(path));
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

static int Report(const char* text) {
    struct sockaddr_un address;
    int error = FindAddress(&address);
    int fd = -1;
    if (error == 0) {
        fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        error = fd < 0 ? errno : 0;
    }
    if (error == 0 && connect(fd, (const struct sockaddr*)&address, sizeof(address)) != 0) {
        error = errno;
    }
    if (error == 0) {
        error = SendWithin(fd, text, kPatienceMs);
    }
    if (fd >= 0) {
        close(fd);
    }
    if (error != 0) {
        errno = error;
        return -1;
    }
    return 0;
}

int ProcmgrAppReady(void) {
    return Report("procmgr 1 on");
}

int ProcmgrAppStopping(void) {
    return Report("procmgr 1 off");
}
