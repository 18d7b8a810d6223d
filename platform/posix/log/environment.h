/// Settings from the environment, and what this process is called.
#ifndef PROCMGR_PLATFORM_POSIX_LOG_ENVIRONMENT_H
#define PROCMGR_PLATFORM_POSIX_LOG_ENVIRONMENT_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace ProcMgr::Posix {

/// Gives the value of an environment variable, or null.
using Environment = std::function<const char*(const char* name)>;

/// The environment of this process.
const char* ProcessEnvironment(const char* name);

/// The value, or null when the variable is not set or empty.
const char* GivenValue(const Environment& environment, const char* name);

/// Replaces `number` by the variable's value when there is one, a whole number from 1 to `largest`. Any other value is
/// told in `warnings` and leaves `number` as it is.
void ReadNumber(const Environment& environment, const char* name, size_t largest, size_t& number,
                std::vector<std::string>& warnings);

/// PROC_NAME, else the base name of the executable, else "?".
std::string ProcessName();

}  // namespace ProcMgr::Posix

#endif
