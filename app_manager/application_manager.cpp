#include "app_manager/application_manager.h"

#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <system_error>
#include <utility>

#include "app_manager/change_results.h"
#include "app_manager/effective_wait.h"
#include "app_manager/restart_plan.h"
#include "app_manager/start_plan.h"
#include "app_manager/term_plan.h"
#include "common/enumeration_names.h"
#include "common/grp_owner_log.h"
#include "common/name_constants.h"
#include "platform/include/parse_and_depend.h"
#include "pm_agent/procmgr_agent.h"

namespace ProcMgr {

namespace {

constexpr GrpOwnerLogLevel kInfo = GrpOwnerLogLevel::GRP_OWNER_LOG_INFO;
constexpr GrpOwnerLogLevel kWarn = GrpOwnerLogLevel::GRP_OWNER_LOG_WARN;
constexpr GrpOwnerLogLevel kError = GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR;

constexpr const char* kStartupEntryPathKey = "STARTUP_ENTRY_PATH";
constexpr const char* kReplaceDataKey = "cfgmgr_env";

constexpr int32_t kStretchedTimeoutMs = 18000000;
constexpr int32_t kStartTimeoutMs = 4500;
constexpr int32_t kTermTimeoutMs = 5000;
constexpr int32_t kRestartTimeoutMs = 5000;
constexpr int32_t kChangeTimeoutMs = 4500;

constexpr size_t kPathBufferSize = 4096;
constexpr size_t kDependenciesPerLook = 64;
constexpr uint32_t kVerifiedTerminated = 1;

using MatchData = std::map<std::string, std::string>;

std::string StateName(AppChangeState state) {
    return GetAppState(ToValue(state));
}

Message::StartupCfgInfo MakeStartupCfg(const MatchData& matchData, const std::string& path) {
    Message::StartupCfgInfo cfg;
    cfg.matchDataToPath = matchData;
    cfg.procName = path;
    return cfg;
}

void WaitForAll(std::vector<std::future<void>>& tasks) {
    for (std::future<void>& task : tasks) {
        task.wait();
    }
    tasks.clear();
}

/// There is none before the first wait.
void RestartPatience(TermAppInfo& info) {
    if (info.patience.has_value()) {
        info.patience->Restart();
    }
}

/// Closes a start run on every way out of it.
class StartRunCloser {
public:
    explicit StartRunCloser(StartAppInfo& info) : info_(info) {}
    ~StartRunCloser() {
        const std::lock_guard<std::mutex> lock(info_.mutex);
        info_.closed = true;
    }

    StartRunCloser(const StartRunCloser&) = delete;
    StartRunCloser& operator=(const StartRunCloser&) = delete;

private:
    StartAppInfo& info_;
};

/// Empties the parser's dependency map and puts it back unless a new one was accepted.
class DependsMapKeeper {
public:
    DependsMapKeeper() : saved_(ParseAndDepend::GetInstance().GetApplicationDependsMap()) {
        ParseAndDepend::GetInstance().SetApplicationDependsMap({});
    }
    ~DependsMapKeeper() {
        if (!isAccepted_) {
            PutBack();
        }
    }

    void AcceptNew() { isAccepted_ = true; }

    DependsMapKeeper(const DependsMapKeeper&) = delete;
    DependsMapKeeper& operator=(const DependsMapKeeper&) = delete;

private:
    void PutBack() {
        try {
            ParseAndDepend::GetInstance().SetApplicationDependsMap(saved_);
        } catch (...) {
            // Out of memory. The next reload reads it anew; until then all names are unknown.
            return;
        }
    }

    const std::unordered_map<std::string, std::set<std::string>> saved_;
    bool isAccepted_ = false;
};

}  // namespace

std::mutex ApplicationManager::queryAppStateMutex_;
std::mutex ApplicationManager::queryAppStateRespMutex_;
std::condition_variable ApplicationManager::waitQueryAppStateRespConditionVar_;
uint64_t ApplicationManager::queryAppStateAnswers_ = 0;

struct ApplicationManager::Found {
    std::shared_ptr<Application> app;
    bool isNew = false;  ///< made by this look-up
};

struct ApplicationManager::Collections {
    ApplicationMap base;
    ApplicationMap driving;
    ManifestMap templates;
};

struct ApplicationManager::TermDecision {
    enum class Kind { NONE, REFUSED, IS_DOWN, SEND };

    Kind kind;
    Message::TermAppInfo command;
};

struct ApplicationManager::StartDecision {
    enum class Kind { NONE, WAIT_READY, REFUSED, IS_RUNNING, SEND };

    Kind kind;
    Message::StartAppInfo command;
};

/// A restart that is to be sent, and what it is taken back to when it can't be.
struct ApplicationManager::RestartCommand {
    AppStateType stateBefore = AppStateType::INIT_STATE;
    Message::RestartAppInfo message;
};

struct ApplicationManager::RestartDecision {
    enum class Kind { NONE, WAIT_READY, REFUSED, SEND };

    Kind kind;
    RestartCommand command;
};

/// Ends the change on every way out of it.
class ApplicationManager::TransitionGuard {
public:
    explicit TransitionGuard(ApplicationManager& manager) : manager_(manager) {}
    ~TransitionGuard() {
        const std::lock_guard<std::mutex> lock(manager_.appMutex_);
        manager_.isTransitionFinished_ = true;
    }

    TransitionGuard(const TransitionGuard&) = delete;
    TransitionGuard& operator=(const TransitionGuard&) = delete;

private:
    ApplicationManager& manager_;
};

/// Ends the reload on every way out of it.
class ApplicationManager::ReloadGuard {
public:
    explicit ReloadGuard(ApplicationManager& manager) : manager_(manager) {}
    ~ReloadGuard() {
        const std::lock_guard<std::mutex> lock(manager_.appMutex_);
        manager_.isReloading_ = false;
    }

