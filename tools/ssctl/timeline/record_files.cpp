#include "tools/ssctl/timeline/record_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/posix/common_posix/percent_text.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace Ssctl {

namespace {

namespace fs = std::filesystem;
using ProcMgr::Timeline::RecordFault;
using ProcMgr::Timeline::RecordPart;

/// In the order in which they were written.
constexpr std::array<const char*, 3> kParts = {"boot", "recent.1", "recent"};

/// Far more than a process manager keeps.
constexpr size_t kMostBytes = size_t{64} << 20U;

constexpr const char* kNoRecord =
    "procmgrd keeps it while an owner is connected: is this the run directory of one that runs or ran? Choose another"
    " with --run-dir or --record.";

ReadRecordResult Fail(Outcome outcome) {
    return {{}, std::move(outcome)};
}

Outcome ComplainOfFile(const std::string& path, int error) {
    const std::string problem = "can't read " + path + ": " + std::generic_category().message(error);
    if (error == EACCES || error == EPERM) {
        return Complain(Fault::DENIED, problem, "Root, the user of procmgrd and the group of the owner may.");
    }
    return error == ENOENT ? Complain(Fault::NO_SERVICE, problem, kNoRecord)
                           : Complain(Fault::BAD_ANSWER, problem, "Is it a file of a record?");
}

Outcome ComplainOfText(const std::string& path, const RecordFault& fault) {
    return Complain(Fault::BAD_ANSWER, path + ":" + std::to_string(fault.line) + ": " + fault.text,
                    "It is no record of procmgrd, of another version, or damaged: copy it once more.");
}

/// 0, or errno. A pipe is no file that could be read to its end.
int ReadWhole(const std::string& path, std::string& content) {
    const ProcMgr::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info {};
    if (!file.IsOpen() || fstat(file.Get(), &info) != 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode)) {
        return EINVAL;
    }
    std::array<char, 65536> buffer{};
    for (ssize_t got = 0; (got = read(file.Get(), buffer.data(), buffer.size())) != 0;) {
        if (got < 0) {
            return errno;
        }
        if (content.size() > kMostBytes) {
            return EFBIG;
        }
        content.append(buffer.data(), static_cast<size_t>(got));
    }
    return 0;
}

/// Events that were read before, while the files changed their places, are left out.
void Join(RecordPart part, TimelineRecord& record) {
    const auto isOld = [&record](const ProcMgr::Timeline::Event& event) {
        return !record.events.empty() &&
               (event.serial <= record.events.back().serial || event.monotonicUs < record.events.back().monotonicUs);
    };
    auto first = std::find_if_not(part.events.begin(), part.events.end(), isOld);
    if (!record.events.empty() && first != part.events.end()) {
        record.missing += first->serial - record.events.back().serial - 1;
    }
    std::move(first, part.events.end(), std::back_inserter(record.events));
    record.isTorn = part.isTorn;
}

/// False, with the complaint in `result`, when it can't be read.
bool AddFile(const std::string& path, ReadRecordResult& result) {
    std::string content;
    const int error = ReadWhole(path, content);
    if (error != 0) {
        result = Fail(ComplainOfFile(path, error));
        return false;
    }
    RecordPart part;
    RecordFault fault;
    if (!ProcMgr::Timeline::ReadPart(content, part, fault)) {
        result = Fail(ComplainOfText(path, fault));
        return false;
    }
    Join(std::move(part), result.record);
    return true;
}

bool Exists(const std::string& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

bool IsRecordFolder(const std::string& path) {
    return std::any_of(kParts.begin(), kParts.end(), [&](const char* name) { return Exists(path + "/" + name); });
}

ReadRecordResult ReadFolder(const std::string& path) {
    ReadRecordResult result;
    for (const char* name : kParts) {
        const std::string file = path + "/" + name;
        if (Exists(file) && !AddFile(file, result)) {
            break;
        }
    }
    return result;
}

struct OwnerFolder {
    std::string owner;
    std::string path;
};

std::vector<OwnerFolder> FindOwners(const std::string& path) {
    std::vector<OwnerFolder> owners;
    std::error_code ignored;
    for (fs::directory_iterator at(path, ignored), end; !ignored && at != end; at.increment(ignored)) {
        if (IsRecordFolder(at->path())) {
            owners.push_back({ProcMgr::PercentDecode(at->path().filename().string()), at->path()});
        }
    }
    std::sort(owners.begin(), owners.end(),
              [](const OwnerFolder& left, const OwnerFolder& right) { return left.owner < right.owner; });
    return owners;
}

std::string NameThem(const std::vector<OwnerFolder>& owners) {
    std::string names;
    for (const OwnerFolder& owner : owners) {
        names += (names.empty() ? "" : ", ") + owner.owner;
    }
    return names;
}

ReadRecordResult ReadOfOwner(const std::string& path, const std::string& owner) {
    const std::vector<OwnerFolder> owners = FindOwners(path);
    if (owners.empty()) {
        return Fail(Complain(Fault::NO_SERVICE, "there is no record of an owner in " + path, kNoRecord));
    }
    if (owner.empty() && owners.size() > 1) {
        return Fail(Complain(Fault::USAGE, path + " has the records of several owners",
                             "Name one with --owner: " + NameThem(owners) + "."));
    }
    const auto found =
        owner.empty() ? owners.begin() : std::find_if(owners.begin(), owners.end(), [&](const OwnerFolder& candidate) {
            return candidate.owner == owner;
        });
    if (found == owners.end()) {
        return Fail(Complain(Fault::NO_SERVICE, "there is no record of the owner '" + owner + "' in " + path,
                             "There are records of " + NameThem(owners) + "."));
    }
    return ReadFolder(found->path);
}

}  // namespace

ReadRecordResult ReadTimelineRecord(const std::string& path, const std::string& owner) {
    std::error_code error;
    if (fs::is_directory(path, error)) {
        return IsRecordFolder(path) ? ReadFolder(path) : ReadOfOwner(path, owner);
    }
    ReadRecordResult result;
    static_cast<void>(AddFile(path, result));
    return result;
}

}  // namespace Ssctl
