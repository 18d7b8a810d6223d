#include "daemons/procmgrd/launch/launch_spec.h"

#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/posix/manifest/manifest_loader.h"

namespace ProcMgr {
namespace {

constexpr char kValueSeparator = '#';
constexpr size_t kPasswordBufferBytes = 16384;

using Environment = std::vector<std::pair<std::string, std::string>>;

std::string Join(const std::vector<std::string>& values) {
    std::string joined;
    for (size_t i = 0; i < values.size(); ++i) {
        joined += (i == 0 ? "" : std::string(1, kValueSeparator)) + values[i];
    }
    return joined;
}

/// A minus sign cannot stand in the name of a variable.
std::string ParameterVariable(int32_t index) {
    const std::string digits = std::to_string(index < 0 ? -int64_t{index} : int64_t{index});
    return (index < 0 ? "PROCMGR_PARA_NEG" : "PROCMGR_PARA_") + digits;
}

/// Twice the same address, under our name and under the one that unmodified programs look for.
void AddAddress(const LaunchRequest& request, Environment& own) {
    if (!request.appSocketPath.empty()) {
        own.emplace_back("PROCMGR_APP_SOCKET", request.appSocketPath);
        own.emplace_back("NOTIFY_SOCKET", request.appSocketPath);
    }
}

/// Programs that know WATCHDOG_USEC beat at about half of that time.
void AddHeartBeat(const LaunchRequest& request, Environment& own) {
    constexpr uint64_t kMicrosecondsPerMs = 1000;
    if (request.heartBeatPeriodMs != 0) {
        const uint64_t lostAfter = kMicrosecondsPerMs * request.heartBeatPeriodMs * request.heartBeatMisses;
        own.emplace_back("PROCMGR_HEARTBEAT_PERIOD_MS", std::to_string(request.heartBeatPeriodMs));
        own.emplace_back("WATCHDOG_USEC", std::to_string(lostAfter));
    }
}

Environment OwnVariables(const std::string& appName, const ApplicationManifest& manifest,
                         const LaunchRequest& request) {
    Environment own = {{"PROC_NAME", appName}, {"PROCMGR_APP_NAME", appName}};
    for (const auto& [index, values] : request.dynamicPara) {
        own.emplace_back(ParameterVariable(index), Join(values));
    }
    own.emplace_back("PROCMGR_RUN_DIR", request.runDir);
    if (!request.ownerName.empty()) {
        own.emplace_back("PROCMGR_OWNER", request.ownerName);
    }
    if (TellsAboutItself(manifest)) {
        AddAddress(request, own);
    }
    if (manifest.GetHeartBeatSwitch()) {
        AddHeartBeat(request, own);
    }
    return own;
}

/// By these we find an application and it finds us; a manifest cannot give them another meaning, whether they are set
/// or not.
bool IsReserved(const std::string& name) {
    constexpr std::array<const char*, 4> kNames = {"PROCMGR_APP_NAME", "PROCMGR_RUN_DIR", "PROCMGR_OWNER",
                                                   "PROCMGR_APP_SOCKET"};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end() || name.rfind("PROCMGR_PARA_", 0) == 0;
}

/// Ours, then the manifest's. Of ours, the manifest may replace the name of the process only.
std::vector<std::string> MergeEnvironment(const Environment& own, const std::string& pidVariable,
                                          const std::map<std::string, std::string>& manifest,
                                          std::vector<LaunchWarning>& warnings) {
    constexpr const char* kReplaceable = "PROC_NAME";
    std::vector<std::string> merged;
    std::set<std::string> fixed = {pidVariable};
    for (const auto& [name, value] : own) {
        if (name == kReplaceable && manifest.count(name) != 0) {
            continue;
        }
        merged.push_back(name + "=" + value);
        fixed.insert(name);
    }
    for (const auto& [name, value] : manifest) {
        if (IsReserved(name) || fixed.count(name) != 0) {
            warnings.push_back({name + " of env_argv", EPERM});
            continue;
        }
        merged.push_back(name + "=" + value);
    }
    return merged;
}

/// Executable and argument vector. Returns why that is impossible, or nothing.
std::string FillCommand(const ApplicationManifest& manifest, const LaunchRequest& request, LaunchSpec& spec) {
    const bool isSo = manifest.GetIsSo();
    const std::string bound = manifest.GetProcessBindPath();
    const std::string host = bound.empty() ? request.soHostPath : bound;
    spec.executable = isSo ? host : manifest.GetBinPath();
    if (spec.executable.empty()) {
        return isSo ? "there is no process_bind_path and no host for shared objects" : "bin_path is empty";
    }
    spec.argv = {spec.executable};
    if (isSo && SharedObjectFile(manifest).empty()) {
        return "is_so is set, but so_path and so_name are empty";
    }
    if (isSo) {
        spec.argv.push_back(SharedObjectFile(manifest));
    }
    const std::vector<std::string> own = manifest.GetArguments();
    const std::vector<std::string>& arguments = request.arguments.empty() ? own : request.arguments;
    spec.argv.insert(spec.argv.end(), arguments.begin(), arguments.end());
    return {};
}

bool HasNul(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

/// What cannot be handed to a program without changing it.
std::string CheckTexts(const ApplicationManifest& manifest, const LaunchSpec& spec) {
    if (std::any_of(spec.argv.begin(), spec.argv.end(), HasNul)) {
        return "an argument holds a NUL byte";
    }
    if (std::any_of(spec.environment.begin(), spec.environment.end(), HasNul)) {
        return "its environment holds a NUL byte";
    }
    for (const auto& [name, value] : manifest.GetEnvArgv()) {
        if (name.empty() || name.find('=') != std::string::npos) {
            return "env_argv: \"" + name + "\" cannot be the name of a variable";
        }
    }
    return {};
}

std::vector<uint32_t> SystemGroupsOf(uint32_t uid, uint32_t gid) {
    std::vector<char> buffer(kPasswordBufferBytes);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return {gid};
    }
    std::vector<gid_t> groups(64);
    int count = static_cast<int>(groups.size());
    while (::getgrouplist(found->pw_name, gid, groups.data(), &count) < 0) {
        groups.resize(std::max(groups.size() * 2, static_cast<size_t>(count)));
        count = static_cast<int>(groups.size());
    }
    groups.resize(static_cast<size_t>(count));
    return {groups.begin(), groups.end()};
}

std::string OwnerText(const OwnerIdentity& owner) {
    return "the owner with uid " + std::to_string(owner.uid) + " and gid " + std::to_string(owner.gid);
}

/// The identity under an owner that is not root. Returns why it must not be, or nothing.
std::string FillOwnIdentity(const ApplicationManifest& manifest, const OwnerIdentity& owner, LaunchSpec& spec) {
    const uint32_t uid = manifest.GetUid();
    const uint32_t gid = manifest.GetGid();
    const bool uidUnnamed = uid == 0 && spec.mustHold.count("uid") == 0;
    const bool gidUnnamed = gid == 0 && spec.mustHold.count("gid") == 0;
    if (!uidUnnamed && uid != owner.uid) {
        return OwnerText(owner) + " may run it only under its own uid, not under uid " + std::to_string(uid);
    }
    const bool isOwnGroup =
        gid == owner.gid || std::find(owner.groups.begin(), owner.groups.end(), gid) != owner.groups.end();
    if (!gidUnnamed && !isOwnGroup) {
        return OwnerText(owner) + " may run it only under a gid of its own, not under gid " + std::to_string(gid);
    }
    spec.uid = owner.uid;
    spec.gid = gidUnnamed ? owner.gid : gid;
    spec.groups = owner.groups;
    return {};
}

std::string FillIdentity(const ApplicationManifest& manifest, const LaunchRequest& request, LaunchSpec& spec) {
    spec.ownerIsRoot = request.owner.uid == 0;
    if (!spec.ownerIsRoot) {
        return FillOwnIdentity(manifest, request.owner, spec);
    }
    spec.uid = manifest.GetUid();
    spec.gid = manifest.GetGid();
    spec.groups = request.groupsOf ? request.groupsOf(spec.uid, spec.gid) : SystemGroupsOf(spec.uid, spec.gid);
    return {};
}

struct SchedulingClass {
    const char* name;
    int policy;
    bool isRealTime;
};

constexpr SchedulingClass kSchedulingClasses[] = {
    {"fifo", SCHED_FIFO, true},    {"rr", SCHED_RR, true},      {"other", SCHED_OTHER, false},
    {"batch", SCHED_BATCH, false}, {"idle", SCHED_IDLE, false},
};

const SchedulingClass* FindSchedulingClass(const std::string& name) {
    const auto found = std::find_if(std::begin(kSchedulingClasses), std::end(kSchedulingClasses),
                                    [&name](const auto& row) { return ::strcasecmp(row.name, name.c_str()) == 0; });
    return found == std::end(kSchedulingClasses) ? nullptr : found;
}

bool ParsePriority(const std::string& text, bool isRealTime, int& priority) {
    if (text.empty()) {
        priority = isRealTime ? 1 : 0;
        return true;
    }
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, priority);
    const bool inRange = isRealTime ? priority >= 1 && priority <= 99 : priority == 0;
    return error == std::errc() && last == end && inRange;
}

/// Class and priority, or the key that makes no sense; a priority without a class says nothing.
const char* FillScheduling(const ApplicationManifest& manifest, LaunchSpec& spec) {
    const std::string name = manifest.GetSetRtType();
    if (name.empty()) {
        return manifest.GetSetRtPrio().empty() ? nullptr : "set_rt_type";
    }
    const SchedulingClass* row = FindSchedulingClass(name);
    if (row == nullptr) {
        return "set_rt_type";
    }
    int priority = 0;
    if (!ParsePriority(manifest.GetSetRtPrio(), row->isRealTime, priority)) {
        return "set_rt_prio";
    }
    spec.schedulingClass = row->policy;
    spec.schedulingPriority = priority;
    return nullptr;
}

std::string FillResources(const ApplicationManifest& manifest, LaunchSpec& spec) {
    spec.coreAffinity = manifest.GetCoreAffinity();
    spec.resourceGroup = manifest.GetResGroupName();
    const char* const wrong = FillScheduling(manifest, spec);
    if (wrong == nullptr) {
        return {};
    }
    if (spec.mustHold.count(wrong) != 0) {
        return std::string(wrong) + " must hold, but set_rt_type \"" + manifest.GetSetRtType() +
               "\" with set_rt_prio \"" + manifest.GetSetRtPrio() + "\" is no class and priority";
    }
    spec.warnings.push_back({wrong, EINVAL});
    return {};
}

std::string Fill(const ApplicationManifest& manifest, const LaunchRequest& request, LaunchSpec& spec) {
    spec.mustHold = manifest.GetMustHold();
    spec.outputFd = request.outputFd;
    std::string refusal = FillCommand(manifest, request, spec);
    if (refusal.empty()) {
        const bool isWatched = manifest.GetHeartBeatSwitch() && request.heartBeatPeriodMs != 0;
        spec.pidVariable = isWatched ? "WATCHDOG_PID" : "";
        spec.environment = MergeEnvironment(OwnVariables(spec.appName, manifest, request), spec.pidVariable,
                                            manifest.GetEnvArgv(), spec.warnings);
        refusal = CheckTexts(manifest, spec);
    }
    if (refusal.empty()) {
        refusal = FillIdentity(manifest, request, spec);
    }
    return refusal.empty() ? FillResources(manifest, spec) : refusal;
}

}  // namespace

