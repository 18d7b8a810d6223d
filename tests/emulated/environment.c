/// Preloaded into each program that runs under the emulator, which turns the order of the environment round when it
/// starts one. Turned round once more it is what whoever started the program gave to it.
#include <stddef.h>
#include <unistd.h>

__attribute__((constructor)) static void RestoreOrder(void) {
    size_t count = 0;
    while (environ != NULL && environ[count] != NULL) {
        ++count;
    }
    for (size_t i = 0; i < count / 2; ++i) {
        char* const entry = environ[i];
        environ[i] = environ[count - 1 - i];
        environ[count - 1 - i] = entry;
    }
}
