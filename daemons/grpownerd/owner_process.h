/// The group-owner process: boots the group on a thread of its own, because connecting to the process manager and
/// starting the applications take their time, while the main thread waits for signals and for news.
#ifndef GRPOWNERD_OWNER_PROCESS_H
#define GRPOWNERD_OWNER_PROCESS_H

#include "daemons/grpownerd/options.h"

enum OwnerExit : int { kEnded = 0, kNotEnabled = 1, kUsage = 2, kPipeLost = 3 };

/// Runs until a signal or the loss of the process manager ends it; returns the exit code. Called once, while the
/// process has no other thread.
int RunOwner(const OwnerOptions& options);

#endif
