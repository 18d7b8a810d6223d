// The service's side of the bus: up to three clients send what they like, in any order, over real sockets. Each packet
// must come to what the page about the bus says, and a client that behaves is served to the end.
#include <array>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "fuzz/bus_model.h"
#include "fuzz/packets.h"
#include "fuzz/steps.h"
#include "fuzz/temp_folder.h"
#include "platform/posix/vek/bus.h"

using namespace ProcMgr;
using Fuzz::BusClientModel;
using Fuzz::BusFrame;
using Fuzz::BusOutcome;
using Fuzz::Require;

namespace {

/// Only one that is to be held carries this number, which is one of those that only look.
constexpr uint32_t kHeldCommand = 9;

/// What the entry points of the service and the queue share with the clients.
struct Office {
    std::mutex mutex;
    std::condition_variable changed;
    size_t closed = 0;
    bool isHolding = false;
    size_t held = 0;
    VekQfsMgrFile* lastQueue = nullptr;
    std::map<VekQfsMgrFile*, VEKShmPoolHandle> pools;

    template <typename Fact>
    void Await(std::unique_lock<std::mutex>& lock, const Fact& fact) {
        Require(changed.wait_for(lock, std::chrono::seconds(30), fact));
    }
};

Office& TheOffice() {
    static Office& office = *new Office;
    return office;
}

int Close(VEKMgrFile*) {
    const std::lock_guard<std::mutex> lock(TheOffice().mutex);
    ++TheOffice().closed;
    TheOffice().changed.notify_all();
    return 0;
}

long Read(VEKMgrFile*, char* buffer, size_t size, long* offset) {
    const size_t got = std::min<size_t>(size, BusClientModel::kReadAtOnce);
    std::fill_n(buffer, got, 'r');
    *offset = static_cast<long>(static_cast<uint64_t>(*offset) + got);
    return static_cast<long>(got);
}

int TurnRound(VEKMgrFile*, unsigned int cmd, VEKIoctlArg* arg) {
    Office& office = TheOffice();
    std::unique_lock<std::mutex> lock(office.mutex);
    if (cmd == kHeldCommand) {
        ++office.held;
        office.Await(lock, [&] { return !office.isHolding; });
        --office.held;
        office.changed.notify_all();
    }
    char* const bytes = static_cast<char*>(arg->addr);
    std::reverse(bytes, bytes + arg->size);
    return static_cast<int>(cmd);
}

int OpenQueue(VekQfsMgrFile* file) {
    VEKShmPoolHandle pool = nullptr;
    const int error = Bus::Get().Handles().AddPool(file, {BusClientModel::kBlockSize, BusClientModel::kBlocks}, pool);
    const std::lock_guard<std::mutex> lock(TheOffice().mutex);
    TheOffice().pools[file] = pool;
    TheOffice().lastQueue = file;
    return error;
}

int CloseQueue(VekQfsMgrFile* file) {
    VEKShmPoolHandle pool = nullptr;
    {
        const std::lock_guard<std::mutex> lock(TheOffice().mutex);
        pool = TheOffice().pools.at(file);
        TheOffice().pools.erase(file);
    }
    Require(Bus::Get().Handles().DestroyPool(pool) == 0);
    return Close(nullptr);
}

void Enqueue(VekQfsMgrFile* file, const std::string& event) {
    VekHandles& handles = Bus::Get().Handles();
    VEKShmPoolHandle pool = nullptr;
    {
        const std::lock_guard<std::mutex> lock(TheOffice().mutex);
        pool = TheOffice().pools.at(file);
    }
    VEKShmBlockHandle block = nullptr;
    Require(handles.TakeBlock(pool, event.size(), block) == 0);
    Require(handles.WriteBlock(block, event.data(), event.size()) == 0);
    const VEKQueueHandle queue = __atomic_load_n(&file->queueHandle, __ATOMIC_ACQUIRE);
    Require(handles.Enqueue(queue, block) == 0);
}

std::string PathOf(const char* name) {
    static const Fuzz::TempFolder folder;
    return folder.Path() + (name[0] == '\0' ? "" : std::string("/vek/") + name + ".sock");
}

/// One client: what it sent, and what must still come of it.
class Client {
public:
    void Connect(bool isQueue) {
        End();
        socket_ = Fuzz::ConnectTo(PathOf(isQueue ? "events" : "service"));
        model_ = BusClientModel(isQueue);
    }

