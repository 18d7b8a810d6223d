#include "tests/fake_platform/fake_pipe.h"

#include <cerrno>
#include <chrono>
#include <deque>
#include <thread>
#include <utility>

namespace {

constexpr std::chrono::seconds kPatience{30};

std::string BytesOf(const void* data, uint32_t size) {
    return data == nullptr ? std::string() : std::string(static_cast<const char*>(data), size);
}

// Bytes at an odd address, with nothing behind them, so that the sanitizers see a careless reader.
class OddBytes {
public:
    OddBytes() = default;
    explicit OddBytes(const std::string& bytes) : memory_(std::make_unique<char[]>(bytes.size() + 1)) {
        memcpy(memory_.get() + 1, bytes.data(), bytes.size());
    }
    void* Data() const { return memory_.get() + 1; }

private:
    std::unique_ptr<char[]> memory_;
};

template <typename T>
T TakeFirst(std::vector<T>& script, const T& otherwise) {
    if (script.empty()) {
        return otherwise;
    }
    T first = std::move(script.front());
    script.erase(script.begin());
    return first;
}

}  // namespace

// An open descriptor and the thread that delivers to it. The thread holds a share of it and ends after the close.
class FakePipe::Connection : public std::enable_shared_from_this<FakePipe::Connection> {
public:
    Connection(int fd, TunorRequestHandler handler) : fd_(fd), handler_(handler) {}

    void Run() {
        std::thread([self = shared_from_this()] { self->Loop(); }).detach();
    }

    void Enqueue(std::function<void()> delivery) {
        const std::lock_guard<std::mutex> lock(mutex_);
        queue_.push_back(std::move(delivery));
        changed_.notify_all();
    }

    // False when it was closed before. Waits for a running delivery, unless that is who closes.
    bool Close() {
        std::unique_lock<std::mutex> lock(mutex_);
        if (isClosed_) {
            return false;
        }
        isClosed_ = true;
        isAlive_ = false;
        queue_.clear();
        changed_.notify_all();
        if (threadId_ != std::this_thread::get_id()) {
            changed_.wait(lock, [this] { return !isBusy_; });
        }
        return true;
    }

    void Lose() {
        const std::lock_guard<std::mutex> lock(mutex_);
        isAlive_ = false;
    }

    bool IsAlive() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return isAlive_;
    }

    bool WaitUntilIdle() const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_until(lock, std::chrono::system_clock::now() + kPatience,
                                   [this] { return queue_.empty() && !isBusy_; });
    }

    void Handle(TunorRequest* request) const {
        if (handler_ != nullptr) {
            handler_(fd_, request);
        }
    }

    int Fd() const { return fd_; }

private:
    void Loop() {
        std::unique_lock<std::mutex> lock(mutex_);
        threadId_ = std::this_thread::get_id();
        while (!isClosed_) {
            if (queue_.empty()) {
                changed_.wait(lock);
                continue;
            }
            const std::function<void()> delivery = std::move(queue_.front());
            queue_.pop_front();
            isBusy_ = true;
            lock.unlock();
            delivery();
            lock.lock();
            isBusy_ = false;
            changed_.notify_all();
        }
    }

    const int fd_;
    const TunorRequestHandler handler_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::deque<std::function<void()>> queue_;
    std::thread::id threadId_;
    bool isBusy_ = false;
    bool isAlive_ = true;
    bool isClosed_ = false;
};

FakePipe& FakePipe::Get() {
    static FakePipe& pipe = *new FakePipe;
    return pipe;
}

std::vector<FakePipe::Open> FakePipe::Opens() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return opens_;
}

std::vector<int> FakePipe::Closed() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return closed_;
}

std::vector<FakePipe::Sent> FakePipe::AllSent() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sent_;
}

void FakePipe::ClearSent() {
    const std::lock_guard<std::mutex> lock(mutex_);
    sent_.clear();
}

int FakePipe::LastFd() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return lastFd_;
}

bool FakePipe::IsOpen(int fd) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = connections_.find(fd);
    return found != connections_.end() && found->second->IsAlive();
}

bool FakePipe::WaitForSent(size_t count) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_until(lock, std::chrono::system_clock::now() + kPatience,
                               [this, count] { return sent_.size() >= count; });
}

void FakePipe::ScriptOpen(std::vector<OpenResult> results) {
    const std::lock_guard<std::mutex> lock(mutex_);
    openScript_ = std::move(results);
}

void FakePipe::ScriptSend(std::vector<int> results) {
    const std::lock_guard<std::mutex> lock(mutex_);
    sendScript_ = std::move(results);
}

void FakePipe::SetSendResult(int result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    sendResult_ = result;
}

void FakePipe::ScriptAnswer(std::vector<Answer> answers) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answerScript_ = std::move(answers);
}

void FakePipe::SetAnswer(Answer answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answer_ = std::move(answer);
}

void FakePipe::OnSend(std::function<void(const Sent&)> hook) {
    const std::lock_guard<std::mutex> lock(mutex_);
    hook_ = std::move(hook);
}

std::shared_ptr<FakePipe::Connection> FakePipe::LastConnection() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = connections_.find(lastFd_);
    return found == connections_.end() ? nullptr : found->second;
}

void FakePipe::Deliver(std::function<void(const Connection&)> delivery) {
    const std::shared_ptr<Connection> connection = LastConnection();
    if (connection != nullptr) {
        const Connection* raw = connection.get();
        connection->Enqueue([raw, delivery = std::move(delivery)] { delivery(*raw); });
    }
}

void FakePipe::DeliverRequest(const std::string& bytes) {
    Deliver([bytes](const Connection& connection) {
        const OddBytes odd(bytes);
        TunorRequest request{odd.Data(), static_cast<uint32_t>(bytes.size())};
        connection.Handle(&request);
    });
}

