#include "pm_agent/call_result.h"

#include <charconv>

namespace ProcMgr {

int32_t ReadCallResult(std::string_view text) {
    if (!text.empty() && text.back() == '#') {
        text.remove_suffix(1);
    }
    int32_t result = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, result);
    return error == std::errc() && stop == end ? result : -1;
}

}  // namespace ProcMgr
