#include "platform/posix/tunor/tunor_listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "platform/posix/tunor/tunor_socket.h"

namespace ProcMgr {

namespace {

constexpr int kBacklog = 128;
constexpr mode_t kRunDirMode = 0755;
constexpr mode_t kSocketMode = 0666;
constexpr mode_t kLockMode = 0600;

std::string Reason(const std::string& what) {
    return what + ": " + std::generic_category().message(errno);
}

/// In a folder that strangers may write, the socket could be taken away and replaced.
bool CheckRunDirectory(const std::string& runDir, std::string& error) {
    if (::mkdir(runDir.c_str(), kRunDirMode) != 0 && errno != EEXIST) {
        error = Reason("the run directory " + runDir + " cannot be made");
        return false;
    }
    struct stat status = {};
    if (::stat(runDir.c_str(), &status) != 0) {
        error = Reason("the run directory " + runDir + " cannot be read");
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        error = "the run directory " + runDir + " is not a folder";
        return false;
    }
    const bool foreign = status.st_uid != 0 && status.st_uid != ::geteuid();
    const bool open = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0;
    if (foreign || open) {
        error = "the run directory " + runDir + " belongs to another user or is writable by others";
        return false;
    }
    return true;
}

bool RemoveStaleSocket(const std::string& path, std::string& error) {
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        return true;
    }
    if (!S_ISSOCK(status.st_mode)) {
        error = path + " is in the way and is not a socket";
        return false;
    }
    if (::unlink(path.c_str()) != 0) {
        error = Reason("the old socket " + path + " cannot be removed");
        return false;
    }
    return true;
}

}  // namespace

TunorListener::~TunorListener() {
    if (!path_.empty()) {
        ::unlink(path_.c_str());
    }
}

bool TunorListener::Open(const std::string& runDir, const std::string& peerName, std::string& error) {
    if (!IsPeerName(peerName)) {
        error = "the peer's name is empty, too long or holds a '/' or a control character";
        return false;
    }
    const std::string base = runDir + "/" + peerName;
    return CheckRunDirectory(runDir, error) && TakeLock(base + ".lock", error) && Bind(base + ".sock", error);
}

bool TunorListener::TakeLock(const std::string& path, std::string& error) {
    UniqueFd lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockMode));
    if (!lock) {
        error = Reason("the lock file " + path + " cannot be opened");
        return false;
    }
    if (::flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        error = errno == EWOULDBLOCK ? "another process manager is running here: it holds the lock " + path
                                     : Reason("the lock " + path + " cannot be taken");
        return false;
    }
    lock_ = std::move(lock);
    return true;
}

bool TunorListener::Bind(const std::string& path, std::string& error) {
    sockaddr_un address = {};
    if (!MakeSocketAddress(path, address)) {
        error = "the path " + path + " is too long for a socket";
        return false;
    }
    if (!RemoveStaleSocket(path, error)) {
        return false;
    }
    UniqueFd fd = MakePipeSocket();
    if (!fd || ::fcntl(fd.Get(), F_SETFL, O_NONBLOCK) != 0 ||
        ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        error = Reason("the socket " + path + " cannot be made");
        return false;
    }
    path_ = path;
    if (::chmod(path.c_str(), kSocketMode) != 0 || ::listen(fd.Get(), kBacklog) != 0) {
        error = Reason("the socket " + path + " cannot listen");
        return false;
    }
    fd_ = std::move(fd);
    return true;
}

}  // namespace ProcMgr
