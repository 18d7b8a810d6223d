#include "daemons/procmgrd/launch/process_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <functional>
#include <memory>
#include <sstream>
#include <string_view>

namespace ProcMgr {
namespace {

constexpr size_t kMaxEnvironmentBytes = size_t{1024} * 1024;
constexpr int kMaxDepth = 4096;
/// Position of each field behind the name of the program, which may itself hold blanks and brackets.
enum StatField : size_t { STATE = 0, PARENT = 1, GROUP = 2, SESSION = 3, START_TIME = 19, FIELD_COUNT = 20 };

std::string PathOf(const std::string& procRoot, pid_t pid, const char* file) {
    return procRoot + "/" + std::to_string(pid) + file;
}

/// The content, up to the limit; empty when it cannot be read.
std::string ReadWhole(const std::string& path, size_t limit) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string content;
    std::array<char, 4096> buffer{};
    while (file.IsOpen() && content.size() < limit) {
        const ssize_t length = ::read(file.Get(), buffer.data(), buffer.size());
        if (length <= 0) {
            break;
        }
        content.append(buffer.data(), static_cast<size_t>(length));
    }
    return content;
}

template <typename Number>
bool ParseNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

bool SplitFields(std::string_view text, std::array<std::string_view, FIELD_COUNT>& fields) {
    for (std::string_view& field : fields) {
        const size_t begin = text.find_first_not_of(' ');
        if (begin == std::string_view::npos) {
            return false;
        }
        text.remove_prefix(begin);
        field = text.substr(0, text.find_first_of(" \n"));
        text.remove_prefix(field.size());
    }
    return true;
}

std::optional<ProcessStat> ParseStat(pid_t pid, std::string_view record) {
    const size_t nameEnd = record.rfind(')');
    std::array<std::string_view, FIELD_COUNT> fields;
    if (nameEnd == std::string_view::npos || !SplitFields(record.substr(nameEnd + 1), fields)) {
        return std::nullopt;
    }
    ProcessStat stat;
    stat.id.pid = pid;
    stat.state = fields[STATE].front();
    const bool good = ParseNumber(fields[PARENT], stat.parent) && ParseNumber(fields[GROUP], stat.group) &&
                      ParseNumber(fields[SESSION], stat.session) && ParseNumber(fields[START_TIME], stat.id.startTime);
    return good ? std::optional<ProcessStat>(stat) : std::nullopt;
}

/// The numbers that are names of entries in a folder.
std::vector<pid_t> NumbersIn(const std::string& folder) {
    const auto close = [](DIR* dir) { ::closedir(dir); };
    const std::unique_ptr<DIR, decltype(close)> dir(::opendir(folder.c_str()), close);
    std::vector<pid_t> numbers;
    for (const dirent* entry = dir ? ::readdir(dir.get()) : nullptr; entry != nullptr; entry = ::readdir(dir.get())) {
        pid_t number = 0;
        if (ParseNumber(std::string_view(entry->d_name), number)) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

/// What an application inherits to its children.
struct Mark {
    std::optional<std::string> appName;
    std::optional<std::string> owner;
    std::optional<std::string> runDir;
};

Mark ReadMark(pid_t pid, const std::string& procRoot) {
    Mark mark;
    const std::pair<std::string_view, std::optional<std::string>*> variables[] = {
        {"PROCMGR_APP_NAME=", &mark.appName}, {"PROCMGR_OWNER=", &mark.owner}, {"PROCMGR_RUN_DIR=", &mark.runDir}};
    const std::string environment = ReadWhole(PathOf(procRoot, pid, "/environ"), kMaxEnvironmentBytes);
    std::string_view rest = environment;
    while (!rest.empty()) {
        const std::string_view entry = rest.substr(0, rest.find('\0'));
        for (const auto& [prefix, value] : variables) {
            if (entry.substr(0, prefix.size()) == prefix) {
                *value = std::string(entry.substr(prefix.size()));
            }
        }
        rest.remove_prefix(std::min(rest.size(), entry.size() + 1));
    }
    return mark;
}

/// Without an owner's name in its environment a process may be any owner's.
bool IsMarkOf(const Mark& mark, const TreeRoot& root) {
    return !root.appName.empty() && mark.appName == root.appName && mark.runDir == root.runDir &&
           mark.owner.value_or(root.owner) == root.owner;
}

/// This process and its ancestors: whatever /proc says, they are never part of a tree.
std::set<pid_t> OwnLine(const ProcessTable& table) {
    std::set<pid_t> line = {::getpid(), 1};
    for (auto at = table.find(::getpid()); at != table.end() && line.insert(at->second.parent).second;) {
        at = table.find(at->second.parent);
    }
    return line;
}

/// Where a process that lost its way up may be found.
using LostFilter = std::function<bool(const ProcessStat&)>;

class TreeSearch {
public:
    TreeSearch(const ProcessTable& table, const std::string& procRoot, LostFilter mayBeLost)
        : table_(table), procRoot_(procRoot), mayBeLost_(std::move(mayBeLost)), ownLine_(OwnLine(table)) {
        for (const auto& [pid, stat] : table) {
            children_[stat.parent].push_back(pid);
        }
    }

    std::vector<ProcessId> Find(const TreeRoot& root) {
        std::set<pid_t> found;
        const auto leader = table_.find(root.leader.pid);
        const bool isThere = leader != table_.end() && leader->second.id == root.leader;
        const bool isSomebodyElse = leader != table_.end() && !isThere;
        if (isThere) {
            AddWithDescendants(root.leader.pid, found);
        }
        for (const auto& [pid, stat] : table_) {
            const bool isOlder = stat.id.startTime < root.leader.startTime;
            if (!isOlder && found.count(pid) == 0 && IsMember(stat, root, isThere, isSomebodyElse)) {
                AddWithDescendants(pid, found);
            }
        }
        return Living(found, root.leader.pid);
    }

private:
    bool IsMember(const ProcessStat& stat, const TreeRoot& root, bool isThere, bool isSomebodyElse) {
        const bool sharesGroup = stat.session == root.leader.pid || stat.group == root.leader.pid;
        if (sharesGroup && isThere) {
            return true;
        }
        if (sharesGroup && isSomebodyElse) {
            return false;
        }
        return (sharesGroup || mayBeLost_(stat)) && IsMarkOf(MarkOf(stat.id.pid), root);
    }

    const Mark& MarkOf(pid_t pid) {
        const auto known = marks_.find(pid);
        return known != marks_.end() ? known->second : marks_.emplace(pid, ReadMark(pid, procRoot_)).first->second;
    }

    void AddWithDescendants(pid_t first, std::set<pid_t>& found) const {
        std::vector<pid_t> open = {first};
        while (!open.empty()) {
            const pid_t pid = open.back();
            open.pop_back();
            const auto children = children_.find(pid);
            if (ownLine_.count(pid) == 0 && found.insert(pid).second && children != children_.end()) {
                open.insert(open.end(), children->second.begin(), children->second.end());
            }
        }
    }

    std::vector<ProcessId> Living(const std::set<pid_t>& found, pid_t leader) const {
        std::vector<ProcessId> living;
        for (const pid_t pid : found) {
            const ProcessStat& stat = table_.at(pid);
            if (!stat.HasEnded()) {
                living.insert(pid == leader ? living.begin() : living.end(), stat.id);
            }
        }
        return living;
    }

    const ProcessTable& table_;
    const std::string& procRoot_;
    const LostFilter mayBeLost_;
    const std::set<pid_t> ownLine_;
    std::map<pid_t, std::vector<pid_t>> children_;
    std::map<pid_t, Mark> marks_;
};

std::vector<std::vector<ProcessId>> FindAll(TreeSearch search, const std::vector<TreeRoot>& roots) {
    std::vector<std::vector<ProcessId>> trees;
    trees.reserve(roots.size());
    for (const TreeRoot& root : roots) {
        trees.push_back(search.Find(root));
    }
    return trees;
}

/// True when every child of this process is a leader: then nobody has lost his way up.
bool HasOnlyLeaders(const std::set<pid_t>& leaders) {
    const auto children = ChildrenOf(::getpid());
    return children && std::all_of(children->begin(), children->end(),
                                   [&leaders](pid_t child) { return leaders.count(child) != 0; });
}

/// The tree by parent links alone.
std::vector<ProcessId> WalkTree(const ProcessId& leader) {
    std::vector<ProcessId> tree;
    std::vector<pid_t> open = {leader.pid};
    std::set<pid_t> seen;
    while (!open.empty()) {
        const pid_t pid = open.back();
        open.pop_back();
        const auto stat = ReadProcessStat(pid);
        const bool isOurs = stat && (pid == leader.pid ? stat->id == leader : stat->id.startTime >= leader.startTime);
        if (!isOurs || !seen.insert(pid).second) {
            continue;
        }
        if (!stat->HasEnded()) {
            tree.push_back(stat->id);
        }
        const auto children = ChildrenOf(pid).value_or(std::vector<pid_t>());
        open.insert(open.end(), children.begin(), children.end());
    }
    return tree;
}

std::vector<std::vector<ProcessId>> WalkTrees(const std::vector<TreeRoot>& roots) {
    std::vector<std::vector<ProcessId>> trees;
    trees.reserve(roots.size());
    for (const TreeRoot& root : roots) {
        trees.push_back(WalkTree(root.leader));
    }
    return trees;
}

/// The links are asked about twice: a process that ended during the walk has handed its children to us.
std::vector<std::vector<ProcessId>> FindOwnTrees(const std::vector<TreeRoot>& roots, const std::set<pid_t>& leaders) {
    if (HasOnlyLeaders(leaders)) {
        auto walked = WalkTrees(roots);
        if (HasOnlyLeaders(leaders)) {
            return walked;
        }
    }
    const std::string procRoot = kProcRoot;
    const ProcessTable table = ReadProcessTable(procRoot);
    const auto isAdopted = [&leaders](const ProcessStat& stat) {
        return stat.parent == ::getpid() && leaders.count(stat.id.pid) == 0;
    };
    return FindAll(TreeSearch(table, procRoot, isAdopted), roots);
}

int OpenPidFd(pid_t pid) {
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

}  // namespace

std::optional<std::vector<pid_t>> ChildrenOf(pid_t pid) {
    const std::string tasks = PathOf(kProcRoot, pid, "/task");
    std::vector<pid_t> children;
    for (const pid_t task : NumbersIn(tasks)) {
        const std::string path = tasks + "/" + std::to_string(task) + "/children";
        if (task == pid && ::access(path.c_str(), F_OK) != 0 && ::access(tasks.c_str(), F_OK) == 0) {
            return std::nullopt;
        }
        std::istringstream numbers(ReadWhole(path, kMaxEnvironmentBytes));
        for (pid_t child = 0; numbers >> child;) {
            children.push_back(child);
        }
    }
    return children;
}

std::optional<ProcessStat> ReadProcessStat(pid_t pid, const std::string& procRoot) {
    return ParseStat(pid, ReadWhole(PathOf(procRoot, pid, "/stat"), 4096));
}

bool IsAlive(const ProcessId& process, const std::string& procRoot) {
    const auto stat = ReadProcessStat(process.pid, procRoot);
    return stat && stat->id == process && !stat->HasEnded();
}

ProcessTable ReadProcessTable(const std::string& procRoot) {
    ProcessTable table;
    for (const pid_t pid : NumbersIn(procRoot)) {
        if (const auto stat = ReadProcessStat(pid, procRoot)) {
            table.emplace(pid, *stat);
        }
    }
    return table;
}

std::vector<std::vector<ProcessId>> FindTrees(const ProcessTable& table, const std::vector<TreeRoot>& roots,
                                              const std::string& procRoot) {
    return FindAll(TreeSearch(table, procRoot, [](const ProcessStat&) { return true; }), roots);
}

UniqueFd OpenProcess(const ProcessId& process, const std::string& procRoot) {
    UniqueFd pidfd(OpenPidFd(process.pid));
    const auto stat = ReadProcessStat(process.pid, procRoot);
    if (!stat || !(stat->id == process)) {
        pidfd.Reset();
    }
    return pidfd;
}

bool SignalProcess(const ProcessId& process, int signalNumber, const std::string& procRoot) {
    const UniqueFd pidfd = OpenProcess(process, procRoot);
    return pidfd.IsOpen() && ::syscall(SYS_pidfd_send_signal, pidfd.Get(), signalNumber, nullptr, 0) == 0;
}

std::set<ProcessId> SignalTrees(const std::vector<TreeRoot>& roots, int signalNumber, const std::set<pid_t>& leaders) {
    std::set<ProcessId> tried;
    std::set<ProcessId> signalled;
    const auto signalOnce = [&](const ProcessId& process) {
        const bool isNew = tried.insert(process).second;
        if (isNew && SignalProcess(process, signalNumber)) {
            signalled.insert(process);
        }
    };
    const int rounds = signalNumber == SIGKILL ? kSignalRounds : 1;
    for (int round = 0; round < rounds; ++round) {
        const size_t before = tried.size();
        for (const auto& tree : FindOwnTrees(roots, leaders)) {
            std::for_each(tree.begin(), tree.end(), signalOnce);
        }
        if (tried.size() == before) {
            break;
        }
    }
    return signalled;
}

std::set<ProcessId> SignalTree(const TreeRoot& root, int signalNumber, const std::set<pid_t>& leaders) {
    return SignalTrees({root}, signalNumber, leaders);
}

bool BelongsTo(pid_t pid, const ProcessId& leader, const std::string& procRoot) {
    const auto root = ReadProcessStat(leader.pid, procRoot);
    if (!root || !(root->id == leader)) {
        return false;
    }
    uint64_t youngest = UINT64_MAX;
    for (int depth = 0; depth < kMaxDepth && pid > 1; ++depth) {
        const auto stat = ReadProcessStat(pid, procRoot);
        const bool isAncestor = stat && stat->id.startTime <= youngest && stat->id.startTime >= leader.startTime;
        if (!isAncestor) {
            return false;
        }
        if (pid == leader.pid || stat->session == leader.pid || stat->group == leader.pid) {
            return true;
        }
        youngest = stat->id.startTime;
        pid = stat->parent;
    }
    return false;
}

}  // namespace ProcMgr
