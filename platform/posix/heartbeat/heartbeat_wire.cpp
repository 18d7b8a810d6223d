#include "platform/posix/heartbeat/heartbeat_wire.h"

#include <sys/socket.h>

#include <cstring>

namespace ProcMgr::Posix {
namespace {

constexpr std::string_view kPrefix = "procmgr 1 beat ";
static_assert(kBeatMax == kPrefix.size() + kHeartBeatNameMax);

bool IsPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
           c == '.' || c == '@';
}

std::string FileName(std::string_view name) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string file;
    for (const char c : name) {
        // A leading dot would hide the file, and "." and ".." are no files at all.
        if (IsPlain(c) && !(file.empty() && c == '.')) {
            file += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            file += '%';
            file += kDigits[byte >> 4U];
            file += kDigits[byte & 0xfU];
        }
    }
    return file;
}

}  // namespace

std::string BeatText(std::string_view name) {
    return std::string(kPrefix).append(name);
}

std::string_view ReadBeat(std::string_view text) {
    if (text.size() > kBeatMax || text.substr(0, kPrefix.size()) != kPrefix) {
        return {};
    }
    return text.substr(kPrefix.size());
}

std::string HeartBeatDirectory(const std::string& runDirectory) {
    return runDirectory + "/heartbeat";
}

std::string HeartBeatPath(const std::string& runDirectory, std::string_view watcher) {
    return HeartBeatDirectory(runDirectory) + "/" + FileName(watcher) + ".sock";
}

bool MakeAddress(const std::string& path, sockaddr_un& address) {
    if (path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

}  // namespace ProcMgr::Posix
