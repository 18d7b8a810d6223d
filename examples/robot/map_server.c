/* An application that is a shared object: the process manager runs it inside a host process, which calls this entry. */
#include <signal.h>
#include <stdio.h>

__attribute__((visibility("default"))) int procmgr_app_main(int argc, char** argv);

int procmgr_app_main(int argc, char** argv) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, NULL);
    printf("map_server: serving the map '%s'\n", argc > 1 ? argv[1] : "empty");
    fflush(stdout);
    int received = 0;
    sigwait(&ends, &received);
    printf("map_server: asked to end\n");
    return 0;
}
