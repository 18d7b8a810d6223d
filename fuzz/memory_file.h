/// A file in memory, for readers that take a path.
#ifndef PROCMGR_FUZZ_MEMORY_FILE_H
#define PROCMGR_FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_input.h"

namespace Fuzz {

class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) : fd_(::memfd_create("fuzz", MFD_CLOEXEC)) {
        Require(fd_ >= 0 && ::write(fd_, data, size) == static_cast<ssize_t>(size));
    }
    ~MemoryFile() { ::close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

}  // namespace Fuzz

#endif
