/* A system-state manager that asks the group's service for the list of its applications and prints the answer. */
#include <stdio.h>
#include <string.h>

#include "procmgr_ss.h"

enum { LIST = 6, PAYLOAD = 12 };

int main(void) {
    char buffer[PROCMGR_SS_BUFFER_SIZE] = {0};
    ProcmgrSsFile* file = NULL;
    int32_t result = 0;
    uint32_t length = 0;
    int error = ProcmgrSsOpen(NULL, "outside", 0, &file);
    if (error == 0) {
        error = ProcmgrSsIoctl(file, LIST, buffer, sizeof(buffer), 0, &result);
        ProcmgrSsClose(file);
    }
    if (error != 0 || result < 0) {
        printf("error %d, result %d\n", error, (int)result);
        return 1;
    }
    memcpy(&length, buffer, sizeof(length));
    printf("%.*s\n", (int)length, buffer + PAYLOAD);
    return 0;
}
