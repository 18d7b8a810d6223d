#include "platform/include/parse_and_depend.h"

#include <cstdlib>
#include <mutex>
#include <utility>

#include "platform/posix/common_posix/module_log.h"
#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/replacement_data.h"
#include "platform/posix/manifest/wave_graphs.h"

namespace {

using ProcMgr::DependsMap;
using ProcMgr::ManifestError;
using Templates = std::set<std::string>;

using ProcMgr::kLogError;
using ProcMgr::kLogWarn;

void Log(int32_t level, const ManifestError& error) {
    MODULE_LOG(ProcMgr::LogModule::MANIFEST, level, "%s", ProcMgr::FormatError(error).c_str());
}

void LogAll(int32_t level, const std::vector<ManifestError>& errors) {
    for (const ManifestError& error : errors) {
        Log(level, error);
    }
}

void Add(const std::vector<ApplicationManifest>& manifests, DependsMap& depends, Templates& templates) {
    for (const ApplicationManifest& manifest : manifests) {
        depends[manifest.GetAppName()] = manifest.GetDependList();
        if (manifest.GetIsDynamicPara()) {
            templates.insert(manifest.GetAppName());
        }
    }
}

}  // namespace

/// Readers take the shared values and leave the lock; writers put new ones in their place.
struct ParseAndDepend::State {
    mutable std::mutex mutex;
    std::shared_ptr<const DependsMap> depends = std::make_shared<const DependsMap>();
    std::shared_ptr<const Templates> templates = std::make_shared<const Templates>();

    std::pair<std::shared_ptr<const DependsMap>, std::shared_ptr<const Templates>> Read() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return {depends, templates};
    }
};

ParseAndDepend::ParseAndDepend() : state_(std::make_unique<State>()) {
}

ParseAndDepend::~ParseAndDepend() = default;

ParseAndDepend& ParseAndDepend::GetInstance() {
    // Never destroyed: platform threads may still ask while the process exits.
    static ParseAndDepend& instance = *new ParseAndDepend;
    return instance;
}

int ParseAndDepend::ParseToReplaceData(ParamType type, const std::string& key,
                                       std::map<std::string, std::string>& matchData) {
    std::vector<ManifestError> errors;
    if (type == ParamType::REPLACE_DATA) {
        const char* const entryPath = std::getenv("STARTUP_ENTRY_PATH");
        const std::string file = ProcMgr::FindReplacementData(entryPath == nullptr ? "" : entryPath);
        ProcMgr::LoadReplacementData(file, key, matchData, errors);
    } else {
        errors.push_back({"replacement data", 0, 0, "", "are asked for with the type of something else"});
    }
    LogAll(kLogError, errors);
    return errors.empty() ? 0 : 1;
}

int ParseAndDepend::ParseYaml(ParamType type, const std::string& path, std::vector<ApplicationManifest>& out,
                              const std::map<std::string, std::string>& matchData) {
    if (type != ParamType::MANIFEST) {
        Log(kLogError, {path, 0, 0, "", "is to be read as manifests, but with the type of something else"});
        return 1;
    }
    ProcMgr::LoadResult result = ProcMgr::LoadManifests(path, matchData);
    LogAll(kLogError, result.errors);
    LogAll(kLogWarn, result.warnings);
    {
        const std::lock_guard<std::mutex> lock(state_->mutex);
        const bool isComplete = result.errors.empty();
        auto depends = std::make_shared<DependsMap>(isComplete ? DependsMap() : *state_->depends);
        auto templates = std::make_shared<Templates>(isComplete ? Templates() : *state_->templates);
        Add(result.manifests, *depends, *templates);
        state_->depends = std::move(depends);
        state_->templates = std::move(templates);
    }
    out = std::move(result.manifests);
    return result.errors.empty() ? 0 : 1;
}

std::unordered_map<std::string, std::set<std::string>> ParseAndDepend::GetApplicationDependsMap() const {
    return *state_->Read().first;
}

void ParseAndDepend::SetApplicationDependsMap(const std::unordered_map<std::string, std::set<std::string>>& depends) {
    auto replacement = std::make_shared<const DependsMap>(depends);
    const std::lock_guard<std::mutex> lock(state_->mutex);
    state_->depends.swap(replacement);
}

bool ParseAndDepend::IsDynamicPara(const std::string& name) const {
    return state_->Read().second->count(name) != 0;
}

bool ParseAndDepend::IsDynamicParaMatch(const std::string& templateName, const std::string& name) const {
    return ProcMgr::IsInstanceOf(templateName, name) && IsDynamicPara(templateName);
}

int ParseAndDepend::GetStartGraphWithErrApp(const std::vector<std::string>& names, DependGraph& graph,
                                            std::vector<std::string>& unknown) {
    const auto [depends, templates] = state_->Read();
    std::vector<std::string> refused;
    graph = ProcMgr::BuildStartGraph({*depends, *templates}, names, refused);
    unknown = std::move(refused);
    return unknown.empty() ? 0 : 1;
}

int ParseAndDepend::GetTermGraphWithErrApp(const std::vector<std::string>& names, DependGraph& graph,
                                           std::vector<std::string>& unknown) {
    const auto [depends, templates] = state_->Read();
    std::vector<std::string> refused;
    graph = ProcMgr::BuildTermGraph({*depends, *templates}, names, refused);
    unknown = std::move(refused);
    return unknown.empty() ? 0 : 1;
}
