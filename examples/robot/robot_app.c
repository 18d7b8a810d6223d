/* One program that plays every part of the example robot: it says that it is there, gets ready when it should, beats,
 * may crash once, and ends when it is asked to. What it does stands on its command line, so that a manifest shows it
 * all.
 *
 *   --ready-after MS      report readiness after so many ms (a self-reporting application)
 *   --crash-once FILE     crash 600 ms after the start, unless FILE is there already; FILE is made before the crash
 *   --beat-every MS       a heartbeat from the main loop every so many ms; 0: from the library's thread, in its period
 *   --tick MS             print a line every so many ms (1000 by default)
 */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "platform/posix/app/procmgr_app.h"

enum { kCrashAfterMs = 600, kNever = -1 };

struct options {
    long readyAfterMs;
    long tickMs;
    long beatMs;
    const char* crashFile;
};

static const char* appName(void) {
    const char* name = getenv("PROCMGR_APP_NAME");
    return name != NULL ? name : "robot_app";
}

static void say(const char* text) {
    printf("%s: %s\n", appName(), text);
    fflush(stdout);
}

static long nowMs(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (long)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

static long number(const char* option, const char* text) {
    char* end = NULL;
    errno = 0;
    const long value = text != NULL ? strtol(text, &end, 10) : -1;
    if (text == NULL || *text == '\0' || *end != '\0' || errno != 0 || value < 0) {
        fprintf(stderr, "robot_app: %s wants a number of ms, not '%s'\n", option, text != NULL ? text : "");
        exit(2);
    }
    return value;
}

static struct options parse(int argc, char** argv) {
    struct options options = {kNever, 1000, kNever, NULL};
    for (int at = 1; at < argc; at += 2) {
        const char* value = at + 1 < argc ? argv[at + 1] : NULL;
        if (strcmp(argv[at], "--ready-after") == 0) {
            options.readyAfterMs = number(argv[at], value);
        } else if (strcmp(argv[at], "--tick") == 0) {
            options.tickMs = number(argv[at], value);
        } else if (strcmp(argv[at], "--beat-every") == 0) {
            options.beatMs = number(argv[at], value);
        } else if (strcmp(argv[at], "--crash-once") == 0 && value != NULL) {
            options.crashFile = value;
        } else {
            fprintf(stderr, "robot_app: unknown option '%s'\n", argv[at]);
            exit(2);
        }
    }
    return options;
}

static void reportReady(void) {
    if (ProcmgrAppReady() != 0) {
        fprintf(stderr, "%s: cannot report readiness: %s\n", appName(), strerror(errno));
        exit(1);
    }
    say("ready");
}

static void beat(int (*how)(void)) {
    if (how() != 0) {
        fprintf(stderr, "%s: cannot beat: %s\n", appName(), strerror(errno));
    }
}

static void crashUnlessDone(const char* file) {
    const int fd = open(file, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    close(fd);
    say("crashing");
    abort();
}

/* Waits for SIGTERM until the deadline; true when it came. */
static int askedToEnd(long deadlineMs) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    const long left = deadlineMs - nowMs();
    const struct timespec wait = {left > 0 ? left / 1000 : 0, left > 0 ? left % 1000 * 1000000 : 0};
    return sigtimedwait(&ends, NULL, &wait) > 0;
}

static long earlier(long first, long second) {
    return second != kNever && second < first ? second : first;
}

static int run(const struct options* options) {
    const long start = nowMs();
    long nextTick = start + options->tickMs;
    long nextBeat = options->beatMs > 0 ? start : kNever;
    long ready = options->readyAfterMs != kNever ? start + options->readyAfterMs : kNever;
    long crash = options->crashFile != NULL ? start + kCrashAfterMs : kNever;
    for (;;) {
        if (askedToEnd(earlier(earlier(earlier(nextTick, nextBeat), ready), crash))) {
            say("asked to end");
            return 0;
        }
        const long now = nowMs();
        if (ready != kNever && now >= ready) {
            reportReady();
            ready = kNever;
        }
        if (crash != kNever && now >= crash) {
            crashUnlessDone(options->crashFile);
            crash = kNever;
        }
        if (nextBeat != kNever && now >= nextBeat) {
            beat(ProcmgrAppBeat);
            nextBeat = now + options->beatMs;
        }
        if (now >= nextTick) {
            say("tick");
            nextTick = now + options->tickMs;
        }
    }
}

int main(int argc, char** argv) {
    const struct options options = parse(argc, argv);
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, NULL);
    say("started");
    if (options.beatMs == 0) {
        beat(ProcmgrAppStartBeating);
    }
    return run(&options);
}
