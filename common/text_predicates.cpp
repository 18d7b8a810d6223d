#include "common/text_predicates.h"

#include <algorithm>
#include <cctype>

namespace ProcMgr {

bool IsStrDigits(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

}  // namespace ProcMgr
