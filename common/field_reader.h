/// Readers of texts in which every field is followed by one '#'. They never throw for what the text holds, and look at
/// nothing behind its end. A failure sticks: after the first one everything reads as zero or empty, so that a caller
/// reads all its fields and asks once.
#ifndef PROCMGR_COMMON_FIELD_READER_H
#define PROCMGR_COMMON_FIELD_READER_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace ProcMgr {

inline constexpr char kFieldEnd = '#';

/// Takes a text at its word. A field is what stands before a '#' that must be there. A number is one or more decimal
/// digits, with a '-' in front only when its type is signed, and must fit its type; leading zeros are allowed, blanks
/// and '+' are not. The caller keeps the text alive; what is behind the last field read is nobody's business.
class FieldReader {
public:
    explicit FieldReader(std::string_view text) : rest_(text) {}

    std::string ReadText() { return std::string(Next()); }

    template <typename Number>
    Number ReadNumber() {
        static_assert(std::is_integral_v<Number> && !std::is_same_v<Number, bool>);
        return Parse<Number>(Next());
    }

    /// A number that may be the end of the text, with or without its '#'. Without one the whole rest is the number.
    template <typename Number>
    Number ReadLastNumber() {
        static_assert(std::is_integral_v<Number> && !std::is_same_v<Number, bool>);
        return Parse<Number>(NextOrRest());
    }

    bool HasFailed() const { return hasFailed_; }

    /// What was not read yet. Empty after a failure.
    std::string_view Rest() const { return rest_; }

private:
    std::string_view Next();
    std::string_view NextOrRest();
    void Fail();

    template <typename Number>
    Number Parse(std::string_view field) {
        Number number = 0;
        const char* const end = field.data() + field.size();
        const std::from_chars_result result = std::from_chars(field.data(), end, number);
        if (hasFailed_ || result.ec != std::errc() || result.ptr != end) {
            Fail();
            return 0;
        }
        return number;
    }

    std::string_view rest_;
    bool hasFailed_ = false;
};

/// Makes the best of a text. A number is the digits up to the first other byte, which is skipped whatever it is; no
/// digit reads as 0 and is a failure, a number over 2^32-1 reads as 2^32-1 and is a failure. A text field without a '#'
/// is the rest of the text. The caller keeps the text alive.
class TolerantFieldReader {
public:
    explicit TolerantFieldReader(std::string_view text) : rest_(text) {}

    std::string ReadText();
    uint32_t ReadNumber();

    bool HasFailed() const { return hasFailed_; }

private:
    void Skip(size_t count);
    void Fail();

    std::string_view rest_;
    bool hasFailed_ = false;
};

}  // namespace ProcMgr

#endif
