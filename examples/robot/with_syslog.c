/* A syslog for one program: what it sends to syslog stands in a file, a line each, as it came.
 *
 *   with_syslog FILE PROGRAM [ARGUMENT...]
 *
 * The program takes the place of this one, so its process id, its signals and its exit code are those of with_syslog. A
 * child of it receives at a /dev/log which only the two see, and ends with the program. Where the kernel grants no
 * mount namespace the program runs all the same, and its messages go where they always go; a line on the standard error
 * tells.
 */
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

enum { kMessageMax = 65536 };

extern char** environ;

static int writeTo(const char* path, const char* text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) {
        return -1;
    }
    const ssize_t written = write(file, text, strlen(text));
    close(file);
    return written == (ssize_t)strlen(text) ? 0 : -1;
}

/* Keeps the user as who he is: only the right to mount is wanted of the namespace. */
static int mapUser(unsigned user, unsigned group) {
    char users[64];
    char groups[64];
    snprintf(users, sizeof(users), "%u %u 1", user, user);
    snprintf(groups, sizeof(groups), "%u %u 1", group, group);
    if (writeTo("/proc/self/setgroups", "deny") != 0 || writeTo("/proc/self/uid_map", users) != 0) {
        return -1;
    }
    return writeTo("/proc/self/gid_map", groups);
}

static int enterNamespace(void) {
    const unsigned user = getuid();
    const unsigned group = getgid();
    if (unshare(CLONE_NEWNS) != 0 && (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || mapUser(user, group) != 0)) {
        return -1;
    }
    return mount(NULL, "/", NULL, MS_REC | MS_PRIVATE, NULL);
}

static int bindNode(const char* folder, const char* name) {
    char from[64];
    char to[128];
    snprintf(from, sizeof(from), "/dev/%s", name);
    snprintf(to, sizeof(to), "%s/%s", folder, name);
    const int node = open(to, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (node < 0) {
        return -1;
    }
    close(node);
    return mount(from, to, NULL, MS_BIND, NULL);
}

static int linkTo(const char* folder, const char* name, const char* target) {
    char path[128];
    snprintf(path, sizeof(path), "%s/%s", folder, name);
    return symlink(target, path);
}

static int fillDev(const char* folder) {
    static const char* const kNodes[] = {"null", "zero", "full", "random", "urandom", "tty"};
    for (size_t at = 0; at < sizeof(kNodes) / sizeof(kNodes[0]); ++at) {
        if (bindNode(folder, kNodes[at]) != 0) {
            return -1;
        }
    }
    return linkTo(folder, "fd", "/proc/self/fd") == 0 ? mount(folder, "/dev", NULL, MS_BIND | MS_REC, NULL) : -1;
}

/* A /dev of few nodes, because the real one may have no place for the socket. It is put together over a folder that is
 * everywhere, and then seen in its own place alone. */
static int replaceDev(void) {
    static const char kFolder[] = "/tmp";
    if (mount("dev", kFolder, "tmpfs", MS_NOSUID, "mode=0755") != 0) {
        return -1;
    }
    const int result = fillDev(kFolder);
    umount2(kFolder, MNT_DETACH);
    return result;
}

static int listenAtDevLog(void) {
    const struct sockaddr_un address = {AF_UNIX, "/dev/log"};
    const int receiver = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (receiver < 0 || bind(receiver, (const struct sockaddr*)&address, sizeof(address)) != 0) {
        return -1;
    }
    return receiver;
}

/* Returns when the program is gone and all that it sent is kept, or when the file takes no more. */
static void receive(int receiver, int program, int file) {
    static char message[kMessageMax + 1];
    for (;;) {
        struct pollfd sources[] = {{receiver, POLLIN, 0}, {program, POLLIN, 0}};
        if (poll(sources, 2, -1) < 0 || sources[0].revents == 0) {
            return;
        }
        const ssize_t size = recv(receiver, message, kMessageMax, 0);
        if (size < 0) {
            return;
        }
        message[size] = '\n';
        if (write(file, message, (size_t)size + 1) < 0) {
            return;
        }
    }
}

/* Whoever looks for the processes of a run by their environment or waits for the end of an output does not mean the
 * receiver. */
static void standAside(void) {
    for (char** variable = environ; *variable != NULL; ++variable) {
        memset(*variable, 0, strlen(*variable));
    }
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        close(descriptor);
    }
}

static int startReceiver(int file) {
    const int receiver = enterNamespace() == 0 && replaceDev() == 0 ? listenAtDevLog() : -1;
    const int program = receiver >= 0 ? (int)syscall(SYS_pidfd_open, getpid(), 0) : -1;
    const pid_t child = program >= 0 ? fork() : -1;
    if (child == 0) {
        standAside();
        receive(receiver, program, file);
        _exit(0);
    }
    if (receiver >= 0) {
        close(receiver);
    }
    if (program >= 0) {
        close(program);
    }
    return child > 0 ? 0 : -1;
}

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: with_syslog FILE PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    const int file = open(argv[1], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0) {
        fprintf(stderr, "with_syslog: cannot open '%s': %s\n", argv[1], strerror(errno));
        return 2;
    }
    if (startReceiver(file) != 0) {
        fprintf(stderr, "with_syslog: no syslog of its own for this program: %s\n", strerror(errno));
    }
    execv(argv[2], argv + 2);
    fprintf(stderr, "with_syslog: cannot run '%s': %s\n", argv[2], strerror(errno));
    return 127;
}
