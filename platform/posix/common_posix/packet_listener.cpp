#include "platform/posix/common_posix/packet_listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "platform/posix/common_posix/packet_socket.h"

namespace ProcMgr {

namespace {

constexpr int kBacklog = 128;
constexpr mode_t kRunDirMode = 0755;
constexpr mode_t kSocketMode = 0666;
constexpr mode_t kLockMode = 0600;

/// The errno of the call that just failed, and the sentence about it.
int Fail(const std::string& what, std::string& error) {
    const int number = errno;
    error = what + ": " + std::generic_category().message(number);
    return number;
}

int RemoveStaleSocket(const std::string& path, std::string& error) {
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        return 0;
    }
    if (!S_ISSOCK(status.st_mode)) {
        error = path + " is in the way and is not a socket";
        return EEXIST;
    }
    return ::unlink(path.c_str()) == 0 ? 0 : Fail("the old socket " + path + " cannot be removed", error);
}

}  // namespace

int PrepareRunDirectory(const std::string& folder, std::string& error) {
    if (::mkdir(folder.c_str(), kRunDirMode) != 0 && errno != EEXIST) {
        return Fail("the run directory " + folder + " cannot be made", error);
    }
    struct stat status = {};
    if (::stat(folder.c_str(), &status) != 0) {
        return Fail("the run directory " + folder + " cannot be read", error);
    }
    if (!S_ISDIR(status.st_mode)) {
        error = "the run directory " + folder + " is not a folder";
        return ENOTDIR;
    }
    const bool foreign = status.st_uid != 0 && status.st_uid != ::geteuid();
    if (foreign || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        error = "the run directory " + folder + " belongs to another user or is writable by others";
        return EPERM;
    }
    return 0;
}

PacketListener::~PacketListener() {
    if (!path_.empty()) {
        ::unlink(path_.c_str());
    }
}

int PacketListener::Open(const std::string& folder, const std::string& name, const std::string& who,
                         std::string& error) {
    const std::string base = folder + "/" + name;
    int result = PrepareRunDirectory(folder, error);
    if (result == 0) {
        result = TakeLock(base + ".lock", who, error);
    }
    return result == 0 ? Bind(base + ".sock", error) : result;
}

int PacketListener::TakeLock(const std::string& path, const std::string& who, std::string& error) {
    UniqueFd lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockMode));
    if (!lock) {
        return Fail("the lock file " + path + " cannot be opened", error);
    }
    if (::flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            return Fail("the lock " + path + " cannot be taken", error);
        }
        error = "another " + who + " is running here: it holds the lock " + path;
        return EADDRINUSE;
    }
    lock_ = std::move(lock);
    return 0;
}

int PacketListener::Bind(const std::string& path, std::string& error) {
    sockaddr_un address = {};
    if (!MakeSocketAddress(path, address)) {
        error = "the path " + path + " is too long for a socket";
        return ENAMETOOLONG;
    }
    if (const int result = RemoveStaleSocket(path, error)) {
        return result;
    }
    UniqueFd fd = MakePacketSocket();
    if (!fd || ::fcntl(fd.Get(), F_SETFL, O_NONBLOCK) != 0 ||
        ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return Fail("the socket " + path + " cannot be made", error);
    }
    path_ = path;
    if (::chmod(path.c_str(), kSocketMode) != 0 || ::listen(fd.Get(), kBacklog) != 0) {
        return Fail("the socket " + path + " cannot listen", error);
    }
    fd_ = std::move(fd);
    return 0;
}

}  // namespace ProcMgr
