// The process manager at the other end of this pipe lives in the same process. It prints each request, does nothing,
// and reports on a thread of its own that it is done. The records are those of docs/protocol.md.
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "platform/include/owner_link.h"
#include "platform/include/tunor.h"

namespace {

struct Record {
    uint32_t type;
    uint32_t reserved;
    uint64_t size;
    char data[3968];
};

enum : uint32_t { kStart, kRestart, kTerminate, kBaseServiceState, kReport };

constexpr int kFd = 1;
constexpr const char* kVerbs[] = {"start", "restart", "terminate"};
constexpr const char* kOutcomes[] = {"0", "1", "3"};  // it runs, it runs again, it ended as it should

// "2#power#0#0#nav#0#0#" or "1#nav#": the fields, one after the other.
class Fields {
public:
    explicit Fields(std::string text) : text_(std::move(text)) {}

    std::string Next() {
        const size_t end = text_.find('#', at_);
        const std::string field = text_.substr(at_, end - at_);
        at_ = end + 1;
        return field;
    }

private:
    std::string text_;
    size_t at_ = 0;
};

class ProcessManager {
public:
    void Open(TunorRequestHandler handler) {
        handler_ = handler;
        thread_ = std::thread([this] { Report(); });
    }

    void Close() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            isClosing_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

    void Take(const Record& request) {
        if (request.type > kTerminate) {
            return;
        }
        Fields fields(std::string(request.data, request.size));
        for (int left = std::stoi(fields.Next()); left > 0; --left) {
            const std::string name = fields.Next();
            std::printf("%s %s\n", kVerbs[request.type], name.c_str());
            if (request.type != kTerminate) {
                // Neither arguments nor parameters in this group.
                fields.Next();
                fields.Next();
            }
            const std::lock_guard<std::mutex> lock(mutex_);
            reports_.push_back("1#" + name + "#7#0#" + kOutcomes[request.type] + "#0#");
        }
        changed_.notify_all();
    }

private:
    void Report() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            changed_.wait(lock, [this] { return isClosing_ || !reports_.empty(); });
            if (reports_.empty()) {
                return;
            }
            Record record{kReport, 0, reports_.front().size(), {}};
            memcpy(record.data, reports_.front().data(), reports_.front().size());
            reports_.pop_front();
            lock.unlock();
            TunorRequest request{&record, sizeof(record)};
            handler_(kFd, &request);
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> reports_;
    bool isClosing_ = false;
    TunorRequestHandler handler_ = nullptr;
    std::thread thread_;
};

// The library closes the pipe while the process exits, when static objects may be gone.
ProcessManager& TheProcessManager() {
    static ProcessManager& manager = *new ProcessManager;
    return manager;
}

}  // namespace

int TunorOpen(const TunorOpenParam* param) {
    TheProcessManager().Open(param->handler);
    return kFd;
}

int TunorSendRequest(int /*fd*/, const TunorRequest* request) {
    Record record;
    memcpy(&record, request->data, sizeof(record));
    TheProcessManager().Take(record);
    return 0;
}

int TunorSendResponse(int /*fd*/, const TunorResponse* /*response*/) {
    return 0;
}

int TunorRPCSync(int fd, const TunorRequest* request, TunorResponse* response) {
    return TunorTimedRPCSync(fd, request, response, 0);
}

// The only call is the one that names the manifests.
int TunorTimedRPCSync(int /*fd*/, const TunorRequest* /*request*/, TunorResponse* response, uint32_t /*timeoutMs*/) {
    static char done[] = "0#";
    *response = {done, 2};
    return 0;
}

int TunorClosePipe(int /*fd*/) {
    TheProcessManager().Close();
    return 0;
}

// Nobody reports himself here, and the pipe is lost with the process.
void OwnerSetAppReportHandler(OwnerAppReportHandler /*handler*/) {
}

void OwnerSetPipeLostHandler(OwnerPipeLostHandler /*handler*/) {
}
