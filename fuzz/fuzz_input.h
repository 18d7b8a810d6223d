/// What the fuzz targets share. A target is one file with LLVMFuzzerTestOneInput: it gives the bytes to one reader and
/// requires of the result what the reader's header promises. Sanitizers find the rest.
#ifndef PROCMGR_FUZZ_FUZZ_INPUT_H
#define PROCMGR_FUZZ_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#if defined(__has_include)
#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#endif
#endif
#ifndef ASAN_POISON_MEMORY_REGION
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace Fuzz {

/// Ends the run with a finding unless the promise was kept.
inline void Require(bool kept) {
    if (!kept) {
        std::abort();
    }
}

inline std::string Text(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

/// A wire record with this payload, whose size is what the input has, however much that is. The bytes behind the
/// payload may not be touched: AddressSanitizer reports whoever does. The record must therefore not be copied whole.
template <typename Record, size_t kMax>
class SealedRecord {
public:
    SealedRecord(char (Record::*payload)[kMax], const uint8_t* data, size_t size)
        : record_(std::make_unique<Record>()), end_((*record_).*payload + std::min(size, kMax)) {
        record_->size = size;
        std::copy_n(data, std::min(size, kMax), (*record_).*payload);
        ASAN_POISON_MEMORY_REGION(end_, Rest());
    }
    ~SealedRecord() { ASAN_UNPOISON_MEMORY_REGION(end_, Rest()); }
    SealedRecord(const SealedRecord&) = delete;
    SealedRecord& operator=(const SealedRecord&) = delete;

    const Record& Get() const { return *record_; }

private:
    size_t Rest() const { return static_cast<size_t>(reinterpret_cast<const char*>(record_.get() + 1) - end_); }

    std::unique_ptr<Record> record_;
    char* end_;
};

}  // namespace Fuzz

#endif
