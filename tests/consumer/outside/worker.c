/* An application that is up when it says so. */
#include <unistd.h>

#include "procmgr_app.h"

int main(void) {
    if (ProcmgrAppReady() != 0) {
        return 1;
    }
    for (;;) {
        pause();
    }
}
