#define _GNU_SOURCE

#include "platform/posix/app/procmgr_app.h"

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include "platform/posix/app/app_datagram.h"

static const long kPatienceMs = 2000;
static const int kDefaultPeriodMs = 1000;

/* The thread that beats, if there is one. Starting and stopping are serialised; `isStopping` is told under the lock. */
static pthread_mutex_t startStop = PTHREAD_MUTEX_INITIALIZER;
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t stopped;
static pthread_t beater;
static pid_t beatingProcess; /* 0: nobody beats; a child that inherits the number is another process */
static int isStopping;

static int Report(const char* text) {
    const int error = ProcmgrAppDatagram(getenv("PROCMGR_APP_SOCKET"), text, kPatienceMs);
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

int ProcmgrAppBeat(void) {
    return Report("procmgr 1 beat");
}

int ProcmgrAppBeatPeriodMs(void) {
    const char* text = getenv("PROCMGR_HEARTBEAT_PERIOD_MS");
    char* end = NULL;
    long period = 0;
    if (text == NULL || text[0] < '0' || text[0] > '9') {
        return kDefaultPeriodMs;
    }
    period = strtol(text, &end, 10);
    return *end == '\0' && period > 0 && period <= INT_MAX ? (int)period : kDefaultPeriodMs;
}

/* The next beat is planned from the last plan, so that beats do not drift; from now when that has passed already. */
static struct timespec NextBeat(struct timespec planned, int periodMs) {
    struct timespec now;
    struct timespec next = planned;
    clock_gettime(CLOCK_MONOTONIC, &now);
    next.tv_sec += periodMs / 1000;
    next.tv_nsec += (long)(periodMs % 1000) * 1000000;
    if (next.tv_nsec >= 1000000000) {
        next.tv_sec += 1;
        next.tv_nsec -= 1000000000;
    }
    if (next.tv_sec < now.tv_sec || (next.tv_sec == now.tv_sec && next.tv_nsec < now.tv_nsec)) {
        return now;
    }
    return next;
}

static int IsStoppedBefore(const struct timespec* time) {
    int result = 0;
    pthread_mutex_lock(&lock);
    while (!isStopping && result == 0) {
        result = pthread_cond_timedwait(&stopped, &lock, time);
    }
    result = isStopping;
    pthread_mutex_unlock(&lock);
    return result;
}

static void* BeatUntilStopped(void* unused) {
    const int periodMs = ProcmgrAppBeatPeriodMs();
    struct timespec next;
    (void)unused;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (;;) {
        next = NextBeat(next, periodMs);
        if (IsStoppedBefore(&next)) {
            return NULL;
        }
        (void)ProcmgrAppBeat();
    }
}

static int StartThread(void) {
    pthread_condattr_t attributes;
    sigset_t all;
    sigset_t before;
    int error = 0;
    isStopping = 0;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&stopped, &attributes);
    pthread_condattr_destroy(&attributes);
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    error = pthread_create(&beater, NULL, BeatUntilStopped, NULL);
    pthread_sigmask(SIG_SETMASK, &before, NULL);
    return error;
}

int ProcmgrAppStartBeating(void) {
    int result = 0;
    pthread_mutex_lock(&startStop);
    if (beatingProcess != getpid()) {
        result = ProcmgrAppBeat();
        if (result == 0) {
            const int error = StartThread();
            beatingProcess = error == 0 ? getpid() : 0;
            result = error == 0 ? 0 : -1;
            errno = error == 0 ? errno : error;
        }
    }
    pthread_mutex_unlock(&startStop);
    return result;
}

void ProcmgrAppStopBeating(void) {
    pthread_mutex_lock(&startStop);
    if (beatingProcess == getpid()) {
        pthread_mutex_lock(&lock);
        isStopping = 1;
        pthread_cond_signal(&stopped);
        pthread_mutex_unlock(&lock);
        pthread_join(beater, NULL);
        pthread_cond_destroy(&stopped);
    }
    beatingProcess = 0;
    pthread_mutex_unlock(&startStop);
}
