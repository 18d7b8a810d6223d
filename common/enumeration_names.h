/// Printable names of the enumerations. Each function takes the value widened to 64 bits, so that any number from the
/// wire may be asked for, and gives the empty string for a value outside its list. Any thread may call them at any time
/// after the library was loaded, also while the process exits.
#ifndef PROCMGR_COMMON_ENUMERATION_NAMES_H
#define PROCMGR_COMMON_ENUMERATION_NAMES_H

#include <cstdint>
#include <string>
#include <type_traits>

namespace ProcMgr {

std::string GetAppState(uint64_t value);                 ///< of AppChangeState
std::string GetOptionType(uint64_t value);               ///< of OptionType
std::string GetGroupOwner(uint64_t value);               ///< of GroupOwnerType
std::string GetSysState(uint64_t value);                 ///< of SysState
std::string GetReportAppStateTypeStr(uint64_t value);    ///< of Message::ReportAppStateType
std::string GetProcessStateStr(uint64_t value);          ///< of ProcessState
std::string GetBaseServiceStateTypeStr(uint64_t value);  ///< of BaseServiceStateType
std::string GetAppExecStateStr(uint64_t value);          ///< of AppExecState

/// The value of an enumerator as the name functions take it; a negative one is extended by its sign.
template <typename Enum>
constexpr uint64_t ToValue(Enum value) {
    return static_cast<uint64_t>(static_cast<std::underlying_type_t<Enum>>(value));
}

}  // namespace ProcMgr

#endif
