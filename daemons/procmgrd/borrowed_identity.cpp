#include "daemons/procmgrd/borrowed_identity.h"

#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace Procmgrd {
namespace {

// The library's own call would change every thread of the process.
bool SetGroupsOfThread(const std::vector<gid_t>& groups) {
    return syscall(SYS_setgroups, groups.size(), groups.data()) == 0;
}

// Both calls tell what was before, not whether they worked; a number that nobody has changes nothing.
bool SetFileUid(uid_t uid) {
    setfsuid(uid);
    return static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1))) == uid;
}

bool SetFileGid(gid_t gid) {
    setfsgid(gid);
    return static_cast<gid_t>(setfsgid(static_cast<gid_t>(-1))) == gid;
}

}  // namespace

BorrowedIdentity::BorrowedIdentity(const ProcMgr::OwnerIdentity& owner) : ownUid_(geteuid()), ownGid_(getegid()) {
    if (owner.uid == 0 || owner.uid == ownUid_) {
        return;
    }
    holds_ = KeepOwn();
    if (holds_) {
        isBorrowed_ = true;
        holds_ = Take(owner);
    }
}

BorrowedIdentity::~BorrowedIdentity() {
    if (isBorrowed_ && !GiveBack()) {
        std::abort();
    }
}

bool BorrowedIdentity::KeepOwn() {
    const int count = getgroups(0, nullptr);
    ownGroups_.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return count >= 0 && getgroups(count, ownGroups_.data()) == count;
}

// The uid last: with it go the capabilities.
bool BorrowedIdentity::Take(const ProcMgr::OwnerIdentity& owner) const {
    const std::vector<gid_t> groups(owner.groups.begin(), owner.groups.end());
    return SetGroupsOfThread(groups) && SetFileGid(owner.gid) && SetFileUid(owner.uid);
}

// A daemon that was refused the groups of another has its own still, and may not even set those.
bool BorrowedIdentity::GiveBack() const {
    const bool isOwnAgain = SetFileUid(ownUid_) && SetFileGid(ownGid_);
    return isOwnAgain && (SetGroupsOfThread(ownGroups_) || !holds_);
}

}  // namespace Procmgrd
