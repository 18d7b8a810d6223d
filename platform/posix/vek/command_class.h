/// What a user needs to be granted for a command of the group owner's service.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_COMMAND_CLASS_H
#define PROCMGR_PLATFORM_POSIX_VEK_COMMAND_CLASS_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/posix/common_posix/access_rules.h"

namespace ProcMgr {

/// The value is the bit in a user's grants.
enum class CommandClass { LOOK = 0, CHANGE = 1, STOP = 2 };

/// The names that the rules use, in the order of the bits.
std::vector<std::string> CommandClassNames();

/// A command that nobody knows is a change.
CommandClass ClassOfCommand(uint32_t cmd);

bool IsGranted(AccessRules::Grants grants, CommandClass wanted);

}  // namespace ProcMgr

#endif
