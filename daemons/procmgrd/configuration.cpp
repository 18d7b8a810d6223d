#include "daemons/procmgrd/configuration.h"

#include "daemons/procmgrd/borrowed_identity.h"
#include "daemons/procmgrd/daemon_log.h"
#include "platform/posix/manifest/manifest_loader.h"

namespace Procmgrd {
namespace {

ProcMgr::LoadResult LoadAs(const ProcMgr::OwnerIdentity& identity, const ProcMgr::Message::StartupCfgInfo& source) {
    const BorrowedIdentity borrowed(identity);
    if (borrowed.Holds()) {
        return ProcMgr::LoadManifests(source.procName, source.matchDataToPath, ProcMgr::kMebibytesOfProcessManager);
    }
    ProcMgr::LoadResult nothing;
    nothing.errors.push_back({source.procName, 0, 0, "", "cannot be read with the rights of its owner"});
    return nothing;
}

// The log is our own, so that it is written after everything was read.
ProcMgr::LoadResult LoadAndLog(const std::string& owner, const ProcMgr::OwnerIdentity& identity,
                               const ProcMgr::Message::StartupCfgInfo& source) {
    ProcMgr::LoadResult result = LoadAs(identity, source);
    for (const ProcMgr::ManifestError& error : result.errors) {
        PROCMGRD_LOG(kLogError, "owner %s: bad manifest: %s", owner.c_str(), ProcMgr::FormatError(error).c_str());
    }
    for (const ProcMgr::ManifestError& warning : result.warnings) {
        PROCMGRD_LOG(kLogWarn, "owner %s: manifest: %s", owner.c_str(), ProcMgr::FormatError(warning).c_str());
    }
    return result;
}

std::map<std::string, ApplicationManifest> ByName(const ProcMgr::LoadResult& result) {
    std::map<std::string, ApplicationManifest> manifests;
    for (const ApplicationManifest& manifest : result.manifests) {
        manifests[manifest.GetAppName()] = manifest;
    }
    return manifests;
}

}  // namespace

bool Configuration::Load(const std::string& owner, const ProcMgr::OwnerIdentity& identity,
                         const ProcMgr::Message::StartupCfgInfo& source) {
    const ProcMgr::LoadResult result = LoadAndLog(owner, identity, source);
    manifests_ = ByName(result);
    PROCMGRD_LOG(kLogInfo, "owner %s: loaded %s: %zu applications, %zu errors", owner.c_str(), source.procName.c_str(),
                 manifests_.size(), result.errors.size());
    return result.errors.empty() || !manifests_.empty();
}

bool Configuration::Reload(const std::string& owner, const ProcMgr::OwnerIdentity& identity,
                           const ProcMgr::Message::StartupCfgInfo& source) {
    const ProcMgr::LoadResult result = LoadAndLog(owner, identity, source);
    if (!result.errors.empty()) {
        PROCMGRD_LOG(kLogError, "owner %s: not reloaded from %s because of %zu errors; everything stays as it was",
                     owner.c_str(), source.procName.c_str(), result.errors.size());
        return false;
    }
    manifests_ = ByName(result);
    PROCMGRD_LOG(kLogInfo, "owner %s: reloaded %s: %zu applications", owner.c_str(), source.procName.c_str(),
                 manifests_.size());
    return true;
}

const ApplicationManifest* Configuration::Find(const std::string& name) const {
    const auto found = manifests_.find(name);
    if (found != manifests_.end()) {
        return &found->second;
    }
    const auto base = manifests_.find(ProcMgr::TemplateOf(name));
    return base != manifests_.end() && base->second.GetIsDynamicPara() ? &base->second : nullptr;
}

}  // namespace Procmgrd
