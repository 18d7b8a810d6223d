/// Which users a server lets in, and, when it tells kinds of requests apart, which of them a user may make.
///
/// Root and the process's own user always may do everything; everyone else only what a rule grants. A rule file holds
/// one rule a line:
///     # a comment
///     allow uid 1000
///     allow uid 2000-2010
///     allow user robot
/// With classes, each rule goes on with the names of one or more of them ("allow uid 1000 look change"); several rules
/// for one user add up. docs/pipe.md and docs/resource-bus.md have the grammars. Not thread-safe while it is loaded.
#ifndef PROCMGR_PLATFORM_POSIX_ACCESS_RULES_H
#define PROCMGR_PLATFORM_POSIX_ACCESS_RULES_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ProcMgr {

class AccessRules {
public:
    /// Bit i of a user's grants is the class of that index.
    using Grants = uint32_t;
    static constexpr Grants kEverything = UINT32_MAX;

    /// `classes`: the names of at most 31 classes. Without any, a rule grants everything.
    explicit AccessRules(std::vector<std::string> classes = {}) : classes_(std::move(classes)) {}

    /// Reads the rules from a file, which must belong to root or to the own user and be writable by nobody else.
    /// False on failure, with file and line (where there is one) in `error`; the rules are then as before.
    [[nodiscard]] bool Load(const std::string& path, std::string& error);

    /// As Load, of a text; `fileName` is for the errors only.
    [[nodiscard]] bool Parse(const std::string& text, const std::string& fileName, std::string& error);

    /// Everything for root and the own user, 0 for a user without a rule.
    Grants GrantsOf(uid_t uid) const;

    /// May the user do anything at all?
    bool Allowed(uid_t uid) const { return GrantsOf(uid) != 0; }

private:
    struct Range {
        uid_t first;
        uid_t last;
        Grants grants;
    };
    const char* ParseLine(const std::string& line, std::vector<Range>& ranges) const;
    const char* ParseGrants(const std::vector<std::string>& words, Grants& grants) const;

    std::vector<std::string> classes_;
    std::vector<Range> ranges_;
};

}  // namespace ProcMgr

#endif
