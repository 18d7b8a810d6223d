#include "daemons/service/ready_descriptor.h"

#include <unistd.h>

#include <cerrno>

int TellReadyDescriptor(int descriptor) {
    if (descriptor < 0) {
        return 0;
    }
    const char byte = '1';
    const int error = write(descriptor, &byte, sizeof(byte)) == sizeof(byte) ? 0 : errno;
    static_cast<void>(close(descriptor));
    return error;
}