std::string DescribeWarning(const std::string& appName, const LaunchWarning& warning) {
    return "Application " + appName + ": " + warning.attribute +
           " was not applied: " + std::generic_category().message(warning.error);
}

bool IsSelfReporting(const ApplicationManifest& manifest) {
    return manifest.GetIsReporting() || manifest.GetIsRosNode();
}

bool TellsAboutItself(const ApplicationManifest& manifest) {
    return IsSelfReporting(manifest) || manifest.GetHeartBeatSwitch();
}

bool BuildLaunchSpec(const ApplicationManifest& manifest, const LaunchRequest& request, LaunchSpec& spec,
                     std::string& refusal) {
    LaunchSpec built;
    built.appName = request.instanceName.empty() ? manifest.GetAppName() : request.instanceName;
    const std::string reason = Fill(manifest, request, built);
    if (!reason.empty()) {
        refusal = "Application " + built.appName + " is not started: " + reason;
        return false;
    }
    spec = std::move(built);
    return true;
}

std::string FindSoHost() {
    const char* const named = std::getenv("PROCMGR_SO_HOST");
    if (named != nullptr && named[0] != '\0') {
        return named;
    }
    std::array<char, 4096> buffer{};
    const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    const std::string self(buffer.data(), length < 0 ? 0 : static_cast<size_t>(length));
    return self.substr(0, self.rfind('/') + 1) + "procmgr-so-host";
}

}  // namespace ProcMgr
