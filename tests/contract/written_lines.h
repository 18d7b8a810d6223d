/// Looks behind a platform log: what it has written so far, by whichever way the implementation writes.
#ifndef PROCMGR_TESTS_CONTRACT_WRITTEN_LINES_H
#define PROCMGR_TESTS_CONTRACT_WRITTEN_LINES_H

#include <string>
#include <vector>

/// To be called before the first use of the log: everything is written, to where WrittenLines finds it.
void WatchLog();

/// The lines so far, with whatever the implementation puts in front of the text.
std::vector<std::string> WrittenLines();

#endif
