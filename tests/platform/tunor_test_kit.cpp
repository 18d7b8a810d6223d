#include "tests/platform/tunor_test_kit.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/posix/common_posix/module_log.h"

namespace TunorTest {

namespace {

struct Log {
    Watched watched;
    std::vector<std::string> lines;
};

Log& TheLog() {
    static Log& log = *new Log;
    return log;
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof(address.sun_path) - 1));
    return address;
}

ProcMgr::UniqueFd MakeSocket() {
    return ProcMgr::UniqueFd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
}

}  // namespace

void Watched::Change(const std::function<void()>& change) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        change();
    }
    changed_.notify_all();
}

bool Watched::WaitFor(const std::function<bool()>& isTrue) const {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto deadline = std::chrono::system_clock::now() + std::chrono::milliseconds(kPatienceMs);
    return changed_.wait_until(lock, deadline, isTrue);
}

void Gate::Open() const {
    state_->watched.Change([this] { state_->isOpen = true; });
}

bool Gate::Wait() const {
    return state_->watched.WaitFor([this] { return state_->isOpen; });
}

TempFolder::TempFolder() {
    char path[] = "/tmp/procmgr-pipe-XXXXXX";
    path_ = ::mkdtemp(path) != nullptr ? path : "";
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::Write(const std::string& name, const std::string& text, mode_t mode) const {
    const std::string path = path_ + "/" + name;
    std::ofstream(path) << text;
    ::chmod(path.c_str(), mode);
    return path;
}

std::vector<std::string> LogLines() {
    std::vector<std::string> lines;
    TheLog().watched.Change([&] { lines = TheLog().lines; });
    return lines;
}

bool WasLogged(const std::string& part) {
    const std::vector<std::string> lines = LogLines();
    return std::any_of(lines.begin(), lines.end(), [&](const auto& line) { return line.find(part) != line.npos; });
}

bool WaitForLog(const std::string& part) {
    const auto& lines = TheLog().lines;
    return TheLog().watched.WaitFor([&] {
        return std::any_of(lines.begin(), lines.end(), [&](const auto& line) { return line.find(part) != line.npos; });
    });
}

bool WaitReadable(int fd, int timeoutMs) {
    pollfd entry = {fd, POLLIN, 0};
    return ::poll(&entry, 1, timeoutMs) > 0;
}

RawSocket RawSocket::Connect(const std::string& runDir) {
    return ConnectTo(runDir + "/PROCMGR.sock");
}

RawSocket RawSocket::ConnectTo(const std::string& path) {
    RawSocket socket(MakeSocket());
    const sockaddr_un address = AddressOf(path);
    if (::connect(socket.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return {};
    }
    return socket;
}

RawSocket RawSocket::Listen(const std::string& runDir) {
    return ListenOn(runDir + "/PROCMGR.sock");
}

RawSocket RawSocket::ListenOn(const std::string& path) {
    RawSocket socket(MakeSocket());
    const sockaddr_un address = AddressOf(path);
    if (::bind(socket.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(socket.Fd(), 8) != 0) {
        return {};
    }
    return socket;
}

RawSocket RawSocket::Accept() const {
    if (!WaitReadable(Fd())) {
        return {};
    }
    return RawSocket(ProcMgr::UniqueFd(::accept4(Fd(), nullptr, nullptr, SOCK_CLOEXEC)));
}

bool RawSocket::Send(const std::string& packet) const {
    return ::send(Fd(), packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
}

bool RawSocket::SendWithDescriptors(const std::string& packet, const std::vector<int>& descriptors) const {
    const size_t size = descriptors.size() * sizeof(int);
    std::vector<cmsghdr> control(CMSG_SPACE(size) / sizeof(cmsghdr) + 1);
    iovec part = {const_cast<char*>(packet.data()), packet.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = CMSG_SPACE(size);
    cmsghdr* head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(size);
    std::memcpy(CMSG_DATA(head), descriptors.data(), size);
    return ::sendmsg(Fd(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
}

std::optional<std::string> RawSocket::Receive() const {
    if (!WaitReadable(Fd())) {
        return std::nullopt;
    }
    std::string packet(size_t{128} * 1024, '\0');
    ssize_t size = ::recv(Fd(), packet.data(), packet.size(), 0);
    if (size < 0 && errno == ECONNRESET) {
        size = ::recv(Fd(), packet.data(), packet.size(), 0);
    }
    packet.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return packet;
}

std::string Frame(uint32_t kind, uint32_t seq, const std::string& payload) {
    const uint32_t head[4] = {kind, seq, static_cast<uint32_t>(payload.size()), 0};
    return std::string(reinterpret_cast<const char*>(head), sizeof(head)) + payload;
}

ServerOnHand::ServerOnHand(ProcMgr::TunorServerLimits limits) {
    ProcMgr::TunorServerCallbacks callbacks;
    callbacks.allowUser = [this](uid_t uid) { return allowUser ? allowUser(uid) : uid == ::geteuid(); };
    callbacks.admit = [this](const ProcMgr::TunorPeer& peer) { return admit ? admit(peer) : 0; };
    callbacks.opened = [this](ProcMgr::TunorConnectionId id, const ProcMgr::TunorPeer& peer) {
        ids.push_back(id);
        told.push_back("opened " + peer.name);
        if (onOpened) {
            onOpened(id);
        }
    };
    callbacks.request = [this](ProcMgr::TunorConnectionId, const std::string& bytes) {
        told.push_back("request " + bytes);
    };
    callbacks.call = [this](ProcMgr::TunorConnectionId id, uint32_t seq, const std::string& bytes) {
        told.push_back("call " + bytes);
        if (onCall) {
            onCall(id, seq, bytes);
        }
    };
    callbacks.response = [this](ProcMgr::TunorConnectionId, uint32_t seq, const std::string& bytes) {
        told.push_back("response " + std::to_string(seq) + " " + bytes);
    };
    callbacks.closed = [this](ProcMgr::TunorConnectionId, const ProcMgr::TunorPeer& peer, const std::string& reason) {
        told.push_back("closed " + peer.name + ": " + reason);
    };
    server_ = std::make_unique<ProcMgr::TunorServer>(callbacks, limits);
}

bool ServerOnHand::Turn(int timeoutMs) {
    if (!WaitReadable(server_->PollFd(), timeoutMs)) {
        return false;
    }
    server_->Dispatch();
    return true;
}

bool ServerOnHand::TurnUntil(size_t count) {
    while (told.size() < count) {
        if (!Turn()) {
            return false;
        }
    }
    return true;
}

ServerThread::ServerThread(ProcMgr::TunorServerLimits limits) : hand_(limits), wake_(::eventfd(0, EFD_CLOEXEC)) {
    ::setenv("PROCMGR_RUN_DIR", folder_.Path().c_str(), 1);
    std::string error;
    if (!hand_.Server().Listen(folder_.Path(), "PROCMGR", error)) {
        (void)std::fprintf(stderr, "%s\n", error.c_str());
        std::abort();
    }
    thread_ = std::thread([this] { Loop(); });
}

ServerThread::~ServerThread() {
    Stop();
}

void ServerThread::Stop() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    ::eventfd_write(wake_.Get(), 1);
    thread_.join();
}

void ServerThread::Loop() {
    for (;;) {
        pollfd entries[2] = {{hand_.Server().PollFd(), POLLIN, 0}, {wake_.Get(), POLLIN, 0}};
        ::poll(entries, 2, -1);
        hand_.Server().Dispatch();
        if (entries[1].revents != 0) {
            eventfd_t value = 0;
            ::eventfd_read(wake_.Get(), &value);
            RunWork();
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        told_ = hand_.told;
        changed_.notify_all();
        if (stop_) {
            hand_.End();
            return;
        }
    }
}

void ServerThread::RunWork() {
    std::vector<std::function<void()>> work;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        work.swap(work_);
    }
    for (const auto& step : work) {
        step();
    }
}

void ServerThread::Do(const std::function<void(ServerOnHand&)>& work) {
    const Gate done;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        work_.push_back([this, &work, done] {
            work(hand_);
            done.Open();
        });
    }
    ::eventfd_write(wake_.Get(), 1);
    if (!done.Wait()) {
        (void)std::fprintf(stderr, "the server's thread hangs\n");
        std::abort();
    }
}

std::vector<std::string> ServerThread::WaitForTold(const std::string& beginning, size_t count) {
    std::vector<std::string> found;
    std::unique_lock<std::mutex> lock(mutex_);
    const auto deadline = std::chrono::system_clock::now() + std::chrono::milliseconds(kPatienceMs);
    changed_.wait_until(lock, deadline, [&] {
        found.clear();
        std::copy_if(told_.begin(), told_.end(), std::back_inserter(found),
                     [&](const std::string& line) { return line.rfind(beginning, 0) == 0; });
        return found.size() >= count;
    });
    return found;
}

}  // namespace TunorTest

extern "C" {

bool IsSyslogEnable(void) {
    return false;
}

void EnableSyslogState(void) {
}

int CheckLogLevel(uint32_t moduleId, int32_t level) {
    const auto module = static_cast<ProcMgr::LogModule>(moduleId);
    return (module == ProcMgr::LogModule::PIPE || module == ProcMgr::LogModule::BUS) && level >= 0 ? 1 : 0;
}

void KmonRecord(uint32_t, int32_t level, const char* format, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    TunorTest::TheLog().watched.Change(
        [&] { TunorTest::TheLog().lines.push_back(std::to_string(level) + " " + line); });
}

}  // extern "C"
