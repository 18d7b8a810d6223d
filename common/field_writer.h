/// Writes texts in which every field is followed by one '#'. Numbers are plain decimal, whatever the process's locale.
#ifndef PROCMGR_COMMON_FIELD_WRITER_H
#define PROCMGR_COMMON_FIELD_WRITER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace ProcMgr {

/// A text that itself holds a '#' breaks the framing; it is the caller's business that none does.
class FieldWriter {
public:
    FieldWriter& AddText(std::string_view text) {
        text_.append(text);
        text_ += '#';
        return *this;
    }

    template <typename Number>
    FieldWriter& AddNumber(Number number) {
        static_assert(std::is_integral_v<Number> && !std::is_same_v<Number, bool> && !std::is_same_v<Number, char>);
        return AddText(std::to_string(number));
    }

    const std::string& Text() const { return text_; }
    std::string TakeText() { return std::move(text_); }
    size_t Size() const { return text_.size(); }

private:
    std::string text_;
};

}  // namespace ProcMgr

#endif
