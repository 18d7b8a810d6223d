// The datagrams that come to a watcher of heartbeats, with descriptors attached or not. A step is a datagram; its
// lowest bit attaches one.
#include "fuzz/packets.h"
#include "fuzz/steps.h"
#include "fuzz/temp_folder.h"
#include "platform/posix/heartbeat/heartbeat_receiver.h"
#include "platform/posix/heartbeat/heartbeat_wire.h"

using Fuzz::Require;
using ProcMgr::Posix::HeartBeatReceiver;
using ProcMgr::Posix::ReceivedBeat;

namespace {

struct Line {
    std::unique_ptr<HeartBeatReceiver> receiver;
    ProcMgr::UniqueFd sender;

    Line() {
        static const Fuzz::TempFolder folder;
        Require(HeartBeatReceiver::Open(folder.Path(), "watcher", receiver) == 0);
        sockaddr_un address = {};
        Require(ProcMgr::Posix::MakeAddress(folder.Path() + "/heartbeat/watcher.sock", address));
        sender.Reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        Require(::connect(sender.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kFewerThanTheKernelQueues = 8;
    static const std::string begin = "procmgr 1 beat ";
    static Line& line = *new Line;
    const int descriptors = Fuzz::OpenDescriptors();
    std::vector<std::string> names;
    for (const Fuzz::Step& step : Fuzz::StepsOf(data, size, kFewerThanTheKernelQueues)) {
        const bool isBare = (step.what & 1U) == 0;
        Require(isBare ? Fuzz::SendPacket(line.sender.Get(), step.bytes)
                       : Fuzz::SendPacket(line.sender.Get(), step.bytes, {STDIN_FILENO, STDIN_FILENO}));
        const bool isBeat = step.bytes.compare(0, begin.size(), begin) == 0;
        const size_t length = step.bytes.size() - (isBeat ? begin.size() : 0);
        if (isBeat && length > 0 && length <= ProcMgr::Posix::kHeartBeatNameMax) {
            names.push_back(step.bytes.substr(begin.size()));
        }
    }
    const std::vector<ReceivedBeat> beats = line.receiver->Receive();
    Require(beats.size() == names.size());
    for (size_t i = 0; i < beats.size(); ++i) {
        Require(beats[i].name == names[i] && beats[i].pid == ::getpid() && beats[i].uid == ::getuid());
    }
    Require(Fuzz::OpenDescriptors() == descriptors);
    return 0;
}
