/// Texts as one word of a line: bytes that would end the word become %XX. Pure.
#ifndef PROCMGR_PLATFORM_POSIX_COMMON_POSIX_PERCENT_TEXT_H
#define PROCMGR_PLATFORM_POSIX_COMMON_POSIX_PERCENT_TEXT_H

#include <string>
#include <string_view>

namespace ProcMgr {

/// Blanks, control characters, bytes above 0x7E, '%' and those of `others` become %XX.
std::string PercentEncode(std::string_view text, std::string_view others = {});

/// The text again, whatever `others` was. A '%' without two digits behind it stands for itself.
std::string PercentDecode(std::string_view encoded);

}  // namespace ProcMgr

#endif
