#include "platform/posix/common_posix/access_rules.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <locale>
#include <sstream>
#include <system_error>

#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

namespace {

constexpr size_t kRuleFileMax = 1 << 20;
constexpr size_t kUserRecordMax = size_t{16} * 1024;
constexpr std::ptrdiff_t kUserWords = 3;          // allow uid 1000
constexpr uid_t kNoUid = static_cast<uid_t>(-1);  // the kernel's "leave as it is", never a user

std::vector<std::string> SplitWords(const std::string& line) {
    std::istringstream in(line.substr(0, line.find('#')));
    in.imbue(std::locale::classic());
    std::vector<std::string> words;
    std::string word;
    while (in >> word) {
        words.push_back(word);
    }
    return words;
}

bool ReadUid(const std::string& text, uid_t& uid) {
    uid_t number = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number == kNoUid) {
        return false;
    }
    uid = number;
    return true;
}

bool FindUser(const std::string& name, uid_t& uid) {
    if (name.find('\0') != std::string::npos) {
        return false;
    }
    std::vector<char> buffer(kUserRecordMax);
    passwd record = {};
    passwd* found = nullptr;
    if (::getpwnam_r(name.c_str(), &record, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return false;
    }
    uid = found->pw_uid;
    return true;
}

bool ReadAll(int fd, std::string& text) {
    char part[4096];
    ssize_t got = 0;
    while (text.size() <= kRuleFileMax && (got = ::read(fd, part, sizeof(part))) > 0) {
        text.append(part, static_cast<size_t>(got));
    }
    return got == 0;
}

const char* FindFileProblem(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return "is not a regular file";
    }
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        return "belongs to neither root nor this process's user";
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "is writable by others than its owner";
    }
    return status.st_size > static_cast<off_t>(kRuleFileMax) ? "is over 1 MiB" : nullptr;
}

}  // namespace

bool AccessRules::Load(const std::string& path, std::string& error) {
    // Non-blocking, so that a path that names a pipe cannot hold up the start.
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (!fd || ::fstat(fd.Get(), &status) != 0) {
        error = path + ": cannot be read: " + std::generic_category().message(errno);
        return false;
    }
    if (const char* problem = FindFileProblem(status)) {
        error = path + ": " + problem;
        return false;
    }
    std::string text;
    if (!ReadAll(fd.Get(), text)) {
        // A part of a rule may allow another user than the whole.
        error = path + ": cannot be read to its end";
        return false;
    }
    return Parse(text, path, error);
}

bool AccessRules::Parse(const std::string& text, const std::string& fileName, std::string& error) {
    std::vector<Range> ranges;
    std::istringstream in(text);
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) {
        if (const char* problem = ParseLine(line, ranges)) {
            error = fileName + ":" + std::to_string(number) + ": " + problem;
            return false;
        }
    }
    ranges_ = std::move(ranges);
    return true;
}

const char* AccessRules::ParseGrants(const std::vector<std::string>& words, Grants& grants) const {
    if (classes_.empty()) {
        grants = kEverything;
        return words.size() == static_cast<size_t>(kUserWords)
                   ? nullptr
                   : "a rule is 'allow uid <number>', 'allow uid <first>-<last>' or 'allow user <name>'";
    }
    if (words.size() <= static_cast<size_t>(kUserWords)) {
        return "a rule names a user ('uid <number>', 'uid <first>-<last>' or 'user <name>') and then what it grants";
    }
    for (auto word = words.begin() + kUserWords; word != words.end(); ++word) {
        const auto found = std::find(classes_.begin(), classes_.end(), *word);
        if (found == classes_.end()) {
            return "it grants something unknown";
        }
        grants |= Grants{1} << static_cast<unsigned int>(found - classes_.begin());
    }
    return nullptr;
}

const char* AccessRules::ParseLine(const std::string& line, std::vector<Range>& ranges) const {
    const std::vector<std::string> words = SplitWords(line);
    if (words.empty()) {
        return nullptr;
    }
    if (words[0] != "allow") {
        return "a rule begins with 'allow'";
    }
    Range range = {};
    if (const char* problem = ParseGrants(words, range.grants)) {
        return problem;
    }
    if (words[1] == "user") {
        if (!FindUser(words[2], range.first)) {
            return "there is no such user";
        }
        ranges.push_back({range.first, range.first, range.grants});
        return nullptr;
    }
    if (words[1] != "uid") {
        return "a rule is about 'uid' or 'user'";
    }
    const size_t dash = words[2].find('-');
    const std::string last = dash == std::string::npos ? words[2] : words[2].substr(dash + 1);
    if (!ReadUid(words[2].substr(0, dash), range.first) || !ReadUid(last, range.last)) {
        return "a user id is a number from 0 to 4294967294";
    }
    if (range.first > range.last) {
        return "the range ends before it begins";
    }
    ranges.push_back(range);
    return nullptr;
}

AccessRules::Grants AccessRules::GrantsOf(uid_t uid) const {
    if (uid == kNoUid) {
        return 0;
    }
    if (uid == 0 || uid == ::geteuid()) {
        return kEverything;
    }
    Grants grants = 0;
    for (const Range& range : ranges_) {
        grants |= range.first <= uid && uid <= range.last ? range.grants : 0;
    }
    return grants;
}

}  // namespace ProcMgr
