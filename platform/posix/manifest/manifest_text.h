/// Small text helpers of the manifest reader. Pure functions, callable from any thread.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_TEXT_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_TEXT_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace ProcMgr {

inline constexpr size_t kMaxNameBytes = 255;

/// `text` between single quotes, cut after 64 bytes and with control characters as \xNN, so that it fits into one line.
[[nodiscard]] std::string Quote(const std::string& text);

/// How many bytes must be added, taken away or changed to make the one of the other.
[[nodiscard]] size_t EditDistance(const std::string& from, const std::string& to);

/// The candidate with the smallest edit distance to `text`; the first one among equals, empty when there are none.
[[nodiscard]] std::string NearestOf(const std::string& text, const std::vector<std::string>& candidates);

/// Why a file or folder cannot be read, for an errno, and what to do.
[[nodiscard]] std::string CannotRead(int error);

/// What is wrong with the name and what to do, or the empty string. Names become file names, environment values and
/// fields of requests, which is why '#', '/' and control characters are refused.
[[nodiscard]] std::string CheckOwnName(const std::string& name);         ///< of a manifest: without '@'
[[nodiscard]] std::string CheckDependencyName(const std::string& name);  ///< may be template@instance

/// Writes `text` with each ${KEY} replaced and each $${ as ${ to `out`. Replaced text is not looked at again.
/// Returns what is wrong and what to do, or the empty string; writes `out` only in that case.
[[nodiscard]] std::string ReplaceKeys(const std::string& text, const std::map<std::string, std::string>& matchData,
                                      std::string& out);

}  // namespace ProcMgr

#endif
