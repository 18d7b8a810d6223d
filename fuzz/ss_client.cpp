// The client library of the bus against a service that answers what it likes: the input is the list of its packets,
// with descriptors attached or not, which lie ready before the client asks. Calls must end, put out nothing on failure
// and leave no descriptor behind.
#include "platform/posix/ss_client/procmgr_ss.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "fuzz/packets.h"
#include "fuzz/steps.h"
#include "fuzz/temp_folder.h"

using Fuzz::Require;
using ProcMgr::UniqueFd;

namespace {

struct Frame {
    uint32_t op;
    uint32_t cmd;
    uint32_t size;
    int32_t rc;
};

/// Operation, command and result from the bytes, with the size that is right.
std::string Framed(const std::string& bytes) {
    std::string numbers = bytes.substr(0, 12);
    numbers.resize(12);
    const std::string payload = bytes.size() > 12 ? bytes.substr(12) : "";
    Frame head = {0, 0, static_cast<uint32_t>(payload.size()), 0};
    std::memcpy(&head.op, numbers.data(), 4);
    std::memcpy(&head.cmd, numbers.data() + 4, 4);
    std::memcpy(&head.rc, numbers.data() + 8, 4);
    return std::string(reinterpret_cast<const char*>(&head), sizeof(head)) + payload;
}

/// Memory as a service gives it: of `size` bytes, sealed or not.
UniqueFd Memory(off_t size, bool isSealed) {
    UniqueFd fd(::memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    Require(fd && ::ftruncate(fd.Get(), size) == 0);
    Require(!isSealed || ::fcntl(fd.Get(), F_ADD_SEALS, F_SEAL_SHRINK) == 0);
    return fd;
}

/// Answers one connection after the other: the packets of the input to the first, nothing to any other.
class HostileService {
public:
    HostileService() {
        Require(::mkdir((folder_.Path() + "/vek").c_str(), 0755) == 0);
        sockaddr_un address = {};
        Require(ProcMgr::MakeSocketAddress(folder_.Path() + "/vek/x.sock", address));
        listener_ = ProcMgr::MakePacketSocket();
        Require(::bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
        Require(::listen(listener_.Get(), 8) == 0);
        std::thread([this] { Serve(); }).detach();
    }

    const std::string& RunDir() const { return folder_.Path(); }

    void Prepare(std::vector<Fuzz::Step> packets, bool closesAtOnce) {
        const std::lock_guard<std::mutex> lock(mutex_);
        packets_ = std::move(packets);
        closesAtOnce_ = closesAtOnce;
        isBusy_ = true;
    }

    /// The client has closed everything: so has the service when this returns.
    void AwaitEnd() {
        // A connection that says nothing is the last one.
        const UniqueFd last = Fuzz::ConnectTo(folder_.Path() + "/vek/x.sock");
        Require(Fuzz::SendPacket(last.Get(), "end"));
        std::unique_lock<std::mutex> lock(mutex_);
        Require(changed_.wait_for(lock, std::chrono::seconds(30), [this] { return !isBusy_; }));
    }

private:
    void Serve() {
        for (;;) {
            UniqueFd client(
                Fuzz::Uninterrupted([this] { return ::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC); }));
            Require(static_cast<bool>(client));
            Fuzz::LimitWaiting(client.Get());
            // Whether an earlier client is gone is known by its end, so that its packets are all out.
            const std::optional<std::string> first = Fuzz::ReceivePacket(client.Get());
            if (first == "end") {
                client.Reset();
                const std::lock_guard<std::mutex> lock(mutex_);
                isBusy_ = false;
                changed_.notify_all();
                continue;
            }
            Answer(client.Get());
            if (!closesAtOnce_) {
                ::shutdown(client.Get(), SHUT_WR);
                while (Fuzz::ReceivePacket(client.Get())) {
                }
            }
        }
    }

    void Answer(int client) {
        std::vector<Fuzz::Step> packets;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            packets.swap(packets_);
        }
        for (const Fuzz::Step& packet : packets) {
            if (!Send(client, packet)) {
                return;
            }
        }
    }

    static bool Send(int client, const Fuzz::Step& packet) {
        switch (packet.what % 8) {
            case 0:
                return Fuzz::SendPacket(client, packet.bytes);
            case 1:
                return Fuzz::SendPacket(client, packet.bytes + std::string(65536, 'x'));
            case 2:
                return Fuzz::SendPacket(client, Framed(packet.bytes), {Memory(4096, true).Get()});
            case 3:
                return Fuzz::SendPacket(client, Framed(packet.bytes), {Memory(4096, false).Get()});
            case 4:
                return Fuzz::SendPacket(client, Framed(packet.bytes), {client});
            case 5:
                return Fuzz::SendPacket(client, Framed(packet.bytes), {client, client});
            case 6:
                return Fuzz::SendPacket(client, packet.bytes, {client});
            default:
                return Fuzz::SendPacket(client, Framed(packet.bytes));
        }
    }

    Fuzz::TempFolder folder_;
    UniqueFd listener_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Fuzz::Step> packets_;
    bool closesAtOnce_ = false;
    bool isBusy_ = false;
};

constexpr uint32_t kPatienceMs = 25000;

/// An errno, and for ever the same one once the file is lost.
void CheckError(int error, int& lost) {
    Require(error <= 0 && error >= -4095);
    Require(lost == 0 || error == lost);
    lost = error == -EPROTO || error == -EPIPE ? error : lost;
}

void Ioctl(ProcmgrSsFile* file, uint32_t cmd, size_t size, int& lost) {
    const std::string before(size, 'b');
    std::string buffer = before;
    int32_t result = 4711;
    const int error = ProcmgrSsIoctl(file, cmd, buffer.data(), size, kPatienceMs, &result);
    CheckError(error, lost);
    Require(error == 0 || (buffer == before && result == 4711));
}

void Read(ProcmgrSsFile* file, size_t size, int& lost) {
    const std::string before(size, 'b');
    std::string buffer = before;
    int64_t offset = 7;
    int32_t result = 4711;
    const int error = ProcmgrSsRead(file, buffer.data(), size, &offset, kPatienceMs, &result);
    CheckError(error, lost);
    Require(error == 0 ? result <= static_cast<int64_t>(size) : buffer == before && offset == 7 && result == 4711);
}

void UseService(const std::string& runDir, uint8_t how, size_t calls) {
    ProcmgrSsFile* file = nullptr;
    int lost = 0;
    if (ProcmgrSsOpen(runDir.c_str(), "x", kPatienceMs, &file) != 0) {
        Require(file == nullptr);
        return;
    }
    for (size_t call = 0; call < calls; ++call) {
        if (((call ^ how) & 1U) == 0) {
            Ioctl(file, how & 7U, 1 + (how >> 3U), lost);
        } else {
            Read(file, 1 + (how >> 3U), lost);
        }
    }
    ProcmgrSsClose(file);
}

void UseQueue(const std::string& runDir, uint8_t how, size_t calls) {
    ProcmgrSsQueue* queue = nullptr;
    int lost = 0;
    if (ProcmgrSsOpenQueue(runDir.c_str(), "x", kPatienceMs, &queue) != 0) {
        Require(queue == nullptr);
        return;
    }
    std::string buffer(how, 'b');
    for (size_t call = 0; call < calls; ++call) {
        size_t size = 0;
        const int error = ProcmgrSsWaitEvent(queue, kPatienceMs, buffer.data(), buffer.size(), &size);
        CheckError(error, lost);
        Require(error != 0 || size <= buffer.size());
        Require(error != -EMSGSIZE || size > buffer.size());
        if (error == -EMSGSIZE) {
            buffer.resize(std::min<size_t>(size, 1U << 20U));
        }
    }
    ProcmgrSsCloseQueue(queue);
}

}  // namespace

/// The first two bytes: service or queue, and how the service ends; what the client asks for.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static HostileService& service = *new HostileService;
    if (size < 2) {
        return 0;
    }
    const std::vector<Fuzz::Step> packets = Fuzz::StepsOf(data + 2, size - 2, 12);
    const size_t calls = packets.size() + 1;
    const int descriptors = Fuzz::OpenDescriptors();
    service.Prepare(packets, (data[0] & 2U) != 0);
    (data[0] & 1U) == 0 ? UseService(service.RunDir(), data[1], calls) : UseQueue(service.RunDir(), data[1], calls);
    service.AwaitEnd();
    Require(Fuzz::OpenDescriptors() == descriptors);
    return 0;
}
