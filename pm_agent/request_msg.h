/// The record in which every request between the group owner and the process manager travels, byte for byte and in host
/// byte order. Anything longer is cut into pieces that fit one record each.
///
/// What comes from the peer may lie at an odd address and may carry any `size`: copy the whole record into an aligned
/// one first, then read no more than PayloadSize() says.
#ifndef PROCMGR_PM_AGENT_REQUEST_MSG_H
#define PROCMGR_PM_AGENT_REQUEST_MSG_H

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "common/enumerations.h"

namespace ProcMgr::Message {

/// Kind of a request. A received kind is compared as a number, because it may be outside of the list.
enum class RequestType : uint32_t {
    START_APP = 0,                 ///< owner to process manager
    RESTART_APP = 1,               ///< owner to process manager
    TERM_APP = 2,                  ///< owner to process manager
    BASESERVICE_STATE_REPORT = 3,  ///< owner to process manager
    APP_STATE_REPORT = 4,          ///< process manager to owner
    APP_EXECUTION_REPORT = 5,      ///< owner to process manager
    LOAD_STARTUP_CFG = 6,          ///< owner to process manager, answered with a result
    RELOAD_STARTUP_CFG = 7,        ///< owner to process manager, answered with a result
    QUERY_APP_STATE = 9,           ///< owner to process manager, binary payload
    QUERY_APP_STATE_RESP = 10,     ///< process manager to owner, binary payload
};

/// Bytes of payload in one record.
inline constexpr size_t kPmDataMax = 3964;

/// The packed text of one entry must be shorter.
inline constexpr size_t kPmEntryMax = 3960;

/// The entries of one piece must be shorter together.
inline constexpr size_t kPmPieceMax = 3956;

/// The padding is spelled out, so that a value-initialised record has no indeterminate byte to leak.
struct alignas(8) RequestMsg {
    uint32_t type;       ///< a RequestType
    uint32_t reserved0;  ///< 0
    uint64_t size;       ///< meaningful bytes of `data`, as the sender says
    char data[kPmDataMax];
    char tail[4];  ///< 0
};

/// The meaningful bytes of `data`, never more than there are.
inline size_t PayloadSize(const RequestMsg& message) {
    return static_cast<size_t>(std::min<uint64_t>(message.size, kPmDataMax));
}

// A compiler that would lay the record out otherwise stops here, not on the wire.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "wire records are host order, little-endian");
static_assert(CHAR_BIT == 8 && sizeof(char) == 1, "wire records count in bytes of 8 bits");
static_assert(sizeof(RequestMsg) == 3984 && alignof(RequestMsg) == 8, "RequestMsg is 3984 bytes on the wire");
static_assert(offsetof(RequestMsg, type) == 0 && sizeof(RequestMsg::type) == 4, "RequestMsg: type is at 0");
static_assert(offsetof(RequestMsg, reserved0) == 4, "RequestMsg: four zero bytes follow the type");
static_assert(offsetof(RequestMsg, size) == 8 && sizeof(RequestMsg::size) == 8, "RequestMsg: size is at 8, 64 bits");
static_assert(offsetof(RequestMsg, data) == 16 && sizeof(RequestMsg::data) == 3964, "RequestMsg: data is 16 to 3979");
static_assert(offsetof(RequestMsg, tail) == 3980, "RequestMsg: four zero bytes follow the data");
static_assert(std::is_trivially_copyable_v<RequestMsg> && std::is_standard_layout_v<RequestMsg>,
              "RequestMsg is copied to the wire as it lies");
static_assert(std::has_unique_object_representations_v<RequestMsg>, "RequestMsg has no padding that could leak");
static_assert(sizeof(AppChangeState) == 4 && sizeof(ReportAppStateType) == 4 && sizeof(RequestType) == 4,
              "enumerations of the wire are 32 bits");
static_assert(sizeof(unsigned) == 4 && sizeof(int) == 4, "states and status codes are 32 bits");

}  // namespace ProcMgr::Message

#endif
