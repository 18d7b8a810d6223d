#include "common/field_reader.h"

#include <algorithm>
#include <limits>

namespace ProcMgr {

std::string_view FieldReader::Next() {
    const size_t end = rest_.find(kFieldEnd);
    if (end == std::string_view::npos) {
        Fail();
        return {};
    }
    const std::string_view field = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    return field;
}

std::string_view FieldReader::NextOrRest() {
    if (rest_.find(kFieldEnd) != std::string_view::npos) {
        return Next();
    }
    const std::string_view field = rest_;
    rest_ = {};
    return field;
}

void FieldReader::Fail() {
    hasFailed_ = true;
    rest_ = {};
}

std::string TolerantFieldReader::ReadText() {
    const std::string text(rest_.substr(0, rest_.find(kFieldEnd)));
    Skip(text.size());
    return text;
}

uint32_t TolerantFieldReader::ReadNumber() {
    uint32_t number = 0;
    const char* const end = rest_.data() + rest_.size();
    const std::from_chars_result result = std::from_chars(rest_.data(), end, number);
    if (result.ec == std::errc::result_out_of_range) {
        Fail();
        return std::numeric_limits<uint32_t>::max();
    }
    if (result.ec != std::errc()) {
        Fail();
        return 0;
    }
    Skip(static_cast<size_t>(result.ptr - rest_.data()));
    return number;
}

// Leaves the field, of `count` bytes, and the one byte behind it.
void TolerantFieldReader::Skip(size_t count) {
    rest_.remove_prefix(std::min(count + 1, rest_.size()));
}

void TolerantFieldReader::Fail() {
    hasFailed_ = true;
    rest_ = {};
}

}  // namespace ProcMgr
