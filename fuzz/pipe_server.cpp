// The process manager's end of the pipe: up to three owners send what they like, in any order, over real sockets. What
// they say must come out as it was said, from open connections only; names are those of one connection at a time.
#include <array>
#include <deque>
#include <map>

#include "fuzz/packets.h"
#include "fuzz/steps.h"
#include "fuzz/temp_folder.h"
#include "platform/posix/tunor/tunor_frame.h"
#include "platform/posix/tunor/tunor_server.h"

using namespace ProcMgr;
using Fuzz::Require;

namespace {

constexpr size_t kOwners = 3;

/// The server, and what it tells held against what was sent.
class Manager {
public:
    explicit Manager(const std::string& runDir) {
        std::string error;
        Require(server_.Listen(runDir, "PROCMGR", error));
    }

    TunorServer& Server() { return server_; }
    void Turn() { server_.Dispatch(); }

    /// What the next message must be.
    std::deque<std::string> expected;
    size_t open = 0;

    TunorConnectionId FindByName(const std::string& name) const { return server_.FindByName(name); }

private:
    TunorServerCallbacks Callbacks() {
        TunorServerCallbacks callbacks;
        callbacks.opened = [this](TunorConnectionId id, const TunorPeer& peer) {
            Require(IsPeerName(peer.name) && server_.FindByName(peer.name) == id && peer.pid == ::getpid());
            ++open;
        };
        callbacks.closed = [this](TunorConnectionId id, const TunorPeer& peer, const std::string& reason) {
            Require(server_.FindPeer(id) == nullptr && server_.FindByName(peer.name) == 0 && !reason.empty());
            --open;
        };
        callbacks.request = [this](TunorConnectionId id, const std::string& bytes) {
            Expect(id, bytes);
            if (bytes == "close") {
                Require(server_.Close(id) && server_.FindPeer(id) == nullptr);
                --open;
            }
        };
        callbacks.call = [this](TunorConnectionId id, uint32_t seq, const std::string& bytes) {
            Expect(id, bytes);
            Require(server_.Answer(id, seq, bytes.data(), bytes.size()));
        };
        callbacks.response = [this](TunorConnectionId id, uint32_t, const std::string& bytes) { Expect(id, bytes); };
        return callbacks;
    }

    void Expect(TunorConnectionId id, const std::string& bytes) {
        Require(server_.FindPeer(id) != nullptr && !expected.empty() && expected.front() == bytes);
        expected.pop_front();
    }

    TunorServer server_{Callbacks()};
};

/// One packet at a time, with what the page about the pipe says of it.
class Owner {
public:
    void Connect(const std::string& path) { socket_ = Fuzz::ConnectTo(path); }
    void End() { socket_.Reset(); }

    void Send(Manager& manager, const std::string& packet, bool hasDescriptor) {
        if (!socket_) {
            return;
        }
        const bool isOpen = !name_.empty() && manager.FindByName(name_) == id_ && id_ != 0;
        if (isOpen && !hasDescriptor && packet.size() <= kFrameMax) {
            Foresee(manager, packet);
        }
        const std::string name = packet.size() > kHead ? packet.substr(kHead) : "";
        const TunorConnectionId before = manager.FindByName(name);
        const bool wasSent = hasDescriptor ? Fuzz::SendPacket(socket_.Get(), packet, {STDIN_FILENO})
                                           : Fuzz::SendPacket(socket_.Get(), packet);
        Require(wasSent || !isOpen);
        manager.Turn();
        Require(manager.expected.empty());
        if (manager.FindByName(name) != before && manager.FindByName(name) != 0) {
            name_ = name;
            id_ = manager.FindByName(name);
        }
        TakeAnswers();
    }

private:
    static constexpr size_t kHead = 16;

    static void Foresee(Manager& manager, const std::string& packet) {
        uint32_t head[4] = {};
        if (packet.size() < sizeof(head)) {
            return;
        }
        std::memcpy(head, packet.data(), sizeof(head));
        const bool isMessage = head[0] >= 3 && head[0] <= 5;
        if (isMessage && head[2] == packet.size() - sizeof(head) && head[3] == 0) {
            manager.expected.push_back(packet.substr(sizeof(head)));
        }
    }

    void TakeAnswers() const {
        static char bytes[kFrameMax];
        while (::recv(socket_.Get(), bytes, sizeof(bytes), MSG_DONTWAIT) > 0) {
        }
    }

    UniqueFd socket_;
    std::string name_;
    TunorConnectionId id_ = 0;
};

std::string Framed(const std::string& bytes) {
    std::string head = bytes.substr(0, 5);
    head.resize(5);
    uint32_t seq = 0;
    std::memcpy(&seq, head.data() + 1, sizeof(seq));
    const std::string payload = bytes.size() > 5 ? bytes.substr(5) : "";
    return EncodeFrame(static_cast<FrameKind>(head[0]), seq, payload.data(),
                       std::min(payload.size(), kFramePayloadMax));
}

/// Steps: the low four bits say what, the others who.
void Do(Manager& manager, Owner& owner, const Fuzz::Step& step, const std::string& path) {
    switch (step.what & 0xfU) {
        case 0:
            owner.Connect(path);
            manager.Turn();
            break;
        case 1:
            owner.Send(manager, step.bytes, false);
            break;
        case 2:
            owner.Send(manager, Framed(step.bytes), true);
            break;
        case 3:
            owner.Send(manager, step.bytes + std::string(kFrameMax, 'x'), false);
            break;
        case 4:
            owner.End();
            manager.Turn();
            break;
        case 5:
            owner.End();
            break;
        default:
            owner.Send(manager, Framed(step.bytes), false);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Fuzz::TempFolder folder;
    static Manager& manager = *new Manager(folder.Path());
    const int descriptors = Fuzz::OpenDescriptors();
    {
        std::array<Owner, kOwners> owners;
        for (const Fuzz::Step& step : Fuzz::StepsOf(data, size, 24)) {
            Do(manager, owners[(step.what >> 4U) % kOwners], step, folder.Path() + "/PROCMGR.sock");
        }
    }
    manager.Turn();
    manager.Turn();
    Require(manager.open == 0 && manager.expected.empty());
    Require(Fuzz::OpenDescriptors() == descriptors);
    return 0;
}
