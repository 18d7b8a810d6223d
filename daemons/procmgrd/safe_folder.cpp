#include "daemons/procmgrd/safe_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/common_posix/unique_fd.h"

namespace Procmgrd {

bool MakeSafeFolder(const std::string& path, mode_t mode) {
    const bool isNew = mkdir(path.c_str(), mode) == 0;
    if (!isNew && errno != EEXIST) {
        return false;
    }
    const ProcMgr::UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!folder.IsOpen() || fstat(folder.Get(), &info) != 0) {
        return false;
    }
    const bool isForeign = info.st_uid != 0 && info.st_uid != geteuid();
    if (isForeign || (!isNew && (info.st_mode & (S_IWGRP | S_IWOTH)) != 0)) {
        errno = EPERM;
        return false;
    }
    return !isNew || fchmod(folder.Get(), mode) == 0;
}

}  // namespace Procmgrd
