#include "platform/posix/vek/command_class.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace ProcMgr {

std::vector<std::string> CommandClassNames() {
    return {"look", "change", "stop"};
}

CommandClass ClassOfCommand(uint32_t cmd) {
    static constexpr std::pair<uint32_t, CommandClass> kClasses[] = {
        {4, CommandClass::LOOK},  // dump to the log
        {5, CommandClass::STOP},  // stop all
        {6, CommandClass::LOOK},  // list
        {9, CommandClass::LOOK},  // states
    };
    const auto* row =
        std::find_if(std::begin(kClasses), std::end(kClasses), [cmd](const auto& entry) { return entry.first == cmd; });
    return row == std::end(kClasses) ? CommandClass::CHANGE : row->second;
}

bool IsGranted(AccessRules::Grants grants, CommandClass wanted) {
    return (grants >> static_cast<unsigned int>(wanted) & 1U) != 0;
}

}  // namespace ProcMgr