    bool IsConnected() const { return static_cast<bool>(socket_); }
    bool IsOpen() const { return IsConnected() && model_.IsOpen(); }
    bool MayHold() const { return IsOpen() && !model_.IsQueue() && !model_.isBusy; }
    bool MayEnqueue() const { return IsOpen() && model_.IsRead() && model_.HasFreeBlock(); }

    void Send(std::string packet, bool hasDescriptor, bool waits) {
        if (!IsConnected()) {
            return;
        }
        Adapt(packet);
        const bool wasOpen = model_.IsOpen();
        const BusOutcome outcome = model_.Take(packet, hasDescriptor);
        if (hasDescriptor) {
            Fuzz::SendPacket(socket_.Get(), packet, {STDIN_FILENO});
        } else {
            Fuzz::SendPacket(socket_.Get(), packet);
        }
        awaited_.insert(awaited_.end(), outcome.frames.begin(), outcome.frames.end());
        awaitedBytes_ += packet.size();
        opens += !wasOpen && model_.IsOpen() ? 1 : 0;
        if (outcome.ends || waits || !wasOpen || awaitedBytes_ > kAwaitedBytesMax) {
            Drain();
        }
        if (outcome.ends) {
            Require(!Fuzz::ReceivePacket(socket_.Get()));
            socket_.Reset();
        }
        if (!wasOpen && IsOpen()) {
            const std::lock_guard<std::mutex> lock(TheOffice().mutex);
            queueFile_ = TheOffice().lastQueue;
        }
    }

    /// A request whose time is up while it runs.
    void Hold() {
        Drain();
        {
            const std::lock_guard<std::mutex> lock(TheOffice().mutex);
            TheOffice().isHolding = true;
        }
        Fuzz::SendPacket(socket_.Get(), BusFrame(2, kHeldCommand, 1, "held"));
        awaited_.push_back(BusFrame(0x202, kHeldCommand, -ETIMEDOUT, ""));
        Drain();
        model_.isBusy = true;
    }
    /// It goes on, and has ended when this returns.
    void GoOn() {
        if (IsConnected() && model_.isBusy) {
            model_.isBusy = false;
            Send(BusFrame(2, 6, 0, "more"), false, true);
        }
    }

    void Announce(const std::string& event) {
        Drain();
        Enqueue(queueFile_, event);
        awaited_.push_back(model_.Announce(static_cast<uint32_t>(event.size())));
        Drain();
    }

    void Drain() {
        for (; !awaited_.empty(); awaited_.pop_front()) {
            Require(Fuzz::ReceivePacket(socket_.Get()) == awaited_.front());
        }
        awaitedBytes_ = 0;
    }

    /// With what must still come, or without having read it.
    void End() {
        awaited_.clear();
        awaitedBytes_ = 0;
        socket_.Reset();
    }

    size_t opens = 0;

private:
    static constexpr size_t kAwaitedBytesMax = 32768;

    /// No request is late by chance, or held: none of a busy client is in time, every other one is.
    void Adapt(std::string& packet) const {
        Fuzz::BusHead head;
        if (packet.size() < sizeof(head)) {
            return;
        }
        std::memcpy(&head, packet.data(), sizeof(head));
        if ((head.op == 2 || head.op == 3) && head.rc >= 0) {
            head.rc = model_.isBusy ? 1 : head.rc == 0 ? 0 : head.rc | 0x40000000;
        }
        head.cmd = head.op == 2 && head.cmd == kHeldCommand ? kHeldCommand + 1 : head.cmd;
        std::memcpy(packet.data(), &head, sizeof(head));
    }

    UniqueFd socket_;
    BusClientModel model_{false};
    std::deque<std::string> awaited_;
    size_t awaitedBytes_ = 0;
    VekQfsMgrFile* queueFile_ = nullptr;
};

void Release() {
    Office& office = TheOffice();
    std::unique_lock<std::mutex> lock(office.mutex);
    office.isHolding = false;
    office.changed.notify_all();
    office.Await(lock, [&] { return office.held == 0; });
}

/// The clients that behave: one of the service, one of the queue.
struct GoodClients {
    Client asker;
    Client reader;

    GoodClients() {
        asker.Connect(false);
        reader.Connect(true);
        for (Client* client : {&asker, &reader}) {
            client->Send(BusFrame(1, 1, 0, ""), false, true);
        }
    }

