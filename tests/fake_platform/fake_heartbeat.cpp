#include "tests/fake_platform/fake_heartbeat.h"

#include <cerrno>
#include <thread>

namespace {

constexpr size_t kNameMax = 256;

std::string NameOf(const char* name, size_t length) {
    return name == nullptr ? std::string() : std::string(name, length);
}

bool IsName(const std::string& name) {
    return !name.empty() && name.size() <= kNameMax;
}

}  // namespace

std::string FakeHeartBeat::Call::ToString() const {
    switch (operation) {
        case Operation::REGISTER_SEND:
            return "send " + name + " to " + peer;
        case Operation::UNREGISTER_SEND:
            return "stop sending";
        case Operation::REGISTER_CHECK:
            return "check " + name + " gid=" + std::to_string(gid);
        case Operation::UNREGISTER_CHECK:
            return "stop checking " + name;
        case Operation::DISABLE_ALL:
            break;
    }
    return "stop checking all";
}

FakeHeartBeat& FakeHeartBeat::Get() {
    static FakeHeartBeat& heartBeat = *new FakeHeartBeat;
    return heartBeat;
}

std::vector<FakeHeartBeat::Call> FakeHeartBeat::Calls() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<std::string> FakeHeartBeat::Lines() const {
    const std::vector<Call> calls = Calls();
    std::vector<std::string> lines;
    lines.reserve(calls.size());
    for (const Call& call : calls) {
        lines.push_back(call.ToString());
    }
    return lines;
}

void FakeHeartBeat::SetResult(Operation operation, int result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    results_[operation] = result;
}

int FakeHeartBeat::ResultOf(Operation operation) const {
    const auto found = results_.find(operation);
    return found == results_.end() ? 0 : found->second;
}

int FakeHeartBeat::NotifyHeartBeat(const std::string& name, unsigned int pid, int status) {
    return NotifyRaw(name.data(), name.size(), pid, status);
}

int FakeHeartBeat::NotifyRaw(const char* name, size_t nameLen, unsigned int pid, int status) {
    const std::lock_guard<std::mutex> oneAtATime(noticeMutex_);
    HeartBeatNotify callback = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto watch = watches_.find(NameOf(name, nameLen));
        callback = watch == watches_.end() ? lastCallback_ : watch->second;
    }
    if (callback == nullptr) {
        return -1;
    }
    int result = 0;
    std::thread([&result, callback, name, nameLen, pid, status] {
        result = callback(name, nameLen, pid, status);
    }).join();
    return result;
}

bool FakeHeartBeat::IsChecked(const std::string& name) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return watches_.count(name) != 0;
}

size_t FakeHeartBeat::SenderCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return senders_.size();
}

int FakeHeartBeat::RegisterSend(const std::string& name, const std::string& peer, HeartBeatHandle* handle) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool isGood = IsName(name) && IsName(peer) && handle != nullptr;
    const int result = isGood ? ResultOf(Operation::REGISTER_SEND) : EINVAL;
    HeartBeatHandle made = nullptr;
    if (result == 0) {
        // A handle is only compared, never followed.
        made = reinterpret_cast<HeartBeatHandle>(nextHandle_++);
        senders_[made] = name;
        *handle = made;
    }
    calls_.push_back({Operation::REGISTER_SEND, name, peer, 0, made, false});
    return result;
}

int FakeHeartBeat::UnregisterSend(HeartBeatHandle handle) {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back({Operation::UNREGISTER_SEND, "", "", 0, handle, false});
    const int result = ResultOf(Operation::UNREGISTER_SEND);
    if (result != 0) {
        return result;
    }
    return senders_.erase(handle) == 1 ? 0 : -1;
}

int FakeHeartBeat::RegisterCheck(const std::string& name, unsigned int gid, HeartBeatNotify callback) {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back({Operation::REGISTER_CHECK, name, "", gid, nullptr, callback != nullptr});
    const bool isGood = IsName(name) && callback != nullptr;
    const int result = isGood ? ResultOf(Operation::REGISTER_CHECK) : EINVAL;
    if (result == 0) {
        watches_[name] = callback;
        lastCallback_ = callback;
    }
    return result;
}

int FakeHeartBeat::UnregisterCheck(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back({Operation::UNREGISTER_CHECK, name, "", 0, nullptr, false});
    const int result = ResultOf(Operation::UNREGISTER_CHECK);
    if (result != 0) {
        return result;
    }
    return watches_.erase(name) == 1 ? 0 : -1;
}

int FakeHeartBeat::DisableAll() {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back({Operation::DISABLE_ALL, "", "", 0, nullptr, false});
    watches_.clear();
    return ResultOf(Operation::DISABLE_ALL);
}

extern "C" {

int RegisterSendHeartBeat(const char* name, size_t nameLen, const char* peer, size_t peerLen, HeartBeatHandle* handle) {
    return FakeHeartBeat::Get().RegisterSend(NameOf(name, nameLen), NameOf(peer, peerLen), handle);
}

int UnregisterSendHeartBeat(HeartBeatHandle handle) {
    return FakeHeartBeat::Get().UnregisterSend(handle);
}

int RegisterCheckHeartBeat(const char* name, size_t nameLen, unsigned int gid, HeartBeatNotify callback) {
    return FakeHeartBeat::Get().RegisterCheck(NameOf(name, nameLen), gid, callback);
}

int UnregisterCheckHeartBeat(const char* name, size_t nameLen) {
    return FakeHeartBeat::Get().UnregisterCheck(NameOf(name, nameLen));
}

int DisableAllCheckHeartBeat(void) {
    return FakeHeartBeat::Get().DisableAll();
}

}  // extern "C"
