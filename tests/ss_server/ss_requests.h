/// Requests of the system-state manager as the tests write them.
#ifndef PROCMGR_TESTS_SS_REQUESTS_H
#define PROCMGR_TESTS_SS_REQUESTS_H

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "ss_server/ss_to_owner_messages.h"
#include "tests/fake_platform/fake_vek.h"

/// What untouched bytes of a buffer hold.
inline constexpr char kUntouched = '\xEE';

/// A record with this payload and size; everything behind the payload is kUntouched.
inline ProcMgr::SsToOwnerRequestMsg MakeRequest(const std::string& payload, uint64_t size, uint32_t timeout) {
    ProcMgr::SsToOwnerRequestMsg request;
    std::memset(&request, kUntouched, sizeof(request));
    request.size = size;
    request.timeout = timeout;
    std::memcpy(request.payload, payload.data(), payload.size());
    return request;
}

inline ProcMgr::SsToOwnerRequestMsg MakeRequest(const std::string& payload) {
    return MakeRequest(payload, payload.size(), 3000);
}

/// A number as four bytes in host order.
inline std::string U32(uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

/// A name with its length in front.
inline std::string Sized(const std::string& name) {
    return U32(static_cast<uint32_t>(name.size())) + name;
}

/// The buffer of one ioctl, with what stood in it before the call.
struct IoctlBuffer {
    explicit IoctlBuffer(const std::string& payload) : IoctlBuffer(MakeRequest(payload)) {}
    explicit IoctlBuffer(const ProcMgr::SsToOwnerRequestMsg& request) {
        std::memcpy(bytes.data(), &request, bytes.size());
        before = bytes;
    }

    /// Sends it to the service that was registered last.
    int Send(unsigned int cmd) { return FakeVek::Get().Ioctl(cmd, bytes.data(), bytes.size()); }

    std::string Bytes(size_t offset, size_t count) const { return std::string(bytes.data() + offset, count); }

    /// What the buffer must hold after an answer of this payload: head, payload, everything else as before.
    std::string Expected(const std::string& payload) const {
        std::string expected(before.data(), before.size());
        expected.replace(0, 8, U32(static_cast<uint32_t>(payload.size())) + U32(0));
        return expected.replace(12, payload.size(), payload);
    }

    std::string All() const { return Bytes(0, bytes.size()); }

    std::array<char, ProcMgr::kSsRecordSize> bytes{};
    std::array<char, ProcMgr::kSsRecordSize> before{};
};

#endif
