/// Questions about texts.
#ifndef PROCMGR_COMMON_TEXT_PREDICATES_H
#define PROCMGR_COMMON_TEXT_PREDICATES_H

#include <string>

namespace ProcMgr {

/// True when every character is a decimal digit, so also for the empty text.
bool IsStrDigits(const std::string& text);

}  // namespace ProcMgr

#endif
