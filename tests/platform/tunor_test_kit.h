/// What the tests of the pipe share: a folder that goes away, the log that the library writes, a raw socket that sends
/// and takes literal packets, and a server that runs on a thread of its own.
#ifndef PROCMGR_TESTS_TUNOR_TEST_KIT_H
#define PROCMGR_TESTS_TUNOR_TEST_KIT_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/common_posix/unique_fd.h"
#include "platform/posix/tunor/tunor_server.h"

namespace TunorTest {

inline constexpr int kPatienceMs = 30000;

/// Waits for a fact that other threads bring about; false after half a minute.
class Watched {
public:
    void Change(const std::function<void()>& change);
    [[nodiscard]] bool WaitFor(const std::function<bool()>& isTrue) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
};

/// Opened once, by anyone. Copies are the same gate, so that a handler's copy outlives the test's.
class Gate {
public:
    void Open() const;
    [[nodiscard]] bool Wait() const;

private:
    struct State {
        Watched watched;
        bool isOpen = false;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& Path() const { return path_; }
    std::string Write(const std::string& name, const std::string& text, mode_t mode = 0600) const;

private:
    std::string path_;
};

/// The platform log of these test programs.
std::vector<std::string> LogLines();
bool WasLogged(const std::string& part);
[[nodiscard]] bool WaitForLog(const std::string& part);

bool WaitReadable(int fd, int timeoutMs = kPatienceMs);

/// A socket without any library.
class RawSocket {
public:
    /// Connected to <runDir>/PROCMGR.sock; none on failure, with errno.
    static RawSocket Connect(const std::string& runDir);
    /// Listens there.
    static RawSocket Listen(const std::string& runDir);
    /// The same for any path.
    static RawSocket ConnectTo(const std::string& path);
    static RawSocket ListenOn(const std::string& path);

    RawSocket() = default;
    explicit RawSocket(ProcMgr::UniqueFd fd) : fd_(std::move(fd)) {}

    bool IsOpen() const { return static_cast<bool>(fd_); }
    int Fd() const { return fd_.Get(); }
    RawSocket Accept() const;
    bool Send(const std::string& packet) const;
    bool SendWithDescriptor(const std::string& packet, int descriptor) const {
        return SendWithDescriptors(packet, {descriptor});
    }
    bool SendWithDescriptors(const std::string& packet, const std::vector<int>& descriptors) const;
    /// The next packet; "" when the other end is gone, none after half a minute.
    std::optional<std::string> Receive() const;
    void Close() { fd_.Reset(); }

private:
    ProcMgr::UniqueFd fd_;
};

/// A frame from its parts, whatever they are.
std::string Frame(uint32_t kind, uint32_t seq, const std::string& payload);

/// A server on the calling thread, and what it told.
class ServerOnHand {
public:
    explicit ServerOnHand(ProcMgr::TunorServerLimits limits = {});

    ProcMgr::TunorServer& Server() { return *server_; }
    /// One wait for something to do, and one Dispatch(). False when nothing came.
    bool Turn(int timeoutMs = kPatienceMs);
    /// Turns until this many things were told.
    bool TurnUntil(size_t count);
    void End() { server_.reset(); }

    std::vector<std::string> told;
    std::vector<ProcMgr::TunorConnectionId> ids;  ///< of the opened ones, in order
    std::function<bool(uid_t)> allowUser;
    std::function<int(const ProcMgr::TunorPeer&)> admit;
    std::function<void(ProcMgr::TunorConnectionId, uint32_t, const std::string&)> onCall;
    std::function<void(ProcMgr::TunorConnectionId)> onOpened;

private:
    std::unique_ptr<ProcMgr::TunorServer> server_;
};

/// A server on a thread of its own, in a folder that PROCMGR_RUN_DIR names.
class ServerThread {
public:
    explicit ServerThread(ProcMgr::TunorServerLimits limits = {});
    ~ServerThread();
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;

    const std::string& RunDir() const { return folder_.Path(); }

    /// Runs on the server's thread; returns when it has run.
    void Do(const std::function<void(ServerOnHand&)>& work);
    /// Waits until so many of the things told begin like this, and returns those; fewer after half a minute.
    std::vector<std::string> WaitForTold(const std::string& beginning, size_t count);
    [[nodiscard]] bool IsTold(const std::string& line) { return !WaitForTold(line, 1).empty(); }
    /// As a process manager that ends: everything is closed, the socket file is gone.
    void Stop();

private:
    void Loop();
    void RunWork();

    TempFolder folder_;
    ServerOnHand hand_;
    ProcMgr::UniqueFd wake_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> told_;  // copy of the server's, guarded by mutex_, as are the next two
    std::vector<std::function<void()>> work_;
    bool stop_ = false;
    std::thread thread_;
};

}  // namespace TunorTest

#endif
