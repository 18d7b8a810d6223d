/// One thing that is wrong with manifests, and where.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_ERROR_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_ERROR_H

#include <string>
#include <vector>

namespace ProcMgr {

/// What kind of thing is wrong.
enum class ManifestFault {
    UNREADABLE,           ///< a file or folder as a whole
    SYNTAX,               ///< no YAML
    SCHEMA,               ///< a key or a value that is not allowed, or missing
    NO_MANIFEST,          ///< nothing to read
    DUPLICATE_NAME,       ///< a second manifest of a name
    CYCLE,                ///< applications that wait for each other
    UNKNOWN_DEPENDENCY,   ///< on what has no manifest
    TEMPLATE_DEPENDENCY,  ///< on a template instead of an instance of it
    TEMPLATE_AT_BOOT,     ///< a template that is a base application, too
    BOOT_DEPENDENCY,      ///< of a base application on one that is not started at boot
    NEVER_RESTARTS,       ///< a restart policy that never restarts
    NO_EFFECT,            ///< a key that changes nothing
    PROGRAM,              ///< a program that is not there
};

struct ManifestError {
    std::string file;
    int line = 0;  ///< counted from 1; 0 when the error concerns the whole file
    int column = 0;
    std::string key;   ///< the manifest key it is about; may be empty
    std::string text;  ///< what is wrong and what to do
    ManifestFault fault = ManifestFault::SCHEMA;
    std::string application = {};  ///< it is about; empty when the error is not about one
    std::vector<std::string> related =
        {};  ///< the dependency that it is about, or the applications of the cycle in order
};

/// "file:line:column: key 'k': text" in one line of printable text; leaves out what is not known.
[[nodiscard]] std::string FormatError(const ManifestError& error);

}  // namespace ProcMgr

#endif
