/// Knows which requests are under way, so that what they work on can be taken down at exit.
#ifndef PROCMGR_SS_SERVER_REQUEST_GATE_H
#define PROCMGR_SS_SERVER_REQUEST_GATE_H

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace ProcMgr {

/// Every operation may be called from any thread; a thread may be inside several times.
class RequestGate {
public:
    /// False once the gate is closed; otherwise the caller is inside until it calls Leave.
    [[nodiscard]] bool Enter();
    void Leave() noexcept;

    /// Lets nobody in any more and waits until all are out, save the calling thread, which may itself be inside.
    void Close();

    /// Inside while it lives, if it was let in.
    class Visit {
    public:
        explicit Visit(RequestGate& gate) : gate_(gate), isInside_(gate.Enter()) {}
        ~Visit() {
            if (isInside_) {
                gate_.Leave();
            }
        }

        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        bool IsInside() const { return isInside_; }

    private:
        RequestGate& gate_;
        const bool isInside_;
    };

private:
    bool OnlyCallerIsInside() const;

    std::mutex mutex_;
    std::condition_variable left_;
    bool isClosed_ = false;
    std::vector<std::thread::id> inside_;
};

}  // namespace ProcMgr

#endif
