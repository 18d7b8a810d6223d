/// One open pipe of a client: a thread that reads, a thread that delivers, and the calls that wait for their answers.
///
/// The reader never runs foreign code, so an answer reaches its caller, and a heartbeat its watcher, however long a
/// handler takes. What is to be
/// delivered waits in a queue of bounded size; a peer that fills it is treated as lost.
///
/// The end comes once, in one of two ways: the connection is lost (the peer went away, or broke the rules), or Close()
/// was called. Both wake every waiting call. After a loss, what came before it is still delivered, then the lost
/// handler is told, and sends fail until Close(). After Close() nothing is delivered.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_CONNECTION_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_CONNECTION_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/include/tunor.h"
#include "platform/posix/tunor/tunor_socket.h"

namespace ProcMgr {

class TunorConnection : public std::enable_shared_from_this<TunorConnection> {
public:
    using Clock = std::chrono::steady_clock;

    /// Takes a blocking socket whose hello was accepted.
    TunorConnection(UniqueFd fd, std::string peerName, TunorRequestHandler handler);

    int Fd() const { return fd_.Get(); }

    /// Creates the threads; nothing is read before Release(). Throws std::system_error, and then has no thread.
    void Start();
    void Release();

    /// Ends the connection and waits for its threads; a caller that is the delivering thread waits for the reader only.
    /// Called once, after Start().
    void Close();

    /// These three return 0 or a negative errno; sending takes at most kSendTimeout.
    int SendRequest(const void* data, uint32_t size);
    /// Answers the request that was delivered last; -ENOMSG before the first.
    int SendResponse(const void* data, uint32_t size);
    /// Without a deadline it waits as long as the connection lives.
    int Call(const void* data, uint32_t size, std::optional<Clock::time_point> deadline, std::string& answer);

    static constexpr std::chrono::milliseconds kSendTimeout{5000};
    static constexpr size_t kQueueBytes = size_t{16} << 20;

private:
    struct PendingCall {
        std::condition_variable settled;
        std::optional<int> result;
        std::string answer;
    };
    struct Delivery {
        FrameKind kind;
        uint32_t seq;
        std::string payload;
    };

    int Send(const FrameHead& head, const void* data, Clock::time_point deadline) const;
    int AddCall(PendingCall& call, uint32_t& seq);
    int AwaitCall(PendingCall& call, uint32_t seq, std::optional<Clock::time_point> deadline);
    void SettleCall(const FrameView& frame);
    void FailCalls(int error);

    void ReadLoop();
    const char* ReadUntilEnd();
    const char* TakeFrame(const FrameView& frame);
    void TakeBeat(const FrameView& frame);
    bool Enqueue(const FrameView& frame);
    void EndReading(const char* reason);

    void DispatchLoop();
    std::optional<Delivery> NextDelivery();
    void Deliver(Delivery& delivery);
    void DeliverRequest(Delivery& delivery);
    bool IsClosing() const;
    void TellLost();

    // Constant after construction.
    const UniqueFd fd_;
    const std::string peerName_;
    const TunorRequestHandler handler_;

    // Written by Start(), read after Release(), by Close().
    std::thread reader_;
    std::thread dispatcher_;

    // Used by the reader only.
    bool unknownKindLogged_ = false;

    // Used by the dispatcher; the number is read by SendResponse(). 0: nothing was delivered yet.
    std::atomic<uint64_t> lastRequest_{0};

    std::mutex callsMutex_;
    std::map<uint32_t, PendingCall*> calls_;  // guarded by callsMutex_, as are the next two
    uint32_t nextSeq_ = 1;
    int callsEnd_ = 0;  // negative errno once no call can succeed any more

    // Never taken together with callsMutex_.
    mutable std::mutex queueMutex_;
    std::condition_variable queueChanged_;
    std::deque<Delivery> queue_;  // guarded by queueMutex_, as are the next four
    size_t queuedBytes_ = 0;
    bool released_ = false;
    bool readingEnded_ = false;
    bool closing_ = false;
};

}  // namespace ProcMgr

#endif
