#include "bench/bench_process_manager.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/include/heartbeat.h"
#include "platform/include/platform_log.h"

using ProcMgr::Message::PayloadSize;
using ProcMgr::Message::RequestMsg;
using ProcMgr::Message::RequestType;

namespace {

constexpr int kFd = 3;
constexpr size_t kReportsPerRecord = 100;
constexpr uint32_t kNormalStart = 0;
constexpr uint32_t kNormalRestart = 1;
constexpr uint32_t kNormalExit = 3;

/// Reads the fields of a piece.
class Fields {
public:
    Fields(const char* begin, size_t size) : at_(begin), end_(begin + size) {}

    std::string Next() {
        const char* begin = at_;
        while (at_ != end_ && *at_ != '#') {
            ++at_;
        }
        std::string field(begin, at_);
        at_ += at_ == end_ ? 0 : 1;
        return field;
    }

    size_t NextNumber() { return std::strtoul(Next().c_str(), nullptr, 10); }

private:
    const char* at_;
    const char* end_;
};

uint32_t ReportFor(uint32_t requestType) {
    if (requestType == static_cast<uint32_t>(RequestType::TERM_APP)) {
        return kNormalExit;
    }
    return requestType == static_cast<uint32_t>(RequestType::RESTART_APP) ? kNormalRestart : kNormalStart;
}

}  // namespace

BenchProcessManager& BenchProcessManager::Get() {
    static BenchProcessManager& manager = *new BenchProcessManager;
    return manager;
}

void BenchProcessManager::Open(TunorRequestHandler handler) {
    handler_ = handler;
    thread_ = std::thread([this] { Run(); });
}

void BenchProcessManager::Close() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isClosing_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void BenchProcessManager::Take(const TunorRequest& request) {
    RequestMsg record{};
    memcpy(&record, request.data, sizeof(record));
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(record);
        if (reportedAt_ != Clock::time_point()) {
            latencies_.push_back(std::chrono::duration<double, std::micro>(Clock::now() - reportedAt_).count());
            reportedAt_ = {};
        }
    }
    changed_.notify_all();
}

std::vector<double> BenchProcessManager::TakeLatencies() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(latencies_, {});
}

void BenchProcessManager::Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isClosing_ || !requests_.empty(); });
        if (requests_.empty()) {
            return;
        }
        const RequestMsg request = requests_.front();
        requests_.pop_front();
        lock.unlock();
        Answer(request);
        lock.lock();
    }
}

void BenchProcessManager::Answer(const RequestMsg& request) {
    Fields fields(request.data, PayloadSize(request));
    std::vector<std::string> entries;
    for (size_t left = fields.NextNumber(); left > 0; --left) {
        const std::string name = fields.Next();
        if (request.type != static_cast<uint32_t>(RequestType::TERM_APP)) {
            // The benchmark gives neither arguments nor dynamic parameters.
            fields.NextNumber();
            fields.NextNumber();
        }
        entries.push_back(name + "#7#0#" + std::to_string(ReportFor(request.type)) + "#0#");
    }
    for (size_t begin = 0; begin < entries.size(); begin += kReportsPerRecord) {
        const size_t end = begin + kReportsPerRecord;
        Send(entries, begin, end < entries.size() ? end : entries.size());
    }
}

void BenchProcessManager::Send(const std::vector<std::string>& entries, size_t begin, size_t end) {
    std::string text = std::to_string(end - begin) + "#";
    for (size_t at = begin; at < end; ++at) {
        text += entries[at];
    }
    RequestMsg record{};
    record.type = static_cast<uint32_t>(RequestType::APP_STATE_REPORT);
    record.size = text.size();
    memcpy(record.data, text.data(), text.size());
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        reportedAt_ = Clock::now();
    }
    TunorRequest request{&record, sizeof(record)};
    handler_(kFd, &request);
}

// The platform.

int TunorOpen(const TunorOpenParam* param) {
    BenchProcessManager::Get().Open(param->handler);
    return kFd;
}

int TunorSendRequest(int /*fd*/, const TunorRequest* request) {
    BenchProcessManager::Get().Take(*request);
    return 0;
}

int TunorSendResponse(int /*fd*/, const TunorResponse* /*response*/) {
    return 0;
}

int TunorRPCSync(int fd, const TunorRequest* request, TunorResponse* response) {
    return TunorTimedRPCSync(fd, request, response, 0);
}

int TunorTimedRPCSync(int /*fd*/, const TunorRequest* /*request*/, TunorResponse* response, uint32_t /*timeoutMs*/) {
    static char answer[] = "0";
    response->data = answer;
    response->size = 1;
    return 0;
}

int TunorClosePipe(int /*fd*/) {
    BenchProcessManager::Get().Close();
    return 0;
}

bool IsSyslogEnable(void) {
    return false;
}

void EnableSyslogState(void) {
}

int CheckLogLevel(uint32_t /*moduleId*/, int32_t /*level*/) {
    return 0;
}

void KmonRecord(uint32_t /*moduleId*/, int32_t /*level*/, const char* /*format*/, ...) {
}

int RegisterSendHeartBeat(const char* /*name*/, size_t /*nameLen*/, const char* /*peer*/, size_t /*peerLen*/,
                          HeartBeatHandle* /*handle*/) {
    return 0;
}

int UnregisterSendHeartBeat(HeartBeatHandle /*handle*/) {
    return 0;
}

int RegisterCheckHeartBeat(const char* /*name*/, size_t /*nameLen*/, unsigned int /*gid*/,
                           HeartBeatNotify /*callback*/) {
    return 0;
}

int UnregisterCheckHeartBeat(const char* /*name*/, size_t /*nameLen*/) {
    return 0;
}
