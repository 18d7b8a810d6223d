#include <cerrno>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <vector>

#include "platform/include/tunor.h"
#include "platform/posix/tunor/tunor_connect.h"
#include "platform/posix/tunor/tunor_connection.h"

namespace ProcMgr {

namespace {

using Connection = std::shared_ptr<TunorConnection>;

/// The open connections by descriptor. A connection that was taken out keeps its socket open until its last user is
/// done, so that its number cannot come to mean another connection meanwhile.
class ConnectionTable {
public:
    void Add(const Connection& connection) {
        const std::lock_guard<std::mutex> lock(mutex_);
        connections_[connection->Fd()] = connection;
    }
    Connection Find(int fd) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = connections_.find(fd);
        return found == connections_.end() ? nullptr : found->second;
    }
    Connection Take(int fd) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = connections_.find(fd);
        if (found == connections_.end()) {
            return nullptr;
        }
        Connection connection = std::move(found->second);
        connections_.erase(found);
        return connection;
    }

private:
    std::mutex mutex_;
    std::map<int, Connection> connections_;
};

/// Never destroyed: at the end of the process a connection that nobody closed still has its threads.
ConnectionTable& Table() {
    static ConnectionTable& table = *new ConnectionTable;
    return table;
}

struct KeptAnswer {
    std::weak_ptr<TunorConnection> connection;
    std::string bytes;
};

/// The calling thread's answer of this connection, which lives until the thread's next call there.
std::string& KeptAnswerOf(const Connection& connection) {
    thread_local std::vector<std::unique_ptr<KeptAnswer>> answers;
    size_t kept = 0;
    for (size_t i = 0; i < answers.size(); ++i) {
        if (!answers[i]->connection.expired()) {
            std::swap(answers[kept++], answers[i]);
        }
    }
    answers.resize(kept);
    for (const auto& answer : answers) {
        if (answer->connection.lock() == connection) {
            return answer->bytes;
        }
    }
    answers.push_back(std::make_unique<KeptAnswer>(KeptAnswer{connection, {}}));
    return answers.back()->bytes;
}

int OpenPipe(const TunorOpenParam* param) {
    if (param == nullptr || param->peerName == nullptr) {
        return -EINVAL;
    }
    UniqueFd fd;
    const int connected = ConnectPipe(param->peerName, std::chrono::milliseconds(param->timeoutMs), fd);
    if (connected != 0) {
        return connected;
    }
    const auto connection = std::make_shared<TunorConnection>(std::move(fd), param->peerName, param->handler);
    connection->Start();
    try {
        Table().Add(connection);
    } catch (...) {
        connection->Close();
        throw;
    }
    const int result = connection->Fd();
    connection->Release();
    return result;
}

/// 0 when the message can be sent, else a negative errno.
template <typename Message>
int CheckMessage(const Message* message) {
    if (message == nullptr || (message->data == nullptr && message->size > 0)) {
        return -EINVAL;
    }
    return message->size > kFramePayloadMax ? -EMSGSIZE : 0;
}

template <typename Message>
int SendOneWay(int fd, const Message* message, int (TunorConnection::*send)(const void*, uint32_t)) {
    if (const int problem = CheckMessage(message)) {
        return problem;
    }
    const Connection connection = Table().Find(fd);
    return connection == nullptr ? -EBADF : ((*connection).*send)(message->data, message->size);
}

int CallPeer(int fd, const TunorRequest* request, TunorResponse* response,
             std::optional<TunorConnection::Clock::time_point> deadline) {
    if (response == nullptr) {
        return -EINVAL;
    }
    if (const int problem = CheckMessage(request)) {
        return problem;
    }
    const Connection connection = Table().Find(fd);
    if (connection == nullptr) {
        return -EBADF;
    }
    std::string& answer = KeptAnswerOf(connection);
    const int result = connection->Call(request->data, request->size, deadline, answer);
    if (result == 0) {
        response->data = answer.empty() ? nullptr : answer.data();
        response->size = static_cast<uint32_t>(answer.size());
    }
    return result;
}

int ClosePipe(int fd) {
    const Connection connection = Table().Take(fd);
    if (connection == nullptr) {
        return -EBADF;
    }
    connection->Close();
    return 0;
}

/// Runs an operation behind the C interface: no exception leaves, and a failure is also in errno.
template <typename Operation>
int Guarded(Operation operation) {
    int result = -EIO;
    try {
        result = operation();
    } catch (const std::bad_alloc&) {
        result = -ENOMEM;
    } catch (const std::system_error& error) {
        result = error.code().value() > 0 ? -error.code().value() : -EIO;
    } catch (...) {
        result = -EIO;
    }
    if (result < 0) {
        errno = -result;
    }
    return result;
}

}  // namespace

}  // namespace ProcMgr

int TunorOpen(const TunorOpenParam* param) {
    return ProcMgr::Guarded([=] { return ProcMgr::OpenPipe(param); });
}

int TunorSendRequest(int fd, const TunorRequest* request) {
    return ProcMgr::Guarded([=] { return ProcMgr::SendOneWay(fd, request, &ProcMgr::TunorConnection::SendRequest); });
}

int TunorSendResponse(int fd, const TunorResponse* response) {
    return ProcMgr::Guarded([=] { return ProcMgr::SendOneWay(fd, response, &ProcMgr::TunorConnection::SendResponse); });
}

int TunorRPCSync(int fd, const TunorRequest* request, TunorResponse* response) {
    return ProcMgr::Guarded([=] { return ProcMgr::CallPeer(fd, request, response, std::nullopt); });
}

int TunorTimedRPCSync(int fd, const TunorRequest* request, TunorResponse* response, uint32_t timeoutMs) {
    const auto deadline = ProcMgr::TunorConnection::Clock::now() + std::chrono::milliseconds(timeoutMs);
    return ProcMgr::Guarded([=] { return ProcMgr::CallPeer(fd, request, response, deadline); });
}

int TunorClosePipe(int fd) {
    return ProcMgr::Guarded([=] { return ProcMgr::ClosePipe(fd); });
}
