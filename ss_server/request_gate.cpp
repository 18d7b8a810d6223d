#include "ss_server/request_gate.h"

#include <algorithm>

namespace ProcMgr {

bool RequestGate::Enter() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (isClosed_) {
        return false;
    }
    inside_.push_back(std::this_thread::get_id());
    return true;
}

void RequestGate::Leave() noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto visit = std::find(inside_.begin(), inside_.end(), std::this_thread::get_id());
    if (visit != inside_.end()) {
        inside_.erase(visit);
        left_.notify_all();
    }
}

void RequestGate::Close() {
    std::unique_lock<std::mutex> lock(mutex_);
    isClosed_ = true;
    left_.wait(lock, [this] { return OnlyCallerIsInside(); });
}

bool RequestGate::OnlyCallerIsInside() const {
    return std::all_of(inside_.begin(), inside_.end(),
                       [caller = std::this_thread::get_id()](std::thread::id id) { return id == caller; });
}

}  // namespace ProcMgr
