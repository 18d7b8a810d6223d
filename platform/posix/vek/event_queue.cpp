#include "platform/posix/vek/event_queue.h"

#include <cerrno>
#include <utility>

#include "platform/posix/vek/bus_frame.h"

namespace ProcMgr {

int EventQueue::Start(std::shared_ptr<const UniqueFd> socket, const VekFrameHead& answer, VekQfsMgrFile& record,
                      VEKQueueHandle handle) {
    const std::lock_guard<std::mutex> lock(mutex_);
    socket_ = std::move(socket);
    // Whoever has the answer may count on the handle.
    __atomic_store_n(&record.queueHandle, handle, __ATOMIC_RELEASE);
    const int error = SendBusFrame(socket_->Get(), answer, nullptr);
    return error != 0 || pool_ == nullptr ? error : AnnouncePool();
}

void EventQueue::Close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    socket_.reset();
}

const char* EventQueue::TakeBack(uint32_t poolNumber, uint32_t block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (poolNumber == 0 || poolNumber > poolNumber_) {
        return "it handed back a block of a pool that it was never given";
    }
    if (poolNumber != poolNumber_ || pool_ == nullptr) {
        // The pool was destroyed while the client read.
        return nullptr;
    }
    if (pool_->GiveBack(block) != 0) {
        return "it handed back a block that it does not have";
    }
    --withClient_;
    return nullptr;
}

int EventQueue::AddPool(const std::shared_ptr<ShmPool>& pool) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (pool_ != nullptr) {
        return EEXIST;
    }
    pool_ = pool;
    ++poolNumber_;
    withClient_ = 0;
    const int error = socket_ == nullptr ? 0 : AnnouncePool();
    if (error != 0) {
        pool_.reset();
    }
    return -error;
}

void EventQueue::RemovePool(const ShmPool* pool) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (pool_.get() == pool) {
        pool_.reset();
    }
}

int EventQueue::Enqueue(ShmPool& pool, uint32_t block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (socket_ == nullptr) {
        return -EPIPE;
    }
    if (pool_.get() != &pool) {
        return -EINVAL;
    }
    if (withClient_ >= kEventsMax) {
        return -EAGAIN;
    }
    uint32_t size = 0;
    if (const int error = pool.Queue(block, size)) {
        return -error;
    }
    const int error = Announce(block, size);
    if (error != 0) {
        pool.Unqueue(block);
        return error;
    }
    ++withClient_;
    return 0;
}

int EventQueue::AnnouncePool() const {
    const uint32_t sizes[2] = {pool_->Config().blockSize, pool_->Config().blockCount};
    return SendBusFrame(socket_->Get(), {VEK_POOL, poolNumber_, sizeof(sizes), 0}, sizes, pool_->Fd());
}

int EventQueue::Announce(uint32_t block, uint32_t size) const {
    const uint32_t place[2] = {block, size};
    return SendBusFrame(socket_->Get(), {VEK_EVENT, poolNumber_, sizeof(place), 0}, place);
}

}  // namespace ProcMgr
