/// What an owner names by a path is read with that owner's rights, so that it gains nothing by asking us.
#ifndef PROCMGR_PROCMGRD_BORROWED_IDENTITY_H
#define PROCMGR_PROCMGRD_BORROWED_IDENTITY_H

#include <sys/types.h>

#include <vector>

#include "daemons/procmgrd/launch/launch_spec.h"

namespace Procmgrd {

/// For the life of an object, the calling thread meets the file system as that owner: its uid, gid and supplementary
/// groups, without the capabilities by which root overrules them. Signals and everything else stay the daemon's. An
/// owner that is root or the daemon's own user sees what the daemon sees.
///
/// Make it and end it in the same thread, and write no files of the daemon's meanwhile, its log among them. A daemon
/// that cannot become itself again does not go on: it aborts.
class BorrowedIdentity {
public:
    explicit BorrowedIdentity(const ProcMgr::OwnerIdentity& owner);
    ~BorrowedIdentity();
    BorrowedIdentity(const BorrowedIdentity&) = delete;
    BorrowedIdentity& operator=(const BorrowedIdentity&) = delete;

    /// False when the daemon may not become somebody else: read nothing then.
    [[nodiscard]] bool Holds() const { return holds_; }

private:
    bool KeepOwn();
    bool Take(const ProcMgr::OwnerIdentity& owner) const;
    bool GiveBack() const;

    uid_t ownUid_;
    gid_t ownGid_;
    std::vector<gid_t> ownGroups_;
    bool isBorrowed_ = false;
    bool holds_ = true;
};

}  // namespace Procmgrd

#endif
