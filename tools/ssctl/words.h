/// What a person types, as values. Everything here is about text alone; nothing is asked of a group.
///
/// A list is values between commas: "x,y". A backslash takes the next character as it is, so "x\,y" is one value. No
/// text may hold a '#', which ends a field on the wire.
#ifndef SSCTL_WORDS_H
#define SSCTL_WORDS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ss_server/ss_to_owner_messages.h"
#include "tools/ssctl/checked.h"

namespace Ssctl {

/// The words of one change request.
struct ChangeWords {
    std::vector<std::string> stop;
    std::vector<std::string> start;
    std::vector<std::string> restart;
    std::vector<std::string> args;   ///< "NAME=VALUE,VALUE"
    std::vector<std::string> paras;  ///< "NAME:INDEX=VALUE,VALUE"
};

/// The values of a list; the empty text is one empty value.
[[nodiscard]] Checked<std::vector<std::string>> SplitList(const std::string& text);

/// The names of several lists, in order.
[[nodiscard]] Checked<std::vector<std::string>> SplitNames(const std::vector<std::string>& lists);

/// The applications of a change: those to stop, to start, to restart, each with its arguments and dynamic parameters.
/// Arguments and parameters of an application that the change neither starts nor restarts are a mistake, and so are two
/// orders of the same kind for the same application. Several texts for the same application add up.
[[nodiscard]] Checked<std::vector<ProcMgr::AppInfo>> AssembleChange(const ChangeWords& words);

/// "NAME=VALUE" for each application; a value is "running", "terminated" or a number.
[[nodiscard]] Checked<std::map<std::string, uint32_t>> AssembleVerification(const std::vector<std::string>& words);

/// The number of a system state by its name in capital or small letters, or by the number itself.
[[nodiscard]] Checked<int> ParseSystemState(const std::string& word);

/// A problem when a name can't be sent.
[[nodiscard]] Checked<std::vector<std::string>> CheckNames(const std::vector<std::string>& names);

}  // namespace Ssctl

#endif
