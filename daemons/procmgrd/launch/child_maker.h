/// Makes the processes that become applications.
///
/// To fork would copy the daemon's page tables, and would make it pay again for each page that it then writes: more
/// than all the rest of a start. These children run in the daemon's memory until they execute their program (vfork).
/// Who makes such a child stands still meanwhile; for the daemon not to, it is done by a thread that does nothing else
/// and touches nothing of the daemon. The thread lives as long as the daemon: its end would be the death of a parent
/// for its children.
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_CHILD_MAKER_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_CHILD_MAKER_H

#include <sys/types.h>

#include "daemons/procmgrd/launch/child_setup.h"

namespace ProcMgr {

/// Makes a child that carries out `plan` (RunChild), and returns its number when it waits for its go; -1 with errno
/// when there is none. The plan, and what it points to, must stay until the child has executed its program or is
/// reaped. For one thread at a time.
[[nodiscard]] pid_t MakeChild(ChildPlan& plan);

/// The last child does not come to its end: leave the thread to it, and have another one for the next.
void GiveUpLastChild();

}  // namespace ProcMgr

#endif
