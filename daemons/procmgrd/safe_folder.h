/// Folders in which the daemon makes files that are its own.
#ifndef PROCMGR_PROCMGRD_SAFE_FOLDER_H
#define PROCMGR_PROCMGRD_SAFE_FOLDER_H

#include <sys/types.h>

#include <string>

namespace Procmgrd {

/// Makes the folder if its parent exists; `mode` then holds whatever the umask is. One that is there already is
/// accepted when nobody but root and the daemon's user can have put there what lies in it: it is no link, belongs to
/// one of the two, and neither its group nor others may write it. That says nothing about the folders above it: ask
/// from the outside in. False with errno: ENOTDIR, also for a link; EPERM for a folder of others.
[[nodiscard]] bool MakeSafeFolder(const std::string& path, mode_t mode);

}  // namespace Procmgrd

#endif
