#include "bench/processes/stamp_pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace Bench {

void AwaitReadable(int fd, const char* what) {
    pollfd waiting{fd, POLLIN, 0};
    const auto patience = std::chrono::milliseconds(kPatience).count();
    if (poll(&waiting, 1, static_cast<int>(patience)) != 1) {
        throw std::runtime_error(std::string("waited too long for ") + what);
    }
}

// Open for writing, too, so that it never ends, whoever comes and goes.
StampPipe::StampPipe(const std::string& path) {
    if (mkfifo(path.c_str(), S_IRUSR | S_IWUSR) == 0) {
        pipe_.Reset(open(path.c_str(), O_RDWR | O_CLOEXEC));
    }
    if (!pipe_.IsOpen()) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

std::vector<BenchStamp> StampPipe::Take(size_t count) const {
    std::vector<BenchStamp> stamps(count);
    auto* const bytes = reinterpret_cast<char*>(stamps.data());
    const size_t size = count * sizeof(BenchStamp);
    for (size_t done = 0; done < size;) {
        AwaitReadable(pipe_.Get(), "the time stamps of applications; is one of them not started, or not ended?");
        const ssize_t length = read(pipe_.Get(), bytes + done, size - done);
        if (length <= 0) {
            throw std::system_error(errno, std::generic_category(), "time stamps");
        }
        done += static_cast<size_t>(length);
    }
    return stamps;
}

}  // namespace Bench