    ReloadGuard(const ReloadGuard&) = delete;
    ReloadGuard& operator=(const ReloadGuard&) = delete;

private:
    ApplicationManager& manager_;
};

// Set-up.

ApplicationManager& ApplicationManager::GetInstance() {
    static ApplicationManager instance;
    return instance;
}

ApplicationManager::ApplicationManager() {
    InitStartupPathByEnv();
}

std::string ApplicationManager::StartupEntryPath() const {
    const std::lock_guard<std::mutex> lock(appMutex_);
    return startupEntryPath_;
}

void ApplicationManager::SetStartupEntryPath(const std::string& path) {
    const std::lock_guard<std::mutex> lock(appMutex_);
    startupEntryPath_ = path;
}

void ApplicationManager::InitStartupPathByEnv() {
    const char* value = getenv(kStartupEntryPathKey);
    if (value == nullptr) {
        GRP_OWNER_LOG(kWarn, "Get startup entry path env failed, key=%s", kStartupEntryPathKey);
        return;
    }
    GRP_OWNER_LOG(kInfo, "Get startup entry env success. key=%s,value=%s", kStartupEntryPathKey, value);
    char resolved[kPathBufferSize] = {};
    if (realpath(value, resolved) == nullptr) {
        GRP_OWNER_LOG(kError, "Check startup entry path failed, path=%s", value);
        return;
    }
    GRP_OWNER_LOG(kInfo, "Check startup entry path success, check result=%s", resolved);
    SetStartupEntryPath(resolved);
}

void ApplicationManager::InitAppCond() {
    const char* value = getenv(kRunModeEnv.c_str());
    const std::string runMode = value == nullptr ? "0" : value;
    GRP_OWNER_LOG(kInfo, "DATAMASTER_RUN_MODE=%s", runMode.c_str());
    const bool isStretched = runMode == "1";
    for (StartAppInfo* info : {&baseStartAppInfo_, &startAppInfo_}) {
        const std::lock_guard<std::mutex> lock(info->mutex);
        info->timeout = isStretched ? kStretchedTimeoutMs : kStartTimeoutMs;
        info->hasProgress = false;
    }
    {
        const std::lock_guard<std::mutex> lock(termAppInfo_.waitMutex);
        termAppInfo_.timeout = isStretched ? kStretchedTimeoutMs : kTermTimeoutMs;
        termAppInfo_.hasProgress = true;
    }
    {
        const std::lock_guard<std::mutex> lock(restartAppInfo_.mutex);
        restartAppInfo_.timeout = isStretched ? kStretchedTimeoutMs : kRestartTimeoutMs;
        restartAppInfo_.isComplete = false;
    }
    changeAppTimeout_ = kChangeTimeoutMs;
}

bool ApplicationManager::ApplicationMgrInit(const std::string& startupEntryPath) {
    ParseAndDepend& parser = ParseAndDepend::GetInstance();
    MatchData matchData;
    if (!startupEntryPath.empty()) {
        SetStartupEntryPath(startupEntryPath);
    } else {
        InitStartupPathByEnv();
        if (parser.ParseToReplaceData(ParamType::REPLACE_DATA, kReplaceDataKey, matchData) != 0) {
            GRP_OWNER_LOG(kWarn, "ParseToReplaceData failed.");
        }
    }
    const std::string path = StartupEntryPath();
    if (path.empty()) {
        GRP_OWNER_LOG(kError, "ApplicationManager init failed: startup entry path is empty");
        return false;
    }
    for (const auto& pair : matchData) {
        GRP_OWNER_LOG(kInfo, "matchData first=%s second=%s", pair.first.c_str(), pair.second.c_str());
    }
    if (ProcMgrAgent::GetInstance().LoadStartupCfgInfo(MakeStartupCfg(matchData, path)) != 0) {
        GRP_OWNER_LOG(kError, "ApplicationManager init failed: LoadStartupCfgInfo failed");
        return false;
    }
    std::vector<ApplicationManifest> manifests;
    if (parser.ParseYaml(ParamType::MANIFEST, path, manifests, matchData) != 0) {
        // The good ones are used: part of the group is better than none of it.
        GRP_OWNER_LOG(kError, "ApplicationManager init: parse application manifest error !!!");
    }
    AddApplications(SortManifests(manifests, true));
    InitAppCond();
    const std::lock_guard<std::mutex> lock(appMutex_);
    isTransitionFinished_ = true;
    return true;
}

ApplicationManager::Collections ApplicationManager::SortManifests(const std::vector<ApplicationManifest>& manifests,
                                                                  bool logTemplates) {
    Collections sorted;
    for (const ApplicationManifest& manifest : manifests) {
        const std::string name = manifest.GetAppName();
        if (manifest.GetIsAutoBoot()) {
            sorted.base.emplace(name, std::make_shared<Application>(manifest, ""));
        } else if (!manifest.GetIsDynamicPara()) {
            sorted.driving.emplace(name, std::make_shared<Application>(manifest, ""));
        } else {
            const bool isFirst = sorted.templates.emplace(name, manifest).second;
            if (isFirst && logTemplates) {
                GRP_OWNER_LOG(kInfo, "ApplicationManager init: dynamicManifests_ AppName=%s", name.c_str());
            }
        }
    }
    return sorted;
}

void ApplicationManager::AddApplications(Collections collections) {
    const std::lock_guard<std::mutex> lock(appMutex_);
    baseApplications_.merge(collections.base);
    drivingApplications_.merge(collections.driving);
    dynamicManifests_.merge(collections.templates);
}

bool ApplicationManager::StartBaseApplication() {
    GRP_OWNER_LOG(kInfo, "ApplicationManager: StartBaseApplication begin.");
    const std::vector<AppInfoForServer> list = BaseStartList();
    {
        const std::lock_guard<std::mutex> lock(baseStartAppInfo_.mutex);
        StartPlan::Reset(baseStartAppInfo_);
    }
    if (TryStartApps(list, baseStartAppInfo_)) {
        GRP_OWNER_LOG(kInfo, "ApplicationManager: StartBaseApplication end.");
    } else {
        GRP_OWNER_LOG(kError, "ApplicationManager: StartBaseApplication error.");
        MarkLeftAppToStartFailed(baseStartAppInfo_);
    }
    return CheckBaseApplicationResult();
}

std::vector<AppInfoForServer> ApplicationManager::BaseStartList() const {
    std::vector<AppInfoForServer> list;
    const std::lock_guard<std::mutex> lock(appMutex_);
    list.reserve(baseApplications_.size());
    for (const auto& [name, app] : baseApplications_) {
        list.push_back({name, app->GetArguments(), {}});
    }
    return list;
}

bool ApplicationManager::CheckBaseApplicationResult() {
    std::vector<AppChangeInfo> all;
    std::vector<AppChangeInfo> failed;
    {
        const std::lock_guard<std::mutex> lock(baseStartAppInfo_.mutex);
        failed = AppendResults(baseStartAppInfo_.results, all);
    }
    for (const AppChangeInfo& info : failed) {
        GRP_OWNER_LOG(kError, "Base application start failed. (Name=%s,result=%s)", info.appName.c_str(),
                      StateName(info.state).c_str());
    }
    return failed.empty();
}

// Look-up.

std::shared_ptr<Application> ApplicationManager::FindSilentlyLocked(const std::string& name) const {
    for (const ApplicationMap* map : {&baseApplications_, &drivingApplications_}) {
        const auto found = map->find(name);
        if (found != map->end()) {
            return found->second;
        }
    }
    return nullptr;
}

std::shared_ptr<Application> ApplicationManager::FindApplicationLocked(const std::string& name) const {
    std::shared_ptr<Application> app = FindSilentlyLocked(name);
    if (app == nullptr) {
        GRP_OWNER_LOG(kInfo, "ApplicationManager: FindApplication %s (no application found).", name.c_str());
    }
    return app;
}

ApplicationManager::Found ApplicationManager::FindOrCreateLocked(const std::string& name) {
    if (std::shared_ptr<Application> app = FindSilentlyLocked(name)) {
        return {std::move(app), false};
    }
    CreateDynamicApplication(name);
    std::shared_ptr<Application> app = FindSilentlyLocked(name);
    const bool isNew = app != nullptr;
    return {std::move(app), isNew};
}

std::shared_ptr<Application> ApplicationManager::FindApplication(const std::string& name, bool createDynamic) {
    const std::lock_guard<std::mutex> lock(appMutex_);
    if (!createDynamic) {
        return FindApplicationLocked(name);
    }
    const Found found = FindOrCreateLocked(name);
    return found.app != nullptr ? found.app : drivingApplications_.at(name);
}

std::shared_ptr<Application> ApplicationManager::FindApplicationSilently(const std::string& name) const {
    const std::lock_guard<std::mutex> lock(appMutex_);
    return FindSilentlyLocked(name);
}

void ApplicationManager::CreateDynamicApplication(const std::string& name) {
    for (const auto& [templateName, manifest] : dynamicManifests_) {
        if (ParseAndDepend::GetInstance().IsDynamicParaMatch(templateName, name)) {
            drivingApplications_[name] = std::make_shared<Application>(manifest, name);
            GRP_OWNER_LOG(kInfo, "ApplicationManager: CreateDynamicApplication %s", name.c_str());
            return;
        }
    }
}

void ApplicationManager::RemoveDynamicApplication(const std::string& name) {
    const std::lock_guard<std::mutex> lock(appMutex_);
    const auto found = drivingApplications_.find(name);
    if (found == drivingApplications_.end() || !found->second->GetIsDynamicPara()) {
        return;
    }
    // The report of its end may have let a change start it again before the removal came.
    const AppStateType state = found->second->GetAppStateType();
    if (state != AppStateType::WAIT_READY_STATE && state != AppStateType::RUNNING_STATE) {
        drivingApplications_.erase(found);
    }
}

std::vector<std::string> ApplicationManager::DrivingAppNamesToStop() const {
    std::vector<std::string> names;
    const std::lock_guard<std::mutex> lock(appMutex_);
    for (const auto& [name, app] : drivingApplications_) {
        if (!app->IsAppInitializing() && !app->IsAppTerminated()) {
            names.push_back(name);
        }
    }
    return names;
}

std::vector<std::string> ApplicationManager::BaseAppNames() const {
    std::vector<std::string> names;
    const std::lock_guard<std::mutex> lock(appMutex_);
    for (const auto& entry : baseApplications_) {
        names.push_back(entry.first);
    }
    return names;
}

// Reload.

bool ApplicationManager::ReloadCfg() {
    if (!BeginReload()) {
        return false;
    }
    GRP_OWNER_LOG(kInfo, "ReloadCfg begin.");
    const std::string path = StartupEntryPath();
    if (path.empty()) {
        // The reload stays open on purpose: without a path no later one can succeed either.
        GRP_OWNER_LOG(kError, "ApplicationManager ReloadCfg failed: startup entry path is empty");
        return false;
    }
    const ReloadOutcome outcome = TryReload(path);
    if (outcome == ReloadOutcome::REFUSED) {
        return false;
    }
    GRP_OWNER_LOG(kInfo, "ReloadCfg end.");
    return outcome == ReloadOutcome::DONE;
}

bool ApplicationManager::BeginReload() {
    bool isFinished = false;
    {
        const std::lock_guard<std::mutex> lock(appMutex_);
        isFinished = isTransitionFinished_;
        if (isFinished && !isReloading_) {
            isReloading_ = true;
            return true;
        }
    }
    GRP_OWNER_LOG(kWarn, "ApplicationManager: cannot reload now. (isTransitionFinish=%s)",
                  isFinished ? "true" : "false");
    return false;
}

ApplicationManager::ReloadOutcome ApplicationManager::TryReload(const std::string& path) {
    const ReloadGuard guard(*this);
    ReloadOutcome outcome = ReloadOutcome::BROKEN;
    try {
        outcome = ReloadManifests(path);
    } catch (...) {
        // Out of memory, or the parser: as good as a broken manifest.
        outcome = ReloadOutcome::BROKEN;
    }
    if (outcome == ReloadOutcome::BROKEN) {
        GRP_OWNER_LOG(kError, "ApplicationManager: reload config error !!!");
    }
    return outcome;
}

ApplicationManager::ReloadOutcome ApplicationManager::ReloadManifests(const std::string& path) {
    ParseAndDepend& parser = ParseAndDepend::GetInstance();
    const std::lock_guard<std::mutex> graphLock(graphMutex_);
    DependsMapKeeper dependsMap;
    MatchData matchData;
    (void)parser.ParseToReplaceData(ParamType::REPLACE_DATA, kReplaceDataKey, matchData);
    for (const auto& pair : matchData) {
        GRP_OWNER_LOG(kInfo, "first:%s second:%s", pair.first.c_str(), pair.second.c_str());
    }
    if (ProcMgrAgent::GetInstance().ReLoadStartupCfgInfo(MakeStartupCfg(matchData, path)) != 0) {
        GRP_OWNER_LOG(kError, "ApplicationManager ReloadCfg failed: ProcMgrAgent UpdateCfg failed");
        return ReloadOutcome::REFUSED;
    }
    std::vector<ApplicationManifest> manifests;
    if (parser.ParseYaml(ParamType::MANIFEST, path, manifests, matchData) != 0) {
        return ReloadOutcome::BROKEN;
    }
    UpdateApplicationList(manifests);
    dependsMap.AcceptNew();
    return ReloadOutcome::DONE;
}

bool ApplicationManager::UpdateApplicationList(const std::vector<ApplicationManifest>& manifests) {
    // The old applications are released after the lock.
    Collections next = SortManifests(manifests, false);
    const std::lock_guard<std::mutex> lock(appMutex_);
    InitApplicationFromOrig(next.base, baseApplications_);
    InitApplicationFromOrig(next.driving, drivingApplications_);
    baseApplications_.swap(next.base);
    drivingApplications_.swap(next.driving);
    dynamicManifests_.swap(next.templates);
    return true;
}

void ApplicationManager::InitApplicationFromOrig(ApplicationMap& newMap, const ApplicationMap& oldMap) {
    for (const auto& [name, old] : oldMap) {
        const auto found = newMap.find(name);
        if (found != newMap.end()) {
            (void)found->second->CopyDynamicAttributeFromApp(*old);
        } else if (old->GetIsDynamicPara()) {
            newMap.emplace(name, old);
        }
    }
}

// Change as a whole.

bool ApplicationManager::ChangeApp(const std::vector<AppInfoForServer>& term,
                                   const std::vector<AppInfoForServer>& start,
                                   const std::vector<AppInfoForServer>& restart, std::vector<AppChangeInfo>& results,
                                   int timeoutMs) {
    GRP_OWNER_LOG(kInfo, "ChangeApp begin. (term=%zu,start=%zu,restart=%zu,timeout=%d ms)", term.size(), start.size(),
                  restart.size(), timeoutMs);
    if (!BeginTransition(timeoutMs)) {
        GRP_OWNER_LOG(kWarn, "ChangeApp failed, because it is in transition.");
        return false;
    }
    // The next change clears the records, so this one must be merged before it ends.
    const TransitionGuard guard(*this);
    const bool isDone = RunPhases(term, start, restart);
    const bool isSuccess = MergeChangeAppResult(results);
    return isDone && isSuccess;
}

bool ApplicationManager::BeginTransition(int timeoutMs) {
    const std::lock_guard<std::mutex> lock(appMutex_);
    if (!isTransitionFinished_) {
        return false;
    }
    ResetChangeAppInfo(timeoutMs);
    return true;
}

void ApplicationManager::ResetChangeAppInfo(int timeoutMs) {
    isTransitionFinished_ = false;
    if (timeoutMs > 0) {
        changeAppTimeout_ = timeoutMs;
    }
    {
        const std::lock_guard<std::mutex> lock(startAppInfo_.mutex);
        StartPlan::Reset(startAppInfo_);
    }
    {
        const std::lock_guard<std::mutex> resultsLock(termAppInfo_.resultsMutex);
        const std::lock_guard<std::mutex> waitLock(termAppInfo_.waitMutex);
        TermPlan::Reset(termAppInfo_);
    }
    const std::lock_guard<std::mutex> lock(restartAppInfo_.mutex);
    RestartPlan::Reset(restartAppInfo_);
}

bool ApplicationManager::RunPhases(const std::vector<AppInfoForServer>& term,
                                   const std::vector<AppInfoForServer>& start,
                                   const std::vector<AppInfoForServer>& restart) {
    if (!term.empty() && !TryTermApps(term)) {
        MarkLeftAppToTermFailed();
        return false;
    }
    if (!start.empty() && !TryStartApps(start, startAppInfo_)) {
        MarkLeftAppToStartFailed(startAppInfo_);
        return false;
    }
    GRP_OWNER_LOG(kInfo, "ApplicationManager: ChangeAppState restart begin.");
    if (!restart.empty() && !TryRestartApps(restart)) {
        MarkLeftAppToRestartFailed();
        return false;
    }
    GRP_OWNER_LOG(kInfo, "ApplicationManager: ChangeAppState restart end.");
    GRP_OWNER_LOG(kInfo, "ApplicationManager: ChangeApp end.");
    return true;
}

// An exception (out of memory, no thread to be had, the parser) fails the phase, as a time-out does. It must not leave
// the change open, nor applications of the request out of the answer.

bool ApplicationManager::TryTermApps(const std::vector<AppInfoForServer>& list) {
    try {
        return TermApps(list);
    } catch (...) {
        const std::lock_guard<std::mutex> lock(termAppInfo_.resultsMutex);
        EnterNames(termAppInfo_.termAppsResult, list);
        return false;
    }
}

bool ApplicationManager::TryStartApps(const std::vector<AppInfoForServer>& list, StartAppInfo& info) {
    try {
        return StartApps(list, info);
    } catch (...) {
        const std::lock_guard<std::mutex> lock(info.mutex);
        EnterNames(info.results, list);
        return false;
    }
}

bool ApplicationManager::TryRestartApps(const std::vector<AppInfoForServer>& list) {
    try {
        return RestartApps(list);
    } catch (...) {
        const std::lock_guard<std::mutex> lock(restartAppInfo_.mutex);
        EnterNames(restartAppInfo_.results, list);
        return false;
    }
}

bool ApplicationManager::MergeChangeAppResult(std::vector<AppChangeInfo>& results) {
    std::vector<AppChangeInfo> startFailed;
    std::vector<AppChangeInfo> termFailed;
    std::vector<AppChangeInfo> restartFailed;
    {
        const std::lock_guard<std::mutex> lock(startAppInfo_.mutex);
        startFailed = AppendResults(startAppInfo_.results, results);
    }
    {
        const std::lock_guard<std::mutex> lock(termAppInfo_.resultsMutex);
        termFailed = AppendResults(termAppInfo_.termAppsResult, results);
    }
    {
        const std::lock_guard<std::mutex> lock(restartAppInfo_.mutex);
        restartFailed = AppendResults(restartAppInfo_.results, results);
    }
    for (const AppChangeInfo& info : startFailed) {
        GRP_OWNER_LOG(kError, "Start app failed. (name=%s,result=%s)", info.appName.c_str(),
                      StateName(info.state).c_str());
    }
    for (const AppChangeInfo& info : termFailed) {
        GRP_OWNER_LOG(kError, "Term app failed. (name=%s,result=%s)", info.appName.c_str(),
                      StateName(info.state).c_str());
    }
    for (const AppChangeInfo& info : restartFailed) {
        GRP_OWNER_LOG(kError, "Restart app failed. (name=%s,result=%s)", info.appName.c_str(),
                      StateName(info.state).c_str());
    }
    return startFailed.empty() && termFailed.empty() && restartFailed.empty();
}

// Terminate.

bool ApplicationManager::TermApps(const std::vector<AppInfoForServer>& list) {
    GRP_OWNER_LOG(kInfo, "TermApps begin.");
    const std::vector<std::string> names = GetTermAppNameList(list);
    const std::chrono::milliseconds wait = EffectiveWait(changeAppTimeout_);
    OpenTermRun(names, BuildTermGraph(names));
    std::vector<std::string> wave;
    Wave next = WaitForTermWave(wait, wave);
    for (; next == Wave::READY; next = WaitForTermWave(wait, wave)) {
        TermNoDependsApps(wave);
        // The blank at the end belongs to the text.
        GRP_OWNER_LOG(kInfo, "TermApps ... ");
    }
    if (next == Wave::TIMED_OUT) {
        GRP_OWNER_LOG(kError, "ChangeApp failed. because TermApps failed time-out.");
        return false;
    }
    GRP_OWNER_LOG(kInfo, "TermApps end.");
    return true;
}

std::vector<std::string> ApplicationManager::GetTermAppNameList(const std::vector<AppInfoForServer>& list) const {
    std::vector<std::string> names;
    names.reserve(list.size());
    for (const AppInfoForServer& app : list) {
        GetAppsNeedTerm(app.appName, names);
    }
    return names;
}

void ApplicationManager::GetAppsNeedTerm(const std::string& name, std::vector<std::string>& names) const {
    const ParseAndDepend& parser = ParseAndDepend::GetInstance();
    const bool isTemplate = parser.IsDynamicPara(name);
    const std::lock_guard<std::mutex> lock(appMutex_);
    // A template that starts with the group is an application of its own.
    if (!isTemplate || baseApplications_.count(name) != 0) {
        names.push_back(name);
        return;
    }
    for (const auto& entry : drivingApplications_) {
        if (parser.IsDynamicParaMatch(name, entry.first)) {
            names.push_back(entry.first);
        }
    }
}

DependGraph ApplicationManager::BuildTermGraph(const std::vector<std::string>& names) {
    DependGraph graph;
    std::vector<std::string> unknown;
    int result = 0;
    {
        const std::lock_guard<std::mutex> lock(graphMutex_);
        result = ParseAndDepend::GetInstance().GetTermGraphWithErrApp(names, graph, unknown);
    }
    if (result != 0) {
        GRP_OWNER_LOG(kError, "ParseAndDepend::GetInstance().GetTermGraphWithErrApp failed!");
        for (const std::string& name : unknown) {
            GRP_OWNER_LOG(kWarn, "App <%s> is not in term graph, plz check start yaml.", name.c_str());
        }
    }
    return graph;
}

void ApplicationManager::OpenTermRun(const std::vector<std::string>& names, DependGraph graph) {
    // One section: a late result must find either no run, or one with its graph.
    const std::lock_guard<std::mutex> resultsLock(termAppInfo_.resultsMutex);
    const std::lock_guard<std::mutex> waitLock(termAppInfo_.waitMutex);
    TermPlan::Open(termAppInfo_, names, std::move(graph));
}

ApplicationManager::Wave ApplicationManager::WaitForTermWave(std::chrono::milliseconds wait,
                                                             std::vector<std::string>& wave) {
    {
        std::unique_lock<std::mutex> lock(termAppInfo_.waitMutex);
        if (termAppInfo_.graph.IsEmpty()) {
            return Wave::DONE;
        }
        const Deadline& deadline = termAppInfo_.patience.emplace(*clocks_, wait);
        if (!deadline.Wait(termAppInfo_.condition, lock, [this] { return termAppInfo_.hasProgress; })) {
            return Wave::TIMED_OUT;
        }
        termAppInfo_.hasProgress = false;
        wave = TermPlan::TakeWave(termAppInfo_);
    }
    const std::lock_guard<std::mutex> resultsLock(termAppInfo_.resultsMutex);
    const std::lock_guard<std::mutex> waitLock(termAppInfo_.waitMutex);
    TermPlan::DropUnwanted(termAppInfo_, wave);
    return Wave::READY;
}

void ApplicationManager::TermNoDependsApps(const std::vector<std::string>& names) {
    std::vector<Message::TermAppInfo> commands;
    commands.reserve(names.size());
    for (const std::string& name : names) {
        TermOneApp(name, commands);
    }
    if (commands.empty()) {
        return;
    }
    GRP_OWNER_LOG(kInfo, "ApplicationManager: TermApps emAgent TermApp begin.");
    const uint32_t result = ProcMgrAgent::GetInstance().TermApp(commands);
    GRP_OWNER_LOG(kInfo, "ApplicationManager: TermApps emAgent TermApp end. (return=%u)", result);
}

void ApplicationManager::TermOneApp(const std::string& name, std::vector<Message::TermAppInfo>& commands) {
    TermDecision decision = DecideTerm(name);
    switch (decision.kind) {
        case TermDecision::Kind::NONE:
            GRP_OWNER_LOG(kError, "TermApp %s failed. because term elem not in baseApplication and drivingApplication!",
                          name.c_str());
            ReportTermAppResult(name, AppChangeState::TERM_FAILED);
            return;
        case TermDecision::Kind::REFUSED:
            GRP_OWNER_LOG(kWarn, "ApplicationManager: termApp %s failed. because cannot term in this state!",
                          name.c_str());
            ReportTermAppResult(name, AppChangeState::TERM_FAILED);
            return;
        case TermDecision::Kind::SEND:
            GRP_OWNER_LOG(kInfo, "ApplicationManager: Add to termAppList term info: name=%s",
                          decision.command.appName.c_str());
            commands.push_back(std::move(decision.command));
            return;
        case TermDecision::Kind::IS_DOWN:
            ReportTermAppResult(name, AppChangeState::SUCCESS);
            return;
    }
}

ApplicationManager::TermDecision ApplicationManager::DecideTerm(const std::string& name) {
    using Kind = TermDecision::Kind;
    const std::lock_guard<std::mutex> lock(appMutex_);
    const Found found = FindOrCreateLocked(name);
    if (found.app == nullptr) {
        return {Kind::NONE, {}};
    }
    if (!found.app->Term()) {
        return {Kind::REFUSED, {}};
    }
    if (!found.app->IsAppTerminated() && !found.app->IsAppInitializing()) {
        return {Kind::SEND, {found.app->GetAppName()}};
    }
    if (found.isNew) {
        // Nobody would ever remove an instance that was only made to be terminated.
        drivingApplications_.erase(name);
    }
    return {Kind::IS_DOWN, {}};
}

void ApplicationManager::MarkLeftAppToTermFailed() {
    ChangeResults before;
    {
        const std::lock_guard<std::mutex> lock(termAppInfo_.resultsMutex);
        before = termAppInfo_.termAppsResult;
        FailWaiting(termAppInfo_.termAppsResult, AppChangeState::TERM_FAILED);
    }
    for (const auto& result : before) {
        GRP_OWNER_LOG(kInfo, "Term appName=%s state=%s", result.first.c_str(), StateName(result.second).c_str());
        if (result.second == AppChangeState::INIT) {
            GRP_OWNER_LOG(kWarn, "mark %s to TERM_FAILED", result.first.c_str());
        }
    }
}

void ApplicationManager::ReportTermAppResult(const std::string& name, AppChangeState state) {
    GRP_OWNER_LOG(kInfo, "ApplicationManager: ReportTermAppResult: appName=%s,status=%s.", name.c_str(),
                  StateName(state).c_str());
    TermPlan::Settlement settlement = TermPlan::Settlement::UNKNOWN;
    AppChangeState stored = state;
    bool isWaiterToMove = false;
    {
        const std::lock_guard<std::mutex> resultsLock(termAppInfo_.resultsMutex);
        settlement = TermPlan::Settle(termAppInfo_, name, state, stored);
        if (settlement == TermPlan::Settlement::TAKEN) {
            const std::lock_guard<std::mutex> waitLock(termAppInfo_.waitMutex);
            TermPlan::PopVertex(termAppInfo_, name);
            isWaiterToMove = termAppInfo_.hasProgress;
            RestartPatience(termAppInfo_);
        }
    }
    if (isWaiterToMove) {
        termAppInfo_.condition.notify_all();
    }
    switch (settlement) {
        case TermPlan::Settlement::UNKNOWN:
            GRP_OWNER_LOG(
                kWarn,
                "ApplicationManager ReportTermAppResult appName=%s is not in termAppInfo.termAppsResult, wrong report? please check.",
                name.c_str());
            return;
        case TermPlan::Settlement::ALREADY:
            GRP_OWNER_LOG(
                kWarn,
                "ApplicationManager ReportTermAppResult appName=%s is already feedback(now result state=%s), double report? please check.",
                name.c_str(), StateName(stored).c_str());
            return;
        case TermPlan::Settlement::TAKEN:
            return;
    }
}

// Start.

bool ApplicationManager::StartApps(const std::vector<AppInfoForServer>& list, StartAppInfo& info) {
    GRP_OWNER_LOG(kInfo, "StartApps begin.");
    StartRequests requests;
    for (const AppInfoForServer& app : list) {
        requests[app.appName] = &app;
    }
    const std::vector<std::string> names = NamesOf(list);
    DependGraph graph = BuildStartGraph(names);
    {
        // One section: a late result must find either no run, or one with its graph.
        const std::lock_guard<std::mutex> lock(info.mutex);
        StartPlan::Open(info, names, std::move(graph));
    }
    Tasks tasks;
    bool isInTime = false;
    {
        const StartRunCloser closer(info);
        isInTime = RunStartWaves(requests, info, tasks);
        WaitForAll(tasks);
    }
    if (isInTime) {
        GRP_OWNER_LOG(kInfo, "StartApp end.");
    }
    return isInTime;
}

DependGraph ApplicationManager::BuildStartGraph(const std::vector<std::string>& names) {
    DependGraph graph;
    std::vector<std::string> unknown;
    int result = 0;
    {
        const std::lock_guard<std::mutex> lock(graphMutex_);
        result = ParseAndDepend::GetInstance().GetStartGraphWithErrApp(names, graph, unknown);
    }
    if (result != 0) {
        GRP_OWNER_LOG(kError, "ParseAndDepend::GetInstance().GetStartGraphWithErrApp failed!");
        for (const std::string& name : unknown) {
            GRP_OWNER_LOG(kWarn, "App <%s> is not in start graph, plz check start yaml.", name.c_str());
        }
    }
    return graph;
}

bool ApplicationManager::RunStartWaves(const StartRequests& requests, StartAppInfo& info, Tasks& tasks) {
    const Deadline deadline(*clocks_, EffectiveWait(changeAppTimeout_));
    std::vector<std::string> noDepends;
    while (NeedContinueStart(noDepends, info)) {
        CheckProcessCompleted(FillAppInfoAndStart(noDepends, requests, info), info, tasks);
        if (!WaitForStartProgress(deadline, info)) {
            return false;
        }
    }
    return true;
}

bool ApplicationManager::NeedContinueStart(std::vector<std::string>& noDepends, StartAppInfo& info) {
    StartPlan::Round round;
    {
        const std::lock_guard<std::mutex> lock(info.mutex);
        round = StartPlan::TakeRound(info);
    }
    noDepends = std::move(round.noDepends);
    if (round.isDone) {
        return false;
    }
    if (round.canMove || IsAnyDependencyComingUp(info)) {
        return true;
    }
    GRP_OWNER_LOG(kWarn, "noDependsList is empty, and none of already start apps are starting.");
    return false;
}

bool ApplicationManager::IsAnyDependencyComingUp(StartAppInfo& info) {
    std::string behind;
    {
        const std::lock_guard<std::mutex> lock(info.mutex);
        behind = info.progress.lookBehind;
    }
    // The one that the last look found comes first: as long as it is on its way, a look costs nothing.
    return IsAnyComingUpBehind(behind, info) || (!behind.empty() && IsAnyComingUpBehind("", info));
}

bool ApplicationManager::IsAnyComingUpBehind(std::string behind, StartAppInfo& info) {
    for (;;) {
        std::vector<std::string> names;
        {
            const std::lock_guard<std::mutex> lock(info.mutex);
            names = StartPlan::NextDependencies(info, behind, kDependenciesPerLook);
        }
        const auto found = FirstComingUp(names);
        if (found != names.end()) {
            const std::lock_guard<std::mutex> lock(info.mutex);
            info.progress.lookBehind = found == names.begin() ? behind : *std::prev(found);
            return true;
        }
        if (names.empty()) {
            return false;
        }
        behind = names.back();
    }
}

std::vector<std::string>::const_iterator ApplicationManager::FirstComingUp(
    const std::vector<std::string>& names) const {
    const std::lock_guard<std::mutex> lock(appMutex_);
    return std::find_if(names.begin(), names.end(), [this](const std::string& name) {
        const std::shared_ptr<Application> app = FindSilentlyLocked(name);
        return app != nullptr && (app->IsAppRunning() || app->IsAppWaitReady());
    });
}

std::vector<std::string> ApplicationManager::FillAppInfoAndStart(const std::vector<std::string>& noDepends,
                                                                 const StartRequests& requests, StartAppInfo& info) {
    std::vector<const AppInfoForServer*> list;
    std::vector<std::string> others;
    for (const std::string& name : noDepends) {
        const auto request = requests.find(name);
        if (request != requests.end() && FillRequested(name, info)) {
            list.push_back(request->second);
            continue;
        }
        if (request == requests.end()) {
            PassRunningDependency(name, info);
        }
        others.push_back(name);
    }
    StartNoDependsApps(list, info);
    return others;
}

void ApplicationManager::PassRunningDependency(const std::string& name, StartAppInfo& info) {
    bool isKnown = false;
    bool isRunning = false;
    {
        const std::lock_guard<std::mutex> lock(appMutex_);
        const std::shared_ptr<Application> app = FindSilentlyLocked(name);
        isKnown = app != nullptr;
        isRunning = isKnown && app->IsAppRunning();
    }
    if (!isKnown) {
        GRP_OWNER_LOG(kError,
                      "ChangeApp failed. because StartGraph's elem=%s not in baseApplication and drivingApplication!",
                      name.c_str());
    }
    if (isRunning) {
        (void)PopVertex(name, info);
    }
}

bool ApplicationManager::FillRequested(const std::string& name, StartAppInfo& info) {
    bool isKnown = false;
    {
        const std::lock_guard<std::mutex> lock(appMutex_);
        isKnown = FindOrCreateLocked(name).app != nullptr;
    }
    if (!isKnown) {
        GRP_OWNER_LOG(kError,
                      "ChangeApp failed. because StartGraph's elem=%s not in baseApplication and drivingApplication!",
                      name.c_str());
        ReportStartAppResult(name, AppChangeState::START_FAILED);
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(info.mutex);
        if (!StartPlan::MarkCommanded(info, name)) {
            return false;
        }
    }
    GRP_OWNER_LOG(kInfo, "noDependsList in startAppMap appName=%s", name.c_str());
    return true;
}

void ApplicationManager::StartNoDependsApps(const std::vector<const AppInfoForServer*>& list, StartAppInfo& info) {
    GRP_OWNER_LOG(kInfo, "StartNoDependsApps start begin.");
    std::vector<Message::StartAppInfo> commands;
    commands.reserve(list.size());
    for (const AppInfoForServer* app : list) {
        StartOneApp(*app, info, commands);
    }
    if (!commands.empty()) {
        SendStart(commands);
    }
    GRP_OWNER_LOG(kInfo, "StartNoDependsApps start end.");
}

void ApplicationManager::StartOneApp(const AppInfoForServer& app, StartAppInfo& info,
                                     std::vector<Message::StartAppInfo>& commands) {
    const std::string& name = app.appName;
    StartDecision decision = DecideStart(app);
    switch (decision.kind) {
        case StartDecision::Kind::NONE:
            GRP_OWNER_LOG(kError,
                          "StartApp %s failed. because start elem not in baseApplication and drivingApplication!",
                          name.c_str());
            ReportStartAppResult(name, AppChangeState::START_FAILED);
            return;
        case StartDecision::Kind::WAIT_READY: {
            {
                const std::lock_guard<std::mutex> lock(info.mutex);
                (void)StartPlan::MarkCommanded(info, name);
            }
            GRP_OWNER_LOG(kWarn, "StartApp %s, app in waitready, skip send cmd to pm", name.c_str());
            return;
        }
        case StartDecision::Kind::REFUSED:
            GRP_OWNER_LOG(kWarn, "StartApp %s failed. because cannot start in this state!", name.c_str());
            ReportStartAppResult(name, AppChangeState::START_FAILED);
            return;
        case StartDecision::Kind::IS_RUNNING:
            ReportStartAppResult(name, AppChangeState::SUCCESS);
            return;
        case StartDecision::Kind::SEND:
            GRP_OWNER_LOG(kInfo, "StartNoDependsApps add %s to startAppList.", name.c_str());
            commands.push_back(std::move(decision.command));
            return;
    }
}

ApplicationManager::StartDecision ApplicationManager::DecideStart(const AppInfoForServer& app) {
    using Kind = StartDecision::Kind;
    const std::lock_guard<std::mutex> lock(appMutex_);
    // An instance that ended before this run may have been removed since the wave was put together.
    const std::shared_ptr<Application> found = FindOrCreateLocked(app.appName).app;
    if (found == nullptr) {
        // Once more, for the message of a look-up that makes nothing.
        (void)FindApplicationLocked(app.appName);
        return {Kind::NONE, {}};
    }
    if (found->IsAppWaitReady()) {
        return {Kind::WAIT_READY, {}};
    }
    if (!found->Start()) {
        return {Kind::REFUSED, {}};
    }
    if (found->IsAppRunning()) {
        return {Kind::IS_RUNNING, {}};
    }
    found->SetArguments(app.args);
    return {Kind::SEND, {found->GetAppName(), found->GetArguments(), app.dynamicPara}};
}

void ApplicationManager::SendStart(const std::vector<Message::StartAppInfo>& commands) {
    GRP_OWNER_LOG(kInfo, "StartNoDependsApps emAgent StartApp begin.");
    if (ProcMgrAgent::GetInstance().StartApp(commands) != 0) {
        for (const Message::StartAppInfo& command : commands) {
            GRP_OWNER_LOG(kError, "StartApp %s failed, because ProcMgrAgent StartApp failed", command.appName.c_str());
            // The state machine takes it as an end of the start, and gives the result on its usual way.
            ReportTerminatedNormalFromProcMgr(command.appName);
        }
    }
    GRP_OWNER_LOG(kInfo, "StartNoDependsApps emAgent StartApp end.");
}

void ApplicationManager::CheckProcessCompleted(const std::vector<std::string>& noDepends, StartAppInfo& info,
                                               Tasks& tasks) {
    for (const std::string& name : noDepends) {
        bool isRunning = false;
        {
            const std::lock_guard<std::mutex> lock(appMutex_);
            const std::shared_ptr<Application> app = FindApplicationLocked(name);
            if (app == nullptr) {
                return;
            }
            isRunning = app->IsAppRunning();
        }
        if (isRunning && PopVertex(name, info)) {
            GRP_OWNER_LOG(kInfo, "App %s in noDependsList popped success, need to report success again.", name.c_str());
            ReportSuccessByTask(name, tasks);
        }
    }
}

bool ApplicationManager::PopVertex(const std::string& name, StartAppInfo& info) {
    const std::lock_guard<std::mutex> lock(info.mutex);
    return StartPlan::PopVertex(info, name);
}

void ApplicationManager::ReportSuccessByTask(const std::string& name, Tasks& tasks) {
    try {
        tasks.push_back(
            std::async(std::launch::async, [this, name] { ReportStartAppResult(name, AppChangeState::SUCCESS); }));
    } catch (const std::system_error&) {
        // No thread to be had. Nothing is locked here, so this one does as well.
        ReportStartAppResult(name, AppChangeState::SUCCESS);
    }
}

bool ApplicationManager::WaitForStartProgress(const Deadline& deadline, StartAppInfo& info) {
    uint32_t timeout = 0;
    {
        std::unique_lock<std::mutex> lock(info.mutex);
        if (deadline.Wait(info.condition, lock, [&info] { return info.hasProgress; })) {
            info.hasProgress = false;
            return true;
        }
        // Closed in the section that decides the time-out: no result can come in between.
        info.closed = true;
        timeout = static_cast<uint32_t>(info.timeout);
    }
    GRP_OWNER_LOG(kError, "StartApp failed. timeout=%u(ms)", timeout);
    return false;
}

void ApplicationManager::MarkLeftAppToStartFailed(StartAppInfo& info) {
    ChangeResults before;
    {
        const std::lock_guard<std::mutex> lock(info.mutex);
        before = info.results;
        FailWaiting(info.results, AppChangeState::START_FAILED);
    }
    for (const auto& result : before) {
        GRP_OWNER_LOG(kInfo, "Start appName=%s state=%s", result.first.c_str(), StateName(result.second).c_str());
        if (result.second == AppChangeState::INIT) {
            GRP_OWNER_LOG(kWarn, "mark %s to START_FAILED", result.first.c_str());
        }
    }
}

void ApplicationManager::ReportStartAppResult(const std::string& name, AppChangeState state) {
    GRP_OWNER_LOG(kInfo, "ApplicationManager: ReportStartAppResult: appName=%s,status=%s.", name.c_str(),
                  StateName(state).c_str());
    ReportStartAppResult(name, state, baseStartAppInfo_);
    ReportStartAppResult(name, state, startAppInfo_);
}

void ApplicationManager::ReportStartAppResult(const std::string& name, AppChangeState state, StartAppInfo& info) {
    StartPlan::Settlement settlement = StartPlan::Settlement::IGNORED;
    AppChangeState stored = state;
    bool isWaiterToMove = false;
    {
        const std::lock_guard<std::mutex> lock(info.mutex);
        settlement = StartPlan::Settle(info, name, state, stored);
        isWaiterToMove = settlement == StartPlan::Settlement::TAKEN && info.hasProgress;
    }
    if (isWaiterToMove) {
        info.condition.notify_all();
    }
    if (settlement == StartPlan::Settlement::ALREADY) {
        GRP_OWNER_LOG(kWarn,
                      "ApplicationManager ReportStartAppResult appName=%s is already feedback(now result state=%s)",
                      name.c_str(), StateName(stored).c_str());
    }
}

void ApplicationManager::NoteCameUp(const std::string& name) {
    for (StartAppInfo* info : {&baseStartAppInfo_, &startAppInfo_}) {
        const std::lock_guard<std::mutex> lock(info->mutex);
        StartPlan::NoteCameUp(*info, name);
    }
}

// Restart.

bool ApplicationManager::RestartApps(const std::vector<AppInfoForServer>& list) {
    OpenRestartRun(list);
    const std::chrono::milliseconds wait = EffectiveWait(changeAppTimeout_);
    std::vector<RestartCommand> commands;
    for (const AppInfoForServer& app : list) {
        RestartOneApp(app, commands);
    }
    if (!commands.empty()) {
        SendRestart(commands);
    }
    {
        std::unique_lock<std::mutex> lock(restartAppInfo_.mutex);
        const Deadline deadline(*clocks_, wait);
        if (deadline.Wait(restartAppInfo_.condition, lock, [this] { return restartAppInfo_.isComplete; })) {
            restartAppInfo_.isComplete = false;
            return true;
        }
    }
    GRP_OWNER_LOG(kError, "RestartApps failed time-out");
    return false;
}

// A report is offered after its section, so the report of an earlier start may arrive when the run is open. It must not
// pass for the outcome of a restart that was not even sent.
void ApplicationManager::OpenRestartRun(const std::vector<AppInfoForServer>& list) {
    {
        const std::lock_guard<std::mutex> lock(restartAppInfo_.mutex);
        RestartPlan::Open(restartAppInfo_, NamesOf(list));
    }
    uint64_t newest = 0;
    {
        const std::lock_guard<std::mutex> lock(appMutex_);
        newest = reports_;
    }
    const std::lock_guard<std::mutex> lock(restartAppInfo_.mutex);
    RestartPlan::HeedFrom(restartAppInfo_, newest);
}

void ApplicationManager::RestartOneApp(const AppInfoForServer& app, std::vector<RestartCommand>& commands) {
    const std::string& name = app.appName;
    RestartDecision decision = DecideRestart(app);
    switch (decision.kind) {
        case RestartDecision::Kind::NONE:
            GRP_OWNER_LOG(kError,
                          "RestartApp %s failed. because restart elem not in baseApplication and drivingApplication!",
                          name.c_str());
            ReportRestartAppResult(name, AppChangeState::RESTART_FAILED);
            return;
        case RestartDecision::Kind::WAIT_READY:
            // The two blanks belong to the text.
            GRP_OWNER_LOG(kWarn, "RestartApp %s,  app in waitready, skip send cmd to pm", name.c_str());
            return;
        case RestartDecision::Kind::REFUSED:
            GRP_OWNER_LOG(kWarn, "RestartApp %s failed. because cannot restart in this state!", name.c_str());
            ReportRestartAppResult(name, AppChangeState::RESTART_FAILED);
            return;
        case RestartDecision::Kind::SEND:
            commands.push_back(std::move(decision.command));
            return;
    }
}

ApplicationManager::RestartDecision ApplicationManager::DecideRestart(const AppInfoForServer& app) {
    using Kind = RestartDecision::Kind;
    const std::lock_guard<std::mutex> lock(appMutex_);
    const Found found = FindOrCreateLocked(app.appName);
    if (found.app == nullptr) {
        return {Kind::NONE, {}};
    }
    if (found.app->IsAppWaitReady()) {
        return {Kind::WAIT_READY, {}};
    }
    const AppStateType stateBefore = found.app->GetAppStateType();
    if (!found.app->Restart()) {
        return {Kind::REFUSED, {}};
    }
    found.app->SetArguments(app.args);
    return {Kind::SEND, {stateBefore, {found.app->GetAppName(), found.app->GetArguments(), app.dynamicPara}}};
}

void ApplicationManager::SendRestart(const std::vector<RestartCommand>& commands) {
    std::vector<Message::RestartAppInfo> messages;
    messages.reserve(commands.size());
    for (const RestartCommand& command : commands) {
        messages.push_back(command.message);
    }
    const uint32_t result = ProcMgrAgent::GetInstance().RestartApp(messages);
    GRP_OWNER_LOG(kInfo, "RestartApps done. (return=%u)", result);
    if (result == 0) {
        return;
    }
    for (const RestartCommand& command : commands) {
        UndoRestart(command);
        ReportRestartAppResult(command.message.appName, AppChangeState::RESTART_FAILED);
    }
}

void ApplicationManager::UndoRestart(const RestartCommand& command) {
    // No report will come; left waiting for one, the application would be skipped by every later start and restart.
    const std::string& name = command.message.appName;
    {
        const std::lock_guard<std::mutex> lock(appMutex_);
        const std::shared_ptr<Application> app = FindSilentlyLocked(name);
        if (app == nullptr || !app->CompareAndSetAppState(AppStateType::WAIT_READY_STATE, command.stateBefore)) {
            return;
        }
    }
    if (command.stateBefore == AppStateType::RUNNING_STATE) {
        NoteCameUp(name);
    }
}

void ApplicationManager::CheckAndRestartApp(const std::string& name) {
    std::string policy;
    bool isKnown = false;
    bool isRestarting = false;
    RestartCommand command;
    {
        const std::lock_guard<std::mutex> lock(appMutex_);
        if (const std::shared_ptr<Application> app = FindApplicationLocked(name)) {
            isKnown = true;
            policy = app->GetRestart();
            command.stateBefore = app->GetAppStateType();
            isRestarting = app->CanRestart();
            command.message = {app->GetAppName(), app->GetArguments(), {}};
        }
    }
    if (!isKnown) {
        GRP_OWNER_LOG(kWarn, "ApplicationManager: SetTermedState %s (no application found, skip it).", name.c_str());
        return;
    }
    if (!isRestarting) {
        GRP_OWNER_LOG(kInfo, "ApplicationManager: don't need restart %s. (restart=%s)", name.c_str(), policy.c_str());
        return;
    }
    RestartByPolicy(command);
}

void ApplicationManager::RestartByPolicy(const RestartCommand& command) {
    const std::string& name = command.message.appName;
    GRP_OWNER_LOG(kInfo, "ApplicationManager: restart %s", name.c_str());
    GRP_OWNER_LOG(kInfo, "RestartApps add %s to restartAppList", name.c_str());
    GRP_OWNER_LOG(kInfo, "ApplicationManager: RestartApps emAgent RestartApp begin.");
    const uint32_t result = ProcMgrAgent::GetInstance().RestartApp({command.message});
    GRP_OWNER_LOG(kInfo, "ApplicationManager: RestartApps emAgent RestartApp end. (return=%u)", result);
    if (result != 0) {
        UndoRestart(command);
    }
}

void ApplicationManager::MarkLeftAppToRestartFailed() {
    ChangeResults before;
    {
        const std::lock_guard<std::mutex> lock(restartAppInfo_.mutex);
        before = restartAppInfo_.results;
        FailWaiting(restartAppInfo_.results, AppChangeState::RESTART_FAILED);
    }
    for (const auto& result : before) {
        GRP_OWNER_LOG(kInfo, "Restart appName=%s state=%s", result.first.c_str(), StateName(result.second).c_str());
        if (result.second == AppChangeState::INIT) {
            GRP_OWNER_LOG(kWarn, "mark %s to RESTART_FAILED", result.first.c_str());
        }
    }
}

void ApplicationManager::ReportRestartAppResult(const std::string& name, AppChangeState state, uint64_t report) {
    GRP_OWNER_LOG(kInfo, "ApplicationManager: ReportRestartAppResult appName=%s,status=%s.", name.c_str(),
                  StateName(state).c_str());
    RestartPlan::Settlement settlement = RestartPlan::Settlement::IGNORED;
    AppChangeState stored = state;
    {
        const std::lock_guard<std::mutex> lock(restartAppInfo_.mutex);
        settlement = RestartPlan::Settle(restartAppInfo_, name, state, report, stored);
    }
    if (settlement == RestartPlan::Settlement::TAKEN) {
        restartAppInfo_.condition.notify_all();
    }
    if (settlement == RestartPlan::Settlement::ALREADY) {
        GRP_OWNER_LOG(
            kWarn,
            "ApplicationManager ReportRestartAppResult appName=%s is already feedback(now result state=%s), double report? please check.",
            name.c_str(), StateName(stored).c_str());
    }
}

void ApplicationManager::ReportAppResult(const std::string& name, AppChangeState state, AppStateType stateType,
                                         uint64_t report) {
    if (state == AppChangeState::PROCESSING) {
        return;
    }
    switch (stateType) {
        case AppStateType::INIT_STATE:
        case AppStateType::WAIT_READY_STATE:
            ReportStartAppResult(name, state);
            ReportRestartAppResult(name, state, report);
            return;
        case AppStateType::TERMINATING_STATE:
            ReportTermAppResult(name, state);
            return;
        case AppStateType::RUNNING_STATE:
        case AppStateType::TERMINATED_STATE:
            return;
    }
}

// Queries.

bool ApplicationManager::QueryAppState(const std::vector<std::string>& names, std::vector<AppStatus>& statuses,
                                       int timeoutMs) {
    GRP_OWNER_LOG(kInfo, "ApplicationManager: QueryAppState begin. (appList=%zu, timeout=%d ms)", names.size(),
                  timeoutMs);
    const std::lock_guard<std::mutex> queryLock(queryAppStateMutex_);
    const std::vector<std::string> known = KnownNames(names);
    if (known.empty()) {
        GRP_OWNER_LOG(kInfo, "ApplicationManager: QueryAppState end, no app need query from pm");
        statuses = StatusesOf(names);
        return true;
    }
    if (!AskProcMgr(known, timeoutMs)) {
        return false;
    }
    statuses = StatusesOf(names);
    GRP_OWNER_LOG(kInfo, "ApplicationManager: QueryAppState end");
    return true;
}

bool ApplicationManager::AskProcMgr(const std::vector<std::string>& names, int timeoutMs) {
    std::unique_lock<std::mutex> lock(queryAppStateRespMutex_);
    const uint64_t answersBefore = queryAppStateAnswers_;
    if (ProcMgrAgent::GetInstance().QueryAppState(names) != 0) {
        GRP_OWNER_LOG(kError, "ApplicationManager: QueryAppState failed. because ProcMgrAgent fail.");
        return false;
    }
    const Deadline deadline(*clocks_, EffectiveWait(timeoutMs));
    const bool isAnswered = deadline.Wait(waitQueryAppStateRespConditionVar_, lock,
                                          [answersBefore] { return queryAppStateAnswers_ != answersBefore; });
    if (!isAnswered) {
        GRP_OWNER_LOG(kError, "ApplicationManager: QueryAppState failed. because time-out.");
    }
    return isAnswered;
}

void ApplicationManager::NotifyQueryAppState() {
    {
        const std::lock_guard<std::mutex> lock(queryAppStateRespMutex_);
        ++queryAppStateAnswers_;
    }
    waitQueryAppStateRespConditionVar_.notify_one();
}

std::vector<std::string> ApplicationManager::KnownNames(const std::vector<std::string>& names) const {
    std::vector<std::string> known;
    const std::lock_guard<std::mutex> lock(appMutex_);
    for (const std::string& name : names) {
        if (FindApplicationLocked(name) != nullptr) {
            known.push_back(name);
        }
    }
    return known;
}

std::vector<AppStatus> ApplicationManager::StatusesOf(const std::vector<std::string>& names) const {
    std::vector<AppStatus> statuses;
    statuses.reserve(names.size());
    for (const std::string& name : names) {
        AppStatus status;
        status.appName = name;
        if (const std::shared_ptr<Application> app = FindApplicationSilently(name)) {
            status.pid = app->GetPid();
            status.state = app->GetQueriedState();
        } else {
            GRP_OWNER_LOG(kWarn, "ApplicationManager: QueryAppState %s no application found", name.c_str());
        }
        statuses.push_back(std::move(status));
    }
    return statuses;
}

bool ApplicationManager::QueryAppList(std::vector<std::string>& names) const {
    const std::lock_guard<std::mutex> lock(appMutex_);
    GRP_OWNER_LOG(kInfo, "Query app list begin.");
    for (const auto& entry : baseApplications_) {
        GRP_OWNER_LOG(kInfo, "base: %s", entry.first.c_str());
        names.push_back(entry.first);
    }
    for (const auto& entry : drivingApplications_) {
        GRP_OWNER_LOG(kInfo, "driving: %s", entry.first.c_str());
        names.push_back(entry.first);
    }
    GRP_OWNER_LOG(kInfo, "Query app list end.");
    return true;
}

bool ApplicationManager::GrpOwnerVerifyApp(const std::map<std::string, uint32_t>& apps) {
    VerifyDrivingApps(apps);
    // Waiting starts may depend on what was found running.
    for (const auto& entry : apps) {
        NoteCameUp(entry.first);
    }
    return true;
}

void ApplicationManager::VerifyDrivingApps(const std::map<std::string, uint32_t>& apps) {
    const std::lock_guard<std::mutex> lock(appMutex_);
    GRP_OWNER_LOG(kInfo, "Datamaster verify app begin.");
    for (const auto& app : apps) {
        const std::string& name = app.first;
        const uint32_t value = app.second;
        GRP_OWNER_LOG(kInfo, "verify: <%s,%u>", name.c_str(), value);
        const auto found = drivingApplications_.find(name);
        if (found == drivingApplications_.end()) {
            GRP_OWNER_LOG(kWarn, "<%s,%u> is not in driving app list.", name.c_str(), value);
            continue;
        }
        const AppStateType next =
            value == kVerifiedTerminated ? AppStateType::TERMINATED_STATE : AppStateType::RUNNING_STATE;
        (void)found->second->CompareAndSetAppState(AppStateType::INIT_STATE, next);
        const int state = static_cast<int>(found->second->GetAppStateType());
        GRP_OWNER_LOG(kInfo, "Master verify. (app=%s,state=%d)", name.c_str(), state);
    }
    GRP_OWNER_LOG(kInfo, "Datamaster verify app end.");
}

bool ApplicationManager::ApplicationDump() const {
    Collections collections;
    bool isTransitionFinished = false;
    bool isReloading = false;
    {
        const std::lock_guard<std::mutex> lock(appMutex_);
        collections = {baseApplications_, drivingApplications_, dynamicManifests_};
        isTransitionFinished = isTransitionFinished_;
        isReloading = isReloading_;
    }
    GRP_OWNER_LOG(kInfo, "Dump Info:");
    GRP_OWNER_LOG(kInfo, "baseApplications Info:");
    for (const auto& entry : collections.base) {
        GRP_OWNER_LOG(kInfo, "%s", entry.second->AppInfoToString().c_str());
    }
    GRP_OWNER_LOG(kInfo, "drivingApplications Info:");
    for (const auto& entry : collections.driving) {
        GRP_OWNER_LOG(kInfo, "%s", entry.second->AppInfoToString().c_str());
    }
    GRP_OWNER_LOG(kInfo, "dynamicManifests Info:");
    for (const auto& entry : collections.templates) {
        const Application shown(entry.second, "");
        GRP_OWNER_LOG(kInfo, "%s", shown.AppInfoToString().c_str());
    }
    GRP_OWNER_LOG(kInfo, "isTransitionFinished_=%d isReloading_=%d", static_cast<int>(isTransitionFinished),
                  static_cast<int>(isReloading));
    DumpDependsMap();
    return true;
}

void ApplicationManager::DumpDependsMap() {
    GRP_OWNER_LOG(kInfo, "Parse_And_Depend adj Map:");
    for (const auto& app : ParseAndDepend::GetInstance().GetApplicationDependsMap()) {
        std::string text;
        for (const std::string& depend : app.second) {
            text += depend;
            text += ' ';
        }
        GRP_OWNER_LOG(kInfo, "app=%s depend=%s", app.first.c_str(), text.c_str());
    }
}

// Reports.

template <typename Report>
void ApplicationManager::ForwardReport(const std::string& name, Report report) {
    std::string appName;
    AppChangeState result = AppChangeState::PROCESSING;
    AppStateType previous = AppStateType::INIT_STATE;
    uint64_t number = 0;
    {
        // One section with the look-up: a reload in between would let the report go to a record that is gone.
        const std::lock_guard<std::mutex> lock(appMutex_);
        const std::shared_ptr<Application> app = FindApplicationLocked(name);
        if (app == nullptr) {
            return;
        }
        result = report(*app, previous);
        appName = app->GetAppName();
        number = ++reports_;
    }
    ReportAppResult(appName, result, previous, number);
}

void ApplicationManager::ReportRunningNormalStartFromProcMgr(const std::string& name, uint32_t pid) {
    ForwardReport(name, [pid](Application& app, AppStateType& previous) {
        app.SetPid(static_cast<int>(pid));
        return app.ReportRunningNormalStartFromProcMgr(previous);
    });
}

void ApplicationManager::ReportRunningNormalStartFromApp(const std::string& name) {
    ForwardReport(
        name, [](Application& app, AppStateType& previous) { return app.ReportRunningNormalStartFromApp(previous); });
}

void ApplicationManager::ReportRunningAbnormalTermTimeoutFromProcMgr(const std::string& name) {
    ForwardReport(name, [](Application& app, AppStateType& previous) {
        return app.ReportRunningAbnormalTermTimeoutFromProcMgr(previous);
    });
    // It runs again without having been started, which no start run hears of otherwise.
    NoteCameUp(name);
}

void ApplicationManager::ReportTerminatedNormalFromProcMgr(const std::string& name) {
    ForwardReport(
        name, [](Application& app, AppStateType& previous) { return app.ReportTerminatedNormalFromProcMgr(previous); });
}

void ApplicationManager::ReportTerminatedAbnormalFromProcMgr(const std::string& name,
                                                             Message::AppAbnormalExitReason reason) {
    ForwardReport(name, [reason](Application& app, AppStateType& previous) {
        return app.ReportTerminatedAbnormalFromProcMgr(static_cast<uint32_t>(reason), previous);
    });
}

void ApplicationManager::ReportRunningNormalReStartFromProcMgr(const std::string& name, uint32_t pid) {
    ForwardReport(name, [pid](Application& app, AppStateType& previous) {
        app.SetPid(static_cast<int>(pid));
        return app.ReportRunningNormalReStartFromProcMgr(previous);
    });
}

}  // namespace ProcMgr
