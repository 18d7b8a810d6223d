#include "platform/posix/vek/shm_pool.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace ProcMgr {

namespace {

constexpr int kSizeSeals = F_SEAL_SHRINK | F_SEAL_GROW;

#ifdef F_SEAL_FUTURE_WRITE
constexpr int kWriteSeal = F_SEAL_FUTURE_WRITE;
#else
constexpr int kWriteSeal = 0;
#endif

/// A kernel that does not know the seal against writing leaves the client the right to spoil what only it reads.
bool Seal(int fd) {
    return ::fcntl(fd, F_ADD_SEALS, kSizeSeals | kWriteSeal | F_SEAL_SEAL) == 0 ||
           (errno == EINVAL && ::fcntl(fd, F_ADD_SEALS, kSizeSeals | F_SEAL_SEAL) == 0);
}

}  // namespace

int ShmPool::Make(const VEKShmPoolConfig& config, std::shared_ptr<ShmPool>& pool) {
    const size_t bytes = size_t{config.blockSize} * config.blockCount;
    if (bytes == 0 || bytes > kBytesMax) {
        return EINVAL;
    }
    UniqueFd fd(::memfd_create("procmgr-events", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!fd || ::ftruncate(fd.Get(), static_cast<off_t>(bytes)) != 0) {
        return errno;
    }
    void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd.Get(), 0);
    if (memory == MAP_FAILED) {
        return errno;
    }
    if (!Seal(fd.Get())) {
        const int error = errno;
        ::munmap(memory, bytes);
        return error;
    }
    try {
        // The constructor is private; make_shared can't reach it.
        pool = std::shared_ptr<ShmPool>(new ShmPool(config, std::move(fd), static_cast<char*>(memory)));
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
    return 0;
}

ShmPool::ShmPool(const VEKShmPoolConfig& config, UniqueFd fd, char* memory)
    : config_(config), fd_(std::move(fd)), memory_(memory), blocks_(config.blockCount) {
}

ShmPool::~ShmPool() {
    ::munmap(memory_, Bytes());
}

int ShmPool::Take(size_t size, uint32_t& block) {
    if (size > config_.blockSize) {
        return EMSGSIZE;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = std::find_if(blocks_.begin(), blocks_.end(),
                                    [](const Block& candidate) { return candidate.state == State::FREE; });
    if (found == blocks_.end()) {
        return ENOMEM;
    }
    *found = {State::TAKEN, static_cast<uint32_t>(size)};
    block = static_cast<uint32_t>(found - blocks_.begin());
    return 0;
}

int ShmPool::Write(uint32_t block, const void* data, size_t size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (block >= blocks_.size() || blocks_[block].state != State::TAKEN) {
        return EINVAL;
    }
    if (size > blocks_[block].size) {
        return EMSGSIZE;
    }
    if (size > 0) {
        std::memcpy(memory_ + size_t{block} * config_.blockSize, data, size);
    }
    return 0;
}

int ShmPool::Free(uint32_t block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return Move(block, State::TAKEN, State::FREE);
}

int ShmPool::Queue(uint32_t block, uint32_t& size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int error = Move(block, State::TAKEN, State::QUEUED);
    if (error == 0) {
        size = blocks_[block].size;
    }
    return error;
}

void ShmPool::Unqueue(uint32_t block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    static_cast<void>(Move(block, State::QUEUED, State::TAKEN));
}

int ShmPool::GiveBack(uint32_t block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return Move(block, State::QUEUED, State::FREE);
}

int ShmPool::Move(uint32_t block, State from, State to) {
    if (block >= blocks_.size() || blocks_[block].state != from) {
        return EINVAL;
    }
    blocks_[block].state = to;
    return 0;
}

}  // namespace ProcMgr
