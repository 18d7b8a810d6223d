/// A platform log that keeps its records, for tests that link the parser alone.
#ifndef PROCMGR_TESTS_PLATFORM_MANIFEST_LOG_RECORDER_H
#define PROCMGR_TESTS_PLATFORM_MANIFEST_LOG_RECORDER_H

#include <string>
#include <vector>

/// "module level text" of each record so far.
std::vector<std::string> RecordedLines();

#endif
