/// Which users may connect to the process manager.
///
/// Root and the process's own user always may; everyone else only by a rule. A rule file holds one rule a line:
///     # a comment
///     allow uid 1000
///     allow uid 2000-2010
///     allow user robot
/// docs/pipe.md has the grammar. Not thread-safe while it is loaded.
#ifndef PROCMGR_PLATFORM_POSIX_ACCESS_RULES_H
#define PROCMGR_PLATFORM_POSIX_ACCESS_RULES_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace ProcMgr {

class AccessRules {
public:
    /// Reads the rules from a file, which must belong to root or to the own user and be writable by nobody else.
    /// False on failure, with file and line (where there is one) in `error`; the rules are then as before.
    [[nodiscard]] bool Load(const std::string& path, std::string& error);

    /// As Load, of a text; `fileName` is for the errors only.
    [[nodiscard]] bool Parse(const std::string& text, const std::string& fileName, std::string& error);

    bool Allowed(uid_t uid) const;

private:
    struct Range {
        uid_t first;
        uid_t last;
    };
    static const char* ParseLine(const std::string& line, std::vector<Range>& ranges);

    std::vector<Range> ranges_;
};

}  // namespace ProcMgr

#endif