    /// What was sent to the service and the queue before was read when this returns.
    void Ask() {
        for (Client* client : {&asker, &reader}) {
            client->Send(BusFrame(2, 6, 0, "good"), false, true);
            Require(client->IsOpen());
        }
    }
};

GoodClients& Good() {
    static GoodClients& good = *new GoodClients;
    return good;
}

/// Steps: the low four bits say what, the next two who, the highest one not to wait for the answer.
class Clients {
public:
    void Do(const Fuzz::Step& step) {
        Client& client = clients_[(step.what >> 4U) % clients_.size()];
        const bool waits = (step.what & 0x80U) == 0;
        switch (step.what & 0xfU) {
            case 0:
            case 1:
                if (connects_++ < kConnectsMax) {
                    client.Connect((step.what & 1U) != 0);
                }
                break;
            case 2:
                client.Send(step.bytes, false, waits);
                break;
            case 3:
                client.Send(Framed(step.bytes), true, waits);
                break;
            case 4:
                client.Send(step.bytes + std::string(65536, 'x'), false, waits);
                break;
            case 5:
                client.End();
                break;
            case 6:
                Hold(client);
                break;
            case 7:
                GoOn();
                break;
            case 8:
                if (client.MayEnqueue()) {
                    Good().Ask();
                    client.Announce(step.bytes.substr(0, BusClientModel::kBlockSize));
                }
                break;
            case 9:
                client.Send(BusFrame(1, 1, 0, ""), false, waits);
                break;
            case 10:
                client.Send(BusFrame(4, 0, 0, ""), false, waits);
                break;
            default:
                client.Send(Framed(step.bytes), false, waits);
        }
    }

    /// Returns how many files were opened.
    size_t End() {
        GoOn();
        size_t opens = 0;
        for (Client& client : clients_) {
            client.End();
            opens += client.opens;
        }
        return opens;
    }

private:
    /// A process has 16 files at most, those of the input before that are still being closed included.
    static constexpr size_t kConnectsMax = 6;

    /// Operation, command and result from the bytes, with the size that is right.
    static std::string Framed(const std::string& bytes) {
        std::string numbers = bytes.substr(0, 12);
        numbers.resize(12);
        Fuzz::BusHead head;
        std::memcpy(&head.op, numbers.data(), 4);
        std::memcpy(&head.cmd, numbers.data() + 4, 4);
        std::memcpy(&head.rc, numbers.data() + 8, 4);
        return BusFrame(head.op, head.cmd, head.rc, bytes.size() > 12 ? bytes.substr(12) : "");
    }

    void Hold(Client& client) {
        if (held_ == nullptr && client.MayHold()) {
            for (Client& other : clients_) {
                other.Drain();
            }
            client.Hold();
            held_ = &client;
        }
    }

    void GoOn() {
        if (held_ != nullptr) {
            held_->Drain();
            Release();
            held_->GoOn();
            held_ = nullptr;
        }
    }

    std::array<Client, 3> clients_;
    size_t connects_ = 0;
    Client* held_ = nullptr;
};

bool Offer() {
    ::setenv("PROCMGR_RUN_DIR", PathOf("").c_str(), 1);
    ::unsetenv("PROCMGR_SS_RULES");
    ServiceEntry service;
    service.ops = {nullptr, Read, Close, TurnRound};
    service.timeoutMs = BusClientModel::kServiceTimeMs;
    ServiceEntry queue;
    queue.isQueue = true;
    queue.queueOps = {OpenQueue, CloseQueue};
    queue.timeoutMs = BusClientModel::kServiceTimeMs;
    return Bus::Get().Register("service", service) == 0 && Bus::Get().Register("events", queue) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool isOffered = Offer();
    Require(isOffered);
    static_cast<void>(Good());
    const int descriptors = Fuzz::OpenDescriptors();
    Office& office = TheOffice();
    const size_t closedBefore = [&] {
        const std::lock_guard<std::mutex> lock(office.mutex);
        return office.closed;
    }();
    Clients clients;
    for (const Fuzz::Step& step : Fuzz::StepsOf(data, size, 16)) {
        clients.Do(step);
    }
    Good().Ask();
    const size_t opens = clients.End();
    Good().Ask();
    {
        std::unique_lock<std::mutex> lock(office.mutex);
        office.Await(lock, [&] { return office.closed - closedBefore == opens; });
    }
    Require(Fuzz::OpenDescriptors() == descriptors);
    return 0;
}
