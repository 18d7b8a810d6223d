/// Stands in for the pipe library and the owner link: records what is sent, answers calls, and delivers requests of the
/// process manager on a thread of its own.
#ifndef PROCMGR_TESTS_FAKE_PIPE_H
#define PROCMGR_TESTS_FAKE_PIPE_H

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/include/owner_link.h"
#include "platform/include/tunor.h"

class FakePipe {
public:
    enum class Operation { SEND_REQUEST, SEND_RESPONSE, RPC, TIMED_RPC };

    /// One thing that the library sent.
    struct Sent {
        Operation operation;
        int fd;
        std::string bytes;
        uint32_t timeoutMs;  ///< TIMED_RPC; else 0

        /// The bytes as a record of trivial type; zero where they are too short.
        template <typename T>
        T As() const {
            T record{};
            memcpy(&record, bytes.data(), bytes.size() < sizeof(T) ? bytes.size() : sizeof(T));
            return record;
        }
    };

    struct Open {
        std::string peerName;
        uint32_t groupId;
        uint32_t timeoutMs;
        TunorRequestHandler handler;
    };

    struct OpenResult {
        int result;     ///< 0 or negative; positive: a new descriptor, of the fake's choice
        int error = 0;  ///< errno
    };

    struct Answer {
        int result = 0;
        std::optional<std::string> data = "0";  ///< none: `data` is null in the response
        uint32_t sizeOfNull = 0;                ///< the response's size when there is no data
    };

    static FakePipe& Get();

    // What happened.
    std::vector<Open> Opens() const;
    std::vector<int> Closed() const;  ///< descriptors, in the order of TunorClosePipe
    std::vector<Sent> AllSent() const;
    void ClearSent();
    int LastFd() const;  ///< of the last successful open; 0 when there was none
    bool IsOpen(int fd) const;

    /// Waits until `count` things were sent since the start or the last ClearSent; false after half a minute.
    [[nodiscard]] bool WaitForSent(size_t count) const;

    // What shall happen. Scripts are used up call by call; afterwards the default holds.
    void ScriptOpen(std::vector<OpenResult> results);  ///< default: success
    void ScriptSend(std::vector<int> results);         ///< SEND_REQUEST and SEND_RESPONSE
    void SetSendResult(int result);                    ///< the default; 0 at first
    void ScriptAnswer(std::vector<Answer> answers);    ///< RPC and TIMED_RPC
    void SetAnswer(Answer answer);                     ///< the default; result 0 and data "0" at first

    /// Called for everything that is sent, after it was recorded and before the call returns, on the sending thread and
    /// with no lock of the fake held. A test's process manager answers from here through DeliverRequest.
    void OnSend(std::function<void(const Sent&)> hook);

    // The process manager speaks. All of these return at once; what they deliver runs one after the other, in this
    // order, on the thread of the descriptor opened last (nothing happens when none is open). Requests lie at an odd
    // address and end where their memory ends.
    void DeliverRequest(const std::string& bytes);
    void DeliverNullRequest();            ///< the handler gets a null request
    void DeliverNullData(uint32_t size);  ///< the handler gets a request without data
    void DeliverAppReport(const std::string& name, int pid, uint32_t state);  ///< to the owner link's handler
    void LosePipe();  ///< the connection ends; its lost handler is told

    template <typename T>
    void DeliverRecord(const T& record) {
        DeliverRequest(std::string(reinterpret_cast<const char*>(&record), sizeof(T)));
    }

    /// Waits until everything delivered so far was handled; false after half a minute. Not from a handler.
    [[nodiscard]] bool WaitUntilDelivered() const;

    // What the C functions call.
    int OpenPipe(const TunorOpenParam& param);
    int ClosePipe(int fd);
    int Send(Operation operation, int fd, const void* data, uint32_t size);
    int Call(Operation operation, int fd, const TunorRequest& request, TunorResponse& response, uint32_t timeoutMs);
    void SetAppReportHandler(OwnerAppReportHandler handler);
    void SetPipeLostHandler(OwnerPipeLostHandler handler);

private:
    class Connection;

    FakePipe() = default;
    bool Record(const Sent& sent);
    Answer NextAnswer();
    void Deliver(std::function<void(const Connection&)> delivery);
    std::shared_ptr<Connection> LastConnection() const;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::map<int, std::shared_ptr<Connection>> connections_;
    std::vector<Open> opens_;
    std::vector<int> closed_;
    std::vector<Sent> sent_;
    std::vector<OpenResult> openScript_;
    std::vector<int> sendScript_;
    std::vector<Answer> answerScript_;
    int sendResult_ = 0;
    Answer answer_;
    int lastFd_ = 0;
    int nextFd_ = 100;
    std::function<void(const Sent&)> hook_;
    OwnerAppReportHandler appReportHandler_ = nullptr;
    OwnerPipeLostHandler pipeLostHandler_ = nullptr;
};

#endif
