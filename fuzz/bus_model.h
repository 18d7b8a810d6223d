/// What docs/resource-bus.md says about the frames of one client, written down a second time: which answer each packet
/// must have, and which packet ends the connection. The service behind it turns each buffer round.
#ifndef PROCMGR_FUZZ_BUS_MODEL_H
#define PROCMGR_FUZZ_BUS_MODEL_H

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace Fuzz {

struct BusHead {
    uint32_t op = 0;
    uint32_t cmd = 0;
    uint32_t size = 0;
    int32_t rc = 0;
};

template <typename Number>
std::string Bytes(Number number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

inline std::string BusFrame(uint32_t op, uint32_t cmd, int32_t rc, const std::string& payload) {
    return Bytes(BusHead{op, cmd, static_cast<uint32_t>(payload.size()), rc}) + payload;
}

/// What must come of one packet.
struct BusOutcome {
    std::vector<std::string> frames;
    bool ends = false;
};

class BusClientModel {
public:
    static constexpr uint32_t kServiceTimeMs = 600000;
    static constexpr uint32_t kBlockSize = 16;
    static constexpr uint32_t kBlocks = 4;
    static constexpr uint32_t kReadAtOnce = 5;

    explicit BusClientModel(bool isQueue) : isQueue_(isQueue) {}

    BusOutcome Take(const std::string& packet, bool hasDescriptors) {
        BusHead head;
        if (hasDescriptors || packet.size() < sizeof(head) || packet.size() > 65536) {
            return {{}, true};
        }
        std::memcpy(&head, packet.data(), sizeof(head));
        if (head.size != packet.size() - sizeof(head)) {
            return {{}, true};
        }
        const BusOutcome outcome = TakeFrame(head, packet.substr(sizeof(head)));
        isOpen_ = isOpen_ && !outcome.ends;
        return outcome;
    }

    bool IsOpen() const { return isOpen_; }
    bool IsQueue() const { return isQueue_; }
    bool IsRead() const { return isRead_; }

    /// An earlier request runs on although its time is up: the next ones have none.
    bool isBusy = false;

    bool HasFreeBlock() const { return withClient_.size() < kBlocks; }

    std::string Announce(uint32_t length) {
        uint32_t block = 0;
        while (withClient_.count(block) != 0) {
            ++block;
        }
        withClient_.insert(block);
        return BusFrame(17, 1, 0, Bytes(block) + Bytes(length));
    }

private:
    static BusOutcome Error(const BusHead& head, int error) {
        return {{BusFrame(0x200 + head.op, head.cmd, -error, "")}, false};
    }

    BusOutcome TakeFrame(const BusHead& head, const std::string& payload) {
        if (!isOpen_) {
            return TakeOpen(head);
        }
        switch (head.op) {
            case 2:
                return head.size == 0 ? BusOutcome{{}, true} : TakeRequest(head, Turned(head, payload));
            case 3:
                return head.size != 8 || head.cmd == 0 || head.cmd > 65512 ? BusOutcome{{}, true}
                                                                           : TakeRequest(head, Read(head, payload));
            case 4:
                return TakeQueue(head);
            case 5:
                return {{}, !isRead_ || head.size != 4 || !TakeBack(head.cmd, payload)};
            default:
                return {{}, true};
        }
    }

    BusOutcome TakeOpen(const BusHead& head) {
        if (head.op != 1 || head.size != 0 || head.rc != 0) {
            return {{}, true};
        }
        if (head.cmd != 1) {
            return {Error(head, EPROTONOSUPPORT).frames, true};
        }
        isOpen_ = true;
        return {{BusFrame(0x101, kServiceTimeMs, 0, "")}, false};
    }

    BusOutcome TakeRequest(const BusHead& head, const std::string& answer) const {
        if (head.rc < 0) {
            return {{}, true};
        }
        if (isQueue_) {
            return Error(head, ENOTTY);
        }
        return isBusy ? Error(head, EBUSY) : BusOutcome{{answer}, false};
    }

    static std::string Turned(const BusHead& head, const std::string& payload) {
        return BusFrame(0x102, head.cmd, static_cast<int32_t>(head.cmd), {payload.rbegin(), payload.rend()});
    }

    static std::string Read(const BusHead& head, const std::string& payload) {
        uint64_t offset = 0;
        std::memcpy(&offset, payload.data(), sizeof(offset));
        const uint32_t got = std::min(head.cmd, kReadAtOnce);
        return BusFrame(0x103, head.cmd, static_cast<int32_t>(got), Bytes(offset + got) + std::string(got, 'r'));
    }

    BusOutcome TakeQueue(const BusHead& head) {
        if (head.size != 0 || isRead_) {
            return {{}, true};
        }
        if (!isQueue_) {
            return Error(head, ENOTTY);
        }
        isRead_ = true;
        return {{BusFrame(0x104, head.cmd, 0, ""), BusFrame(16, 1, 0, Bytes(kBlockSize) + Bytes(kBlocks))}, false};
    }

    bool TakeBack(uint32_t pool, const std::string& payload) {
        uint32_t block = 0;
        std::memcpy(&block, payload.data(), sizeof(block));
        return pool == 1 && withClient_.erase(block) == 1;
    }

    bool isQueue_;
    bool isOpen_ = false;
    bool isRead_ = false;
    std::set<uint32_t> withClient_;
};

}  // namespace Fuzz

#endif
