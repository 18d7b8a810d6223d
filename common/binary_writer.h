/// Writes numbers and bytes into a memory of known size, in host byte order and at any alignment. A failure sticks:
/// after the first thing that does not fit, nothing is written any more.
#ifndef PROCMGR_COMMON_BINARY_WRITER_H
#define PROCMGR_COMMON_BINARY_WRITER_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "platform/include/bounded_copy.h"

namespace ProcMgr {

class BinaryWriter {
public:
    /// The memory belongs to the caller.
    BinaryWriter(void* memory, size_t capacity) : memory_(static_cast<char*>(memory)), capacity_(capacity) {}

    BinaryWriter& AddU8(uint8_t number) { return AddBytes(&number, sizeof(number)); }
    BinaryWriter& AddU32(uint32_t number) { return AddBytes(&number, sizeof(number)); }
    BinaryWriter& AddI32(int32_t number) { return AddBytes(&number, sizeof(number)); }

    /// A 32-bit length and the bytes; written whole or not at all.
    BinaryWriter& AddSizedText(std::string_view text) {
        if (text.size() > std::numeric_limits<uint32_t>::max() || !HasRoom(sizeof(uint32_t), text.size())) {
            hasFailed_ = true;
            return *this;
        }
        return AddU32(static_cast<uint32_t>(text.size())).AddBytes(text.data(), text.size());
    }

    bool HasFailed() const { return hasFailed_; }
    size_t Size() const { return size_; }  ///< bytes written so far

private:
    bool HasRoom(size_t head, size_t tail) const {
        const size_t room = capacity_ - size_;
        return head <= room && tail <= room - head;
    }

    BinaryWriter& AddBytes(const void* bytes, size_t count) {
        if (hasFailed_ || !HasRoom(0, count)) {
            hasFailed_ = true;
            return *this;
        }
        if (count != 0 && memcpy_s(memory_ + size_, capacity_ - size_, bytes, count) != 0) {
            hasFailed_ = true;
            return *this;
        }
        size_ += count;
        return *this;
    }

    char* memory_;
    size_t capacity_;
    size_t size_ = 0;
    bool hasFailed_ = false;
};

}  // namespace ProcMgr

#endif