void FakePipe::DeliverNullRequest() {
    Deliver([](const Connection& connection) { connection.Handle(nullptr); });
}

void FakePipe::DeliverNullData(uint32_t size) {
    Deliver([size](const Connection& connection) {
        TunorRequest request{nullptr, size};
        connection.Handle(&request);
    });
}

void FakePipe::DeliverAppReport(const std::string& name, int pid, uint32_t state) {
    Deliver([this, name, pid, state](const Connection&) {
        OwnerAppReportHandler handler = nullptr;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            handler = appReportHandler_;
        }
        if (handler != nullptr) {
            handler(name.data(), name.size(), pid, state);
        }
    });
}

void FakePipe::LosePipe() {
    const std::shared_ptr<Connection> connection = LastConnection();
    if (connection == nullptr || !connection->IsAlive()) {
        return;
    }
    connection->Lose();
    Deliver([this](const Connection& lost) {
        OwnerPipeLostHandler handler = nullptr;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            handler = pipeLostHandler_;
        }
        if (handler != nullptr) {
            handler(lost.Fd());
        }
    });
}

bool FakePipe::WaitUntilDelivered() const {
    const std::shared_ptr<Connection> connection = LastConnection();
    return connection == nullptr || connection->WaitUntilIdle();
}

int FakePipe::OpenPipe(const TunorOpenParam& param) {
    std::unique_lock<std::mutex> lock(mutex_);
    opens_.push_back({param.peerName == nullptr ? "" : param.peerName, param.groupId, param.timeoutMs, param.handler});
    const OpenResult scripted = TakeFirst(openScript_, OpenResult{1, 0});
    if (scripted.result <= 0) {
        errno = scripted.error;
        return scripted.result;
    }
    lastFd_ = nextFd_++;
    const auto connection = std::make_shared<Connection>(lastFd_, param.handler);
    connections_[lastFd_] = connection;
    connection->Run();
    return connection->Fd();
}

int FakePipe::ClosePipe(int fd) {
    std::shared_ptr<Connection> connection;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_.push_back(fd);
        const auto found = connections_.find(fd);
        if (found == connections_.end()) {
            return -1;
        }
        connection = found->second;
    }
    return connection->Close() ? 0 : -1;
}

// Writes down what is sent and lets the test act on it; false when the descriptor does not take anything.
bool FakePipe::Record(const Sent& sent) {
    std::function<void(const Sent&)> hook;
    bool isAlive = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        sent_.push_back(sent);
        hook = hook_;
        const auto found = connections_.find(sent.fd);
        isAlive = found != connections_.end() && found->second->IsAlive();
    }
    changed_.notify_all();
    if (hook) {
        hook(sent);
    }
    return isAlive;
}

int FakePipe::Send(Operation operation, int fd, const void* data, uint32_t size) {
    if (!Record({operation, fd, BytesOf(data, size), 0})) {
        return -1;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    return TakeFirst(sendScript_, sendResult_);
}

FakePipe::Answer FakePipe::NextAnswer() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return TakeFirst(answerScript_, answer_);
}

int FakePipe::Call(Operation operation, int fd, const TunorRequest& request, TunorResponse& response,
                   uint32_t timeoutMs) {
    if (!Record({operation, fd, BytesOf(request.data, request.size), timeoutMs})) {
        return -1;
    }
    const Answer answer = NextAnswer();
    if (answer.result < 0) {
        return answer.result;
    }
    if (!answer.data.has_value()) {
        response.data = nullptr;
        response.size = answer.sizeOfNull;
        return answer.result;
    }
    // Kept until the same thread's next call on this descriptor, as promised, and no longer.
    thread_local std::map<int, OddBytes> kept;
    kept[fd] = OddBytes(*answer.data);
    response.data = kept[fd].Data();
    response.size = static_cast<uint32_t>(answer.data->size());
    return answer.result;
}

void FakePipe::SetAppReportHandler(OwnerAppReportHandler handler) {
    const std::lock_guard<std::mutex> lock(mutex_);
    appReportHandler_ = handler;
}

void FakePipe::SetPipeLostHandler(OwnerPipeLostHandler handler) {
    const std::lock_guard<std::mutex> lock(mutex_);
    pipeLostHandler_ = handler;
}

extern "C" {

int TunorOpen(const TunorOpenParam* param) {
    return FakePipe::Get().OpenPipe(*param);
}

int TunorSendRequest(int fd, const TunorRequest* request) {
    return FakePipe::Get().Send(FakePipe::Operation::SEND_REQUEST, fd, request->data, request->size);
}

int TunorSendResponse(int fd, const TunorResponse* response) {
    return FakePipe::Get().Send(FakePipe::Operation::SEND_RESPONSE, fd, response->data, response->size);
}

int TunorRPCSync(int fd, const TunorRequest* request, TunorResponse* response) {
    return FakePipe::Get().Call(FakePipe::Operation::RPC, fd, *request, *response, 0);
}

int TunorTimedRPCSync(int fd, const TunorRequest* request, TunorResponse* response, uint32_t timeoutMs) {
    return FakePipe::Get().Call(FakePipe::Operation::TIMED_RPC, fd, *request, *response, timeoutMs);
}

int TunorClosePipe(int fd) {
    return FakePipe::Get().ClosePipe(fd);
}

void OwnerSetAppReportHandler(OwnerAppReportHandler handler) {
    FakePipe::Get().SetAppReportHandler(handler);
}

void OwnerSetPipeLostHandler(OwnerPipeLostHandler handler) {
    FakePipe::Get().SetPipeLostHandler(handler);
}

}  // extern "C"
