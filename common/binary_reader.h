/// Reads numbers and bytes from a memory of known size, in host byte order and at any alignment. A failure sticks:
/// after the first thing that does not fit, everything reads as zero or empty. Lengths are checked before anything is
/// allocated. The caller keeps the memory alive and unchanged.
#ifndef PROCMGR_COMMON_BINARY_READER_H
#define PROCMGR_COMMON_BINARY_READER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace ProcMgr {

class BinaryReader {
public:
    BinaryReader(const void* data, size_t size) : at_(static_cast<const char*>(data)), left_(size) {}

    uint32_t ReadU32() {
        uint32_t number = 0;
        if (Take(sizeof(number))) {
            std::memcpy(&number, at_ - sizeof(number), sizeof(number));
        }
        return number;
    }

    std::string ReadBytes(size_t count) { return Take(count) ? std::string(at_ - count, count) : std::string(); }

    /// A 32-bit length and as many bytes.
    std::string ReadSizedText() { return ReadBytes(ReadU32()); }

    bool HasFailed() const { return hasFailed_; }
    size_t Left() const { return left_; }

private:
    bool Take(size_t count) {
        if (hasFailed_ || count > left_) {
            hasFailed_ = true;
            left_ = 0;
            return false;
        }
        at_ += count;
        left_ -= count;
        return true;
    }

    const char* at_;
    size_t left_;
    bool hasFailed_ = false;
};

}  // namespace ProcMgr

#endif
