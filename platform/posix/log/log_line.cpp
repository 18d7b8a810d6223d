#include "platform/posix/log/log_line.h"

#include <array>
#include <cstdio>

#include "platform/posix/log/log_settings.h"

namespace ProcMgr::Posix {
namespace {

struct LevelLook {
    int32_t level;
    const char* name;
    const char* colour;
};

constexpr LevelLook kLooks[] = {
    {0, "debug", "\033[36m"},
    {1, "info", "\033[32m"},
    {2, "warn", "\033[33;1m"},
    {3, "error", "\033[31;1m"},
    {kLogLevelEvent, "event", "\033[35;1m"},
};

constexpr const char* kColourEnd = "\033[m";

const LevelLook* FindLook(int32_t level) {
    for (const LevelLook& look : kLooks) {
        if (look.level == level) {
            return &look;
        }
    }
    return nullptr;
}

bool IsControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7f;
}

std::string EscapeControl(unsigned char byte) {
    constexpr const char* kDigits = "0123456789abcdef";
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return std::string("\\x") + kDigits[byte >> 4U] + kDigits[byte & 0xfU];
    }
}

}  // namespace

std::string LevelText(int32_t level) {
    const LevelLook* const look = FindLook(level);
    return look != nullptr ? look->name : std::to_string(level);
}

std::string ColouredLevelText(int32_t level) {
    const LevelLook* const look = FindLook(level);
    return look != nullptr ? std::string(look->colour) + look->name + kColourEnd : std::to_string(level);
}

std::string EscapeControls(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (IsControl(byte)) {
            escaped += EscapeControl(byte);
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string FormatText(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::array<char, 512> small{};
    const int length = vsnprintf(small.data(), small.size(), format, arguments);
    std::string text;
    if (length < 0) {
        text = format;
    } else if (static_cast<size_t>(length) < small.size()) {
        text.assign(small.data(), static_cast<size_t>(length));
    } else {
        text.resize(static_cast<size_t>(length));
        // The terminator goes where the string keeps its own.
        (void)vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

}  // namespace ProcMgr::Posix
