/// The records that travel between the system-state manager and the group owner, byte for byte in one buffer of 3904
/// bytes: a request going in, the begin of a response coming out.
///
/// A request's buffer may be unaligned and may change while it is read: copy the whole record first, then look at the
/// copy. `size` is the sender's word; everyone who reads the payload checks it against kSsPayloadMax.
#ifndef PROCMGR_SS_SERVER_SS_TO_OWNER_MESSAGES_H
#define PROCMGR_SS_SERVER_SS_TO_OWNER_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace ProcMgr {

/// Bytes of payload in a record.
inline constexpr size_t kSsPayloadMax = 3888;

/// Size of the buffer.
inline constexpr size_t kSsRecordSize = 3904;

/// What a response says of the time-out until somebody sets it, in ms. It never reaches the client.
inline constexpr uint32_t kSsResponseTimeoutMs = 5000;

/// The padding is spelled out, so that no byte of a value-initialised record is indeterminate.
struct alignas(8) SsToOwnerRequestMsg {
    uint64_t size;     ///< bytes of payload, as the sender says
    uint32_t timeout;  ///< ms that the sender grants the operation
    char payload[kSsPayloadMax];
    char tail[4];
};

struct alignas(8) SsToOwnerResponseMsg {
    uint32_t len = 0;       ///< bytes of payload
    uint32_t reserved = 0;  ///< 0; with `len` it reads as one 64-bit length
    uint32_t timeout = kSsResponseTimeoutMs;
    char payload[kSsPayloadMax] = {};
    char tail[4] = {};
};

/// Bytes of a response's head that go back to the client, and where its payload starts.
inline constexpr size_t kSsResponseHead = 8;
inline constexpr size_t kSsPayloadOffset = 12;

/// One application of a change request.
struct AppInfo {
    uint32_t timeout = 0;  ///< of the request, in ms
    std::string name;
    uint32_t optionType = 0;  ///< an OptionType, or a value outside of it
    std::vector<std::string> argv;
    std::map<int32_t, std::vector<std::string>> dynamicPara;
};

// A compiler that would lay the records out otherwise stops here, not on the wire.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "wire records are host order, little-endian");
static_assert(sizeof(SsToOwnerRequestMsg) == kSsRecordSize && alignof(SsToOwnerRequestMsg) == 8,
              "SsToOwnerRequestMsg is 3904 bytes on the wire");
static_assert(offsetof(SsToOwnerRequestMsg, size) == 0 && sizeof(SsToOwnerRequestMsg::size) == 8,
              "SsToOwnerRequestMsg: size is at 0, 64 bits");
static_assert(offsetof(SsToOwnerRequestMsg, timeout) == 8, "SsToOwnerRequestMsg: timeout is at 8");
static_assert(offsetof(SsToOwnerRequestMsg, payload) == kSsPayloadOffset &&
                  sizeof(SsToOwnerRequestMsg::payload) == 3888,
              "SsToOwnerRequestMsg: payload is 12 to 3899");
static_assert(offsetof(SsToOwnerRequestMsg, tail) == 3900, "SsToOwnerRequestMsg: four bytes follow the payload");
static_assert(sizeof(SsToOwnerResponseMsg) == kSsRecordSize && alignof(SsToOwnerResponseMsg) == 8,
              "SsToOwnerResponseMsg is 3904 bytes on the wire");
static_assert(offsetof(SsToOwnerResponseMsg, len) == 0 && sizeof(SsToOwnerResponseMsg::len) == 4,
              "SsToOwnerResponseMsg: len is at 0, 32 bits");
static_assert(offsetof(SsToOwnerResponseMsg, reserved) == 4, "SsToOwnerResponseMsg: four zero bytes follow the len");
static_assert(offsetof(SsToOwnerResponseMsg, timeout) == 8, "SsToOwnerResponseMsg: timeout is at 8");
static_assert(offsetof(SsToOwnerResponseMsg, payload) == kSsPayloadOffset &&
                  sizeof(SsToOwnerResponseMsg::payload) == 3888,
              "SsToOwnerResponseMsg: payload is 12 to 3899");
static_assert(offsetof(SsToOwnerResponseMsg, tail) == 3900, "SsToOwnerResponseMsg: four bytes follow the payload");

template <typename Record>
inline constexpr bool kIsPlainRecord = std::is_trivially_copyable_v<Record>&& std::is_standard_layout_v<Record>&&
    std::has_unique_object_representations_v<Record>;
static_assert(kIsPlainRecord<SsToOwnerRequestMsg> && kIsPlainRecord<SsToOwnerResponseMsg>,
              "the records are copied to the wire as they lie and have no padding that could leak");

}  // namespace ProcMgr

#endif
