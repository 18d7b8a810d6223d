#include "platform/posix/common_posix/percent_text.h"

#include <charconv>

namespace ProcMgr {

std::string PercentEncode(std::string_view text, std::string_view others) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string encoded;
    for (const char byte : text) {
        if (byte > ' ' && byte < 0x7F && byte != '%' && others.find(byte) == std::string_view::npos) {
            encoded += byte;
            continue;
        }
        const auto value = static_cast<unsigned char>(byte);
        encoded += {'%', kDigits[value >> 4U], kDigits[value & 0x0FU]};
    }
    return encoded;
}

std::string PercentDecode(std::string_view encoded) {
    std::string text;
    for (size_t at = 0; at < encoded.size(); ++at) {
        unsigned char byte = 0;
        const char* const hex = encoded.data() + at + 1;
        if (encoded[at] == '%' && at + 2 < encoded.size() && std::from_chars(hex, hex + 2, byte, 16).ptr == hex + 2) {
            text += static_cast<char>(byte);
            at += 2;
        } else {
            text += encoded[at];
        }
    }
    return text;
}

}  // namespace ProcMgr
